#include "collector/capture/tick_clock.h"

#include <doctest/doctest.h>

#include <cstdint>
#include <limits>

namespace {

using capture::TickClock;

constexpr int64_t kEarliest = std::numeric_limits<int64_t>::min();
constexpr int64_t kLatest = std::numeric_limits<int64_t>::max();
constexpr uint64_t kMostTicks = std::numeric_limits<uint64_t>::max();

int64_t Decimal(int exponent, uint64_t ticks) {
  return TickClock(static_cast<uint8_t>(exponent), 0).Nanoseconds(ticks);
}
int64_t Binary(int exponent, uint64_t ticks) {
  return TickClock(static_cast<uint8_t>(0x80 | exponent), 0).Nanoseconds(ticks);
}

}  // namespace

TEST_CASE("a clock counts microseconds when nothing else is said") {
  CHECK(TickClock().Nanoseconds(1'700'000'000'123'456) == 1'700'000'000'123'456'000);
}

TEST_CASE("a clock counts any power of ten") {
  CHECK(Decimal(0, 1'700'000'000) == 1'700'000'000'000'000'000);
  CHECK(Decimal(3, 1'700'000'000'123) == 1'700'000'000'123'000'000);
  CHECK(Decimal(6, 7) == 7000);
  CHECK(Decimal(8, 7) == 70);
  CHECK(Decimal(9, 1'700'000'000'123'456'789) == 1'700'000'000'123'456'789);
}

TEST_CASE("ticks below a nanosecond are cut off") {
  CHECK(Decimal(10, 19) == 1);
  CHECK(Decimal(12, 1'700'000'000'999'999) == 1'700'000'000'999);
  CHECK(Decimal(27, kMostTicks) == 18);
  CHECK(Decimal(28, kMostTicks) == 1);
  CHECK(Decimal(29, kMostTicks) == 0);
  CHECK(Decimal(127, kMostTicks) == 0);
}

TEST_CASE("a clock counts any power of two") {
  CHECK(Binary(0, 5) == 5'000'000'000);
  CHECK(Binary(1, 3) == 1'500'000'000);
  CHECK(Binary(10, 1) == 976'562);  // and a half
  CHECK(Binary(32, (uint64_t{1'700'000'000} << 32) + (uint64_t{1} << 31)) == 1'700'000'000'500'000'000);
  CHECK(Binary(63, uint64_t{1} << 63) == 1'000'000'000);
  CHECK(Binary(64, kMostTicks) == 999'999'999);
  CHECK(Binary(94, kMostTicks) == 0);
  CHECK(Binary(127, kMostTicks) == 0);
}

TEST_CASE("the offset of a clock is in seconds and may be negative") {
  CHECK(TickClock(9, 1'700'000'000).Nanoseconds(1) == 1'700'000'000'000'000'001);
  CHECK(TickClock(6, -2).Nanoseconds(1) == -1'999'999'000);
}

TEST_CASE("a fraction of a nanosecond rounds down before the epoch too") {
  CHECK(TickClock(12, -1).Nanoseconds(1) == -1'000'000'000);
  CHECK(TickClock(12, -1).Nanoseconds(999) == -1'000'000'000);
  CHECK(TickClock(12, -1).Nanoseconds(1000) == -999'999'999);
}

TEST_CASE("a time beyond 64 bits of nanoseconds becomes the nearest that fits") {
  CHECK(Decimal(0, kMostTicks) == kLatest);
  CHECK(Decimal(9, kMostTicks) == kLatest);
  CHECK(Decimal(9, static_cast<uint64_t>(kLatest)) == kLatest);
  CHECK(Decimal(9, static_cast<uint64_t>(kLatest) - 1) == kLatest - 1);
  CHECK(TickClock(6, kLatest).Nanoseconds(0) == kLatest);
  CHECK(TickClock(6, kEarliest).Nanoseconds(0) == kEarliest);
  CHECK(TickClock(0, kEarliest).Nanoseconds(kMostTicks) == kLatest);
}

TEST_CASE("an offset can bring a time back that would not fit alone") {
  CHECK(TickClock(9, -9'223'372'036).Nanoseconds(uint64_t{1} << 63) == 854'775'808);
}
