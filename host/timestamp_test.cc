#include "host/timestamp.h"

#include <doctest/doctest.h>

#include <limits>
#include <type_traits>

namespace {

constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
constexpr int64_t kHighest = std::numeric_limits<int64_t>::max();

}  // namespace

TEST_CASE("instants and differences start at zero") {
  CHECK(Timestamp<1000000>().ticks == 0);
  CHECK(TimeDelta<1000000>().ticks == 0);
}

TEST_CASE("the parser's own unit is the microsecond") {
  CHECK(std::is_same_v<Microtime, Timestamp<1000000>>);
  CHECK(std::is_same_v<Microdelta, TimeDelta<1000000>>);
}

TEST_CASE("two instants are a difference apart, in their own unit") {
  const Timestamp<1000000> earlier{1700000000000000};
  const Timestamp<1000000> later{1700000000001999};
  CHECK((later - earlier).ticks == 1999);
  static_assert(std::is_same_v<decltype(later - earlier), TimeDelta<1000000>>);
}

TEST_CASE("the difference to a later instant is negative") {
  CHECK((Timestamp<1000000>{3} - Timestamp<1000000>{10}).ticks == -7);
}

TEST_CASE("a difference taken from an instant gives an earlier one") {
  const Timestamp<1000000> now{5000001};
  const auto cutoff = now - TimeDelta<1000000>{5000000};
  CHECK(cutoff.ticks == 1);
  static_assert(std::is_same_v<decltype(cutoff), const Timestamp<1000000>>);
}

TEST_CASE("instants before the epoch are smaller than those after it") {
  const Timestamp<1000000> before{-1};
  const Timestamp<1000000> after{1};
  CHECK(before < after);
  CHECK(after > before);
  CHECK(before <= before);
  CHECK_FALSE(before < before);
  CHECK(before == Timestamp<1000000>{-1});
  CHECK(before != after);
}

TEST_CASE("differences are compared as signed numbers") {
  CHECK(TimeDelta<1000000>{-1} < TimeDelta<1000000>{0});
  CHECK(TimeDelta<1000000>{2} > TimeDelta<1000000>{-2});
  CHECK(TimeDelta<1000000>{2} == TimeDelta<1000000>{2});
}

TEST_CASE("arithmetic at the ends of time wraps around") {
  CHECK((Timestamp<1000000>{kLowest} - TimeDelta<1000000>{1}).ticks == kHighest);
  CHECK((Timestamp<1000000>{kHighest} - TimeDelta<1000000>{-1}).ticks == kLowest);
  CHECK((Timestamp<1000000>{kLowest} - Timestamp<1000000>{1}).ticks == kHighest);
  CHECK((Timestamp<1000000>{kHighest} - Timestamp<1000000>{kLowest}).ticks == -1);
}

TEST_CASE("an instant crosses the boundary as a plain 64-bit value") {
  static_assert(sizeof(Timestamp<1000000>) == sizeof(int64_t));
  static_assert(sizeof(TimeDelta<1000000>) == sizeof(int64_t));
  static_assert(std::is_trivially_copyable_v<Timestamp<1000000>>);
  static_assert(std::is_trivially_destructible_v<Timestamp<1000000>>);
  static_assert(std::is_standard_layout_v<Timestamp<1000000>>);

  // As a host without this header calls it.
  int64_t seen = 0;
  auto callee = [](Timestamp<1000000> now, int64_t* out) { *out = now.ticks; };
  void (*by_value)(Timestamp<1000000>, int64_t*) = callee;
  by_value({0x1122334455667788}, &seen);
  CHECK(seen == 0x1122334455667788);
}
