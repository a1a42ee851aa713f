#include "collector/plugin/packet_clock.h"

#include <doctest/doctest.h>

#include <limits>

namespace plugin {
namespace {

constexpr int64_t kSecond = 1000000000;

}  // namespace

TEST_CASE("nanoseconds become microseconds, rounded down") {
  CHECK(ToMicrotime(1999).ticks == 1);
  CHECK(ToMicrotime(2000).ticks == 2);
  CHECK(ToMicrotime(-1).ticks == -1);
  CHECK(ToMicrotime(-1000).ticks == -1);
  CHECK(ToMicrotime(-1001).ticks == -2);
}

TEST_CASE("the first packet only sets the grid") {
  PacketClock clock;
  CHECK_FALSE(clock.started());
  CHECK_FALSE(clock.Advance(5 * kSecond + 1));
  CHECK(clock.started());
  CHECK(clock.grid_ns() == 5 * kSecond);
}

TEST_CASE("a packet crosses the grid at the very second and not before") {
  PacketClock clock;
  clock.Advance(5 * kSecond);
  CHECK_FALSE(clock.Advance(6 * kSecond - 1));
  CHECK(clock.Advance(6 * kSecond));
  CHECK(clock.grid_ns() == 6 * kSecond);
  CHECK_FALSE(clock.Advance(6 * kSecond));
}

TEST_CASE("many seconds are crossed at once, and the last one counts") {
  PacketClock clock;
  clock.Advance(5 * kSecond);
  CHECK(clock.Advance(3600 * kSecond + 7));
  CHECK(clock.grid_ns() == 3600 * kSecond);
}

TEST_CASE("a packet up to a minute older than the grid changes nothing") {
  PacketClock clock;
  clock.Advance(100 * kSecond + 1);
  CHECK_FALSE(clock.Advance(40 * kSecond));
  CHECK(clock.grid_ns() == 100 * kSecond);
  CHECK(clock.latest_ns() == 100 * kSecond + 1);
  CHECK(clock.steps_back() == 0);
}

TEST_CASE("a packet more than a minute older than the grid takes the grid back and is counted") {
  PacketClock clock;
  clock.Advance(100 * kSecond);
  CHECK_FALSE(clock.Advance(40 * kSecond - 1));
  CHECK(clock.grid_ns() == 39 * kSecond);
  CHECK(clock.latest_ns() == 40 * kSecond - 1);
  CHECK(clock.steps_back() == 1);
  CHECK(clock.Advance(40 * kSecond));
}

TEST_CASE("seconds before the epoch are rounded down, too") {
  PacketClock clock;
  clock.Advance(-2 * kSecond + 1);
  CHECK(clock.grid_ns() == -2 * kSecond);
  CHECK(clock.Advance(-1 * kSecond));
  CHECK(clock.Advance(1));
  CHECK(clock.grid_ns() == 0);
}

TEST_CASE("times at both ends of the range do not overflow") {
  PacketClock clock;
  CHECK_FALSE(clock.Advance(std::numeric_limits<int64_t>::min()));
  CHECK(clock.Advance(std::numeric_limits<int64_t>::max()));
  CHECK(clock.grid_ns() == 9223372036 * kSecond);
  CHECK_FALSE(clock.Advance(std::numeric_limits<int64_t>::min()));
  CHECK(clock.steps_back() == 1);
}

}  // namespace plugin
