#include "collector/flow/hash_index.h"

#include <doctest/doctest.h>

#include <map>
#include <random>

using flow::HashIndex;

namespace {

auto Is(uint32_t wanted) {
  return [wanted](uint32_t entry) { return entry == wanted; };
}

}  // namespace

TEST_CASE("an entry is found under its hash and nowhere else") {
  HashIndex index;
  index.Insert(5, 100);
  CHECK(index.Find(5, Is(100)) == 100);
  CHECK(index.Find(5, Is(101)) == HashIndex::kNone);
  CHECK(index.Find(69, [](uint32_t) { return true; }) == HashIndex::kNone);  // the same slot, another hash
  CHECK(index.size() == 1);
}

TEST_CASE("a guess is an entry of the hash, or none") {
  HashIndex index;
  CHECK(index.Guess(5) == HashIndex::kNone);
  index.Insert(5, 100);
  CHECK(index.Guess(5) == 100);
  CHECK(index.Guess(69) == HashIndex::kNone);  // the same slot, another hash
}

TEST_CASE("only entries of exactly this hash are compared") {
  HashIndex index;
  index.Insert(5, 100);
  index.Insert(5 + 64, 101);
  int asked = 0;
  index.Find(5 + 64, [&](uint32_t entry) {
    ++asked;
    return entry == 101;
  });
  CHECK(asked == 1);
}

TEST_CASE("erasing an entry leaves those that had to give way to it reachable, around the table's end too") {
  HashIndex index;
  for (uint32_t entry = 0; entry < 6; ++entry) index.Insert(62, entry);  // slots 62, 63, 0, 1, 2, 3
  index.Insert(1, 100);                                                  // slot 4
  index.Insert(63, 101);                                                 // slot 5
  index.Erase(62, 1);
  index.Erase(62, 0);
  for (uint32_t entry = 2; entry < 6; ++entry) CHECK(index.Find(62, Is(entry)) == entry);
  CHECK(index.Find(1, Is(100)) == 100);
  CHECK(index.Find(63, Is(101)) == 101);
  CHECK(index.Find(62, Is(0)) == HashIndex::kNone);
  CHECK(index.size() == 6);
}

TEST_CASE("an index that grows and shrinks at random agrees with a map, whatever collides") {
  for (const uint32_t spread : {1u, 7u, 1000u, 0xFFFFFFFFu}) {
    CAPTURE(spread);
    std::mt19937 random(spread);
    HashIndex index;
    std::map<uint32_t, uint32_t> model;  // entry -> hash
    const int most = spread == 1 ? 300 : 3000;
    for (int step = 0; step < 4 * most; ++step) {
      const uint32_t entry = static_cast<uint32_t>(random() % static_cast<uint32_t>(most));
      const auto known = model.find(entry);
      if (known == model.end()) {
        const uint32_t hash = static_cast<uint32_t>(random() % spread);
        index.Insert(hash, entry);
        model[entry] = hash;
      } else if (random() % 2 == 0) {
        index.Erase(known->second, entry);
        CHECK(index.Find(known->second, Is(entry)) == HashIndex::kNone);
        model.erase(known);
      }
    }
    CHECK(index.size() == model.size());
    for (const auto& [entry, hash] : model) CHECK(index.Find(hash, Is(entry)) == entry);
  }
}
