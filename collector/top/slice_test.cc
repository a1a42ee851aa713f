#include "collector/top/slice.h"

#include <doctest/doctest.h>

#include <limits>

#include "collector/output/keys.h"
#include "collector/output/question.h"
#include "collector/top/exchanges_for_tests.h"

namespace top {
namespace {

// "name name ..." in this order.
std::string Names(const Slice& slice, Order order, size_t most = 10) {
  std::string text;
  for (const Row& row : slice.Of(Subject::kName).First(order, most)) {
    text += (text.empty() ? "" : " ") + output::NameText(row.key);
  }
  return text;
}

TEST_CASE("each order ranks by what it is about") {
  Slice slice(10);
  for (int i = 0; i < 5; ++i) Add(&slice, {.name = "busy", .rtt_us = 10});
  for (int i = 0; i < 2; ++i) Add(&slice, {.name = "failing", .code = 3, .rtt_us = 20});
  for (int i = 0; i < 3; ++i) Add(&slice, {.name = "silent", .code = -1});
  Add(&slice, {.name = "slow", .rtt_us = 900000});
  CHECK(Names(slice, Order::kBusiest) == "busy silent failing slow");
  CHECK(Names(slice, Order::kFailing) == "silent failing");
  CHECK(Names(slice, Order::kSlowest) == "slow failing busy");
  CHECK(Names(slice, Order::kBusiest, 2) == "busy silent");
}

TEST_CASE("a row tells failures, time-outs and times apart") {
  Slice slice(10);
  Add(&slice, {.code = 0, .rtt_us = 1000});
  Add(&slice, {.code = 2, .rtt_us = 4000});
  Add(&slice, {.code = -1});
  const Row row = slice.Of(Subject::kServer).First(Order::kBusiest, 1).at(0);
  CHECK(output::AddressOfKey(row.key) == "198.51.100.53");
  CHECK(row.exchanges == 3);
  CHECK(row.failed == 1);
  CHECK(row.timed_out == 1);
  CHECK(row.mean_us == 2500);
  CHECK(row.slowest_us == 4000);
  CHECK(slice.all().Ended() == 3);
}

TEST_CASE("response times that no sum holds have a mean at the end of all numbers") {
  constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
  constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();
  for (const int64_t end : {kMost, kLeast}) {
    Slice slice(10), other(10);
    for (int i = 0; i < 3; ++i) Add(&slice, {.rtt_us = end});
    for (int i = 0; i < 3; ++i) Add(&other, {.rtt_us = end});
    CHECK(slice.Of(Subject::kServer).First(Order::kBusiest, 1).at(0).mean_us == end / 3);
    slice.Add(other);
    CHECK(slice.Of(Subject::kServer).First(Order::kBusiest, 1).at(0).mean_us == end / 6);
  }
}

TEST_CASE("names that differ in letter case only are one name") {
  Slice slice(10);
  Add(&slice, {.name = "Example.COM"});
  Add(&slice, {.name = "example.com"});
  CHECK(Names(slice, Order::kBusiest) == "example.com");
}

TEST_CASE("a rare failure is seen among very many names that do not fail") {
  Slice slice(16);
  for (int i = 0; i < 2000; ++i) {
    Add(&slice, {.name = "n" + std::to_string(i)});
    if (i % 500 == 0) Add(&slice, {.name = "broken", .code = 2, .rtt_us = 5});
  }
  const auto rows = slice.Of(Subject::kName).First(Order::kFailing, 5);
  REQUIRE(rows.size() == 1);
  CHECK(rows[0].failed == 4);
}

TEST_CASE("counts are never too high, however many keys come") {
  Slice slice(16);
  for (int i = 0; i < 1000; ++i) {
    Add(&slice, {.name = "n" + std::to_string(i)});
    Add(&slice, {.name = "often"});
  }
  const auto rows = slice.Of(Subject::kName).First(Order::kBusiest, 3);
  CHECK(output::NameText(rows[0].key) == "often");
  CHECK(rows[0].exchanges > 900);
  CHECK(rows[0].exchanges <= 1000);
  CHECK(rows[1].exchanges == 1);
}

TEST_CASE("slices add up") {
  Slice one(10), other(10), sum(20);
  Add(&one, {.name = "a", .rtt_us = 1000});
  Add(&other, {.name = "a", .code = 3, .rtt_us = 3000});
  Add(&other, {.name = "b", .code = -1});
  sum.Add(one);
  sum.Add(other);
  const auto rows = sum.Of(Subject::kName).First(Order::kBusiest, 5);
  REQUIRE(rows.size() == 2);
  CHECK(rows[0].exchanges == 2);
  CHECK(rows[0].mean_us == 2000);
  CHECK(rows[0].slowest_us == 3000);
  CHECK(rows[1].timed_out == 1);
  CHECK(sum.all().Ended() == 3);
  CHECK(sum.all().times_us.max() == 3000);
  CHECK(Names(sum, Order::kFailing) == "a b");
}

TEST_CASE("what a slow name was asked otherwise may be unknown, but never wrong") {
  Slice slice(2);
  Add(&slice, {.name = "slow", .rtt_us = 900000});
  for (int i = 0; i < 10; ++i) Add(&slice, {.name = "n" + std::to_string(i), .rtt_us = 1});
  const Row row = slice.Of(Subject::kName).First(Order::kSlowest, 1).at(0);
  CHECK(row.slowest_us == 900000);
  CHECK_FALSE(row.counted);
}

}  // namespace
}  // namespace top
