#include "collector/output/heavy_hitters.h"

#include <doctest/doctest.h>

#include <map>
#include <random>

namespace output {
namespace {

struct Nothing {};

TEST_CASE("few keys are counted exactly") {
  HeavyHitters<Nothing> hitters(10);
  for (int i = 0; i < 5; ++i) hitters.Count("five");
  for (int i = 0; i < 7; ++i) hitters.Count("seven");
  hitters.Count("one");
  const auto top = hitters.Top(2);
  REQUIRE(top.size() == 2);
  CHECK(top[0]->key == "seven");
  CHECK(top[0]->count == 7);
  CHECK(top[1]->key == "five");
  CHECK(top[1]->error == 0);
  CHECK(hitters.Top(10).size() == 3);
  CHECK(hitters.Exact());
}

TEST_CASE("equal counts are listed by key") {
  HeavyHitters<Nothing> hitters(10);
  for (const char* key : {"c", "a", "b"}) hitters.Count(key);
  const auto top = hitters.Top(3);
  CHECK(top[0]->key == "a");
  CHECK(top[1]->key == "b");
  CHECK(top[2]->key == "c");
}

TEST_CASE("a new key takes the place of the least frequent and inherits its count") {
  HeavyHitters<Nothing> hitters(2);
  for (int i = 0; i < 3; ++i) hitters.Count("often");
  for (int i = 0; i < 2; ++i) hitters.Count("rare");
  hitters.Count("new");
  CHECK(hitters.size() == 2);
  CHECK_FALSE(hitters.Exact());
  const auto top = hitters.Top(2);
  CHECK(top[0]->key == "new");
  CHECK(top[0]->count == 3);
  CHECK(top[0]->error == 2);
  CHECK(top[1]->key == "often");
}

TEST_CASE("payloads live with their keys") {
  HeavyHitters<int> hitters(2);
  ++*hitters.Count("a");
  ++*hitters.Count("a");
  *hitters.Count("b") = 42;
  int evicted = 0;
  int* fresh = hitters.Count("c", [&](int payload) { evicted = payload; });
  CHECK(evicted == 42);
  CHECK(*fresh == 0);
  CHECK(*hitters.Count("a") == 2);
}

TEST_CASE("frequent keys of a long stream are found, with counts within their error") {
  HeavyHitters<Nothing> hitters(100);
  std::map<std::string, uint64_t> exact;
  std::mt19937 random(11);
  std::geometric_distribution<int> often(0.05);
  for (int i = 0; i < 100000; ++i) {
    const std::string key = i % 3 == 0 ? "once " + std::to_string(i) : "name " + std::to_string(often(random));
    hitters.Count(key);
    ++exact[key];
  }
  CHECK(hitters.size() == 100);
  std::map<std::string, const HeavyHitters<Nothing>::Entry*> found;
  for (const auto* entry : hitters.Top(100)) {
    found[entry->key] = entry;
    CHECK(entry->count >= exact[entry->key]);
    CHECK(entry->count - entry->error <= exact[entry->key]);
  }
  for (const auto& [key, count] : exact) {
    if (count > 1000) CHECK(found.contains(key));
  }
}

TEST_CASE("counts of another list are added at once") {
  HeavyHitters<Nothing> hitters(2);
  hitters.CountTimes("a", 5);
  hitters.CountTimes("b", 3);
  hitters.CountTimes("a", 2);
  hitters.CountTimes("c", 4);
  REQUIRE(hitters.Find("a") != nullptr);
  CHECK(hitters.Find("a")->count == 7);
  CHECK(hitters.Find("b") == nullptr);
  REQUIRE(hitters.Find("c") != nullptr);
  CHECK(hitters.Find("c")->count == 7);
  CHECK(hitters.Find("c")->error == 3);
  CHECK(hitters.All().size() == 2);
}

TEST_CASE("keys can be ranked by what they carry; those without it are left out") {
  HeavyHitters<int> hitters(10);
  *hitters.Count("often") = 1;
  *hitters.Count("often") = 1;
  *hitters.Count("never") = 0;
  *hitters.Count("most") = 5;
  const auto top = hitters.Top(10, [](const auto& entry) { return entry.payload; });
  REQUIRE(top.size() == 2);
  CHECK(top[0]->key == "most");
  CHECK(top[1]->key == "often");
  CHECK(hitters.Top(1, [](const auto& entry) { return entry.payload; }).size() == 1);
}

}  // namespace
}  // namespace output
