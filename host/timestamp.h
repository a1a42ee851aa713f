#pragma once

#include <compare>
#include <cstdint>

// A difference between two instants, in ticks of 1/TicksPerSecond seconds. Signed.
template <int64_t TicksPerSecond>
struct TimeDelta {
  int64_t ticks = 0;

  friend auto operator<=>(TimeDelta, TimeDelta) = default;
};

// An instant, in ticks of 1/TicksPerSecond seconds since the Unix epoch. Signed. Trivially copyable and one
// word wide, so that it crosses the plug-in boundary as a plain 64-bit value.
template <int64_t TicksPerSecond>
struct Timestamp {
  int64_t ticks = 0;

  friend auto operator<=>(Timestamp, Timestamp) = default;

  // Wraps instead of overflowing: clocks of captured packets may hold anything.
  friend TimeDelta<TicksPerSecond> operator-(Timestamp later, Timestamp earlier) {
    return {static_cast<int64_t>(static_cast<uint64_t>(later.ticks) - static_cast<uint64_t>(earlier.ticks))};
  }
  friend Timestamp operator-(Timestamp instant, TimeDelta<TicksPerSecond> delta) {
    return {static_cast<int64_t>(static_cast<uint64_t>(instant.ticks) - static_cast<uint64_t>(delta.ticks))};
  }
};

// Microseconds, the only resolution that crosses the boundary.
using Microtime = Timestamp<1000000>;
using Microdelta = TimeDelta<1000000>;
