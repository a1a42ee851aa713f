#include "collector/output/largest.h"

#include <doctest/doctest.h>

#include <map>
#include <random>

namespace output {
namespace {

TEST_CASE("each key is listed once, with its largest value") {
  Largest largest(3);
  largest.Add("a", 5);
  largest.Add("b", 7);
  largest.Add("a", 9);
  largest.Add("a", 1);
  REQUIRE(largest.All().size() == 2);
  CHECK(largest.All()[0].key == "a");
  CHECK(largest.All()[0].value == 9);
  CHECK(largest.All()[1].key == "b");
}

TEST_CASE("a larger value displaces the smallest") {
  Largest largest(2);
  largest.Add("a", 1);
  largest.Add("b", 2);
  largest.Add("c", 3);
  REQUIRE(largest.All().size() == 2);
  CHECK(largest.All()[0].key == "c");
  CHECK(largest.All()[1].key == "b");
  largest.Add("d", 2);
  CHECK(largest.All()[1].key == "b");
}

TEST_CASE("room for nothing holds nothing") {
  Largest largest(0);
  largest.Add("a", 1);
  CHECK(largest.All().empty());
}

TEST_CASE("the list is exact whatever the order") {
  Largest largest(10);
  std::map<std::string, int64_t> exact;
  std::mt19937 random(3);
  for (int i = 0; i < 20000; ++i) {
    const std::string key = std::to_string(random() % 500);
    const auto value = static_cast<int64_t>(random() % 1000000);
    largest.Add(key, value);
    exact[key] = std::max(exact[key], value);
  }
  std::multimap<int64_t, std::string, std::greater<>> sorted;
  for (const auto& [key, value] : exact) sorted.emplace(value, key);
  auto expected = sorted.begin();
  for (const Largest::Entry& entry : largest.All()) {
    CHECK(entry.value == expected->first);
    CHECK(entry.value == exact[entry.key]);
    ++expected;
  }
}

}  // namespace
}  // namespace output
