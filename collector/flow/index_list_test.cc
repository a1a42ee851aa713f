#include "collector/flow/index_list.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <list>
#include <random>
#include <vector>

using flow::IndexList;

namespace {

// Empties the list.
std::vector<uint32_t> Drain(IndexList* list) {
  std::vector<uint32_t> entries;
  while (!list->empty()) {
    entries.push_back(list->front());
    list->Remove(list->front());
  }
  return entries;
}

}  // namespace

TEST_CASE("entries come out in the order in which they came") {
  IndexList list;
  for (uint32_t entry : {7u, 3u, 9u}) list.PushBack(entry);
  CHECK(Drain(&list) == std::vector<uint32_t>{7, 3, 9});
  CHECK(list.front() == IndexList::kNone);
}

TEST_CASE("an entry leaves from the beginning, the middle and the end") {
  for (uint32_t leaving = 0; leaving < 3; ++leaving) {
    IndexList list;
    for (uint32_t entry = 0; entry < 3; ++entry) list.PushBack(entry);
    list.Remove(leaving);
    CHECK_FALSE(list.Contains(leaving));
    std::vector<uint32_t> expected{0, 1, 2};
    expected.erase(expected.begin() + leaving);
    CHECK(Drain(&list) == expected);
  }
}

TEST_CASE("removing what is not in the list changes nothing") {
  IndexList list;
  list.PushBack(1);
  list.Remove(0);
  list.Remove(1000);
  CHECK(Drain(&list) == std::vector<uint32_t>{1});
  list.Remove(1);
  CHECK(list.empty());
}

TEST_CASE("an entry that moves to the back is the last one, from wherever it was") {
  IndexList list;
  for (uint32_t entry : {1u, 2u, 3u}) list.PushBack(entry);
  list.MoveToBack(1);
  list.MoveToBack(1);
  list.MoveToBack(4);  // was nowhere
  CHECK(Drain(&list) == std::vector<uint32_t>{2, 3, 1, 4});
}

TEST_CASE("random operations agree with a plain list") {
  std::mt19937 random(1);
  IndexList list;
  std::list<uint32_t> model;
  for (int step = 0; step < 20000; ++step) {
    const uint32_t entry = static_cast<uint32_t>(random() % 100);
    const bool present = std::find(model.begin(), model.end(), entry) != model.end();
    REQUIRE(list.Contains(entry) == present);
    if (random() % 2 == 0) {
      list.Remove(entry);
      model.remove(entry);
    } else {
      list.MoveToBack(entry);
      model.remove(entry);
      model.push_back(entry);
    }
    REQUIRE(list.front() == (model.empty() ? IndexList::kNone : model.front()));
  }
  CHECK(Drain(&list) == std::vector<uint32_t>(model.begin(), model.end()));
}
