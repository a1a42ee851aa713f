#include "collector/plugin/open_index.h"

#include <doctest/doctest.h>

#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace plugin {
namespace {

// The index never looks into a flow: numbers will do.
const flow::Flow* FlowAt(uintptr_t number) { return reinterpret_cast<const flow::Flow*>(number * 512); }

}  // namespace

TEST_CASE("a query is found by its flow and identifier together") {
  OpenIndex index;
  index.Add(FlowAt(1), 7, 100);
  index.Add(FlowAt(1), 8, 101);
  index.Add(FlowAt(2), 7, 102);
  REQUIRE(index.Find(FlowAt(1), 7) != nullptr);
  CHECK(*index.Find(FlowAt(1), 7) == 100);
  CHECK(*index.Find(FlowAt(1), 8) == 101);
  CHECK(*index.Find(FlowAt(2), 7) == 102);
  CHECK(index.Find(FlowAt(2), 8) == nullptr);
  CHECK(index.Find(FlowAt(3), 7) == nullptr);
  CHECK(index.size() == 3);
}

TEST_CASE("what is erased is gone, and erasing what is not there changes nothing") {
  OpenIndex index;
  index.Add(FlowAt(1), 7, 100);
  index.Erase(FlowAt(1), 8);
  CHECK(index.size() == 1);
  index.Erase(FlowAt(1), 7);
  CHECK(index.Find(FlowAt(1), 7) == nullptr);
  CHECK(index.size() == 0);
}

TEST_CASE("all identifiers of one flow can be open") {
  OpenIndex index;
  for (int id = 0; id < 65536; ++id) index.Add(FlowAt(1), static_cast<uint16_t>(id), id + 1);
  CHECK(index.size() == 65536);
  int wrong = 0;
  for (int id = 0; id < 65536; ++id) {
    const int32_t* found = index.Find(FlowAt(1), static_cast<uint16_t>(id));
    if (found == nullptr || *found != id + 1) ++wrong;
  }
  CHECK(wrong == 0);
}

TEST_CASE("any order of additions and erasures agrees with an ordered map") {
  std::mt19937 random(20231114);
  OpenIndex index;
  std::map<std::pair<uintptr_t, uint16_t>, int32_t> model;
  int wrong = 0;
  for (int step = 0; step < 200000; ++step) {
    const uintptr_t flow = random() % 40 + 1;
    const auto id = static_cast<uint16_t>(random() % 64);
    const auto known = model.find({flow, id});
    const int32_t* found = index.Find(FlowAt(flow), id);
    if ((found != nullptr) != (known != model.end())) ++wrong;
    if (found != nullptr && known != model.end() && *found != known->second) ++wrong;
    if (known == model.end()) {
      index.Add(FlowAt(flow), id, step);
      model[{flow, id}] = step;
    } else if (random() % 2 == 0) {
      index.Erase(FlowAt(flow), id);
      model.erase(known);
    }
  }
  CHECK(wrong == 0);
  CHECK(index.size() == model.size());
}

}  // namespace plugin
