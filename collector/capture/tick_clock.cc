#include "collector/capture/tick_clock.h"

#include <limits>

namespace capture {
namespace {

// 2^64 ticks of a second each are below 2^94 nanoseconds.
__extension__ using Wide = __int128;

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

uint64_t PowerOfTen(int exponent) {
  uint64_t power = 1;
  for (int i = 0; i < exponent; ++i) power *= 10;
  return power;
}

}  // namespace

TickClock::TickClock(uint8_t resolution, int64_t offset_seconds) : offset(offset_seconds) {
  constexpr uint8_t kPowerOfTwo = 0x80;
  constexpr int kNano = 9;
  constexpr int kMostDigits = 19;  // the largest power of ten in 64 bits
  const int exponent = resolution & ~kPowerOfTwo;
  if ((resolution & kPowerOfTwo) != 0) {
    multiplier = kNanosecondsPerSecond;
    shift = exponent;
  } else if (exponent <= kNano) {
    multiplier = PowerOfTen(kNano - exponent);
  } else if (exponent - kNano <= kMostDigits) {
    multiplier = 1;
    divisor = PowerOfTen(exponent - kNano);
  } else {
    multiplier = 0;  // all 64-bit time stamps are within the first nanosecond
  }
}

int64_t TickClock::Nanoseconds(uint64_t ticks) const {
  if (divisor != 1) ticks /= divisor;
  const Wide since_offset = Wide{ticks} * multiplier >> shift;
  const Wide time = since_offset + Wide{offset} * kNanosecondsPerSecond;
  if (time > std::numeric_limits<int64_t>::max()) return std::numeric_limits<int64_t>::max();
  if (time < std::numeric_limits<int64_t>::min()) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(time);
}

}  // namespace capture
