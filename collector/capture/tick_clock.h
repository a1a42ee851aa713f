#pragma once

#include <cstdint>

namespace capture {

// The clock of a pcapng interface: turns its time stamps into nanoseconds since the Unix epoch.
class TickClock {
 public:
  // Microseconds, which is what an interface without options has.
  TickClock() = default;

  // `resolution` as in if_tsresol: ticks a second as a power of ten, or of two where the top bit is set.
  // `offset_seconds` as in if_tsoffset.
  TickClock(uint8_t resolution, int64_t offset_seconds);

  // Rounded down. A time that 64 bits of nanoseconds cannot hold becomes the nearest that they can.
  int64_t Nanoseconds(uint64_t ticks) const;

 private:
  uint64_t divisor = 1;        // ticks a nanosecond, where there are several
  uint64_t multiplier = 1000;  // nanoseconds a tick, or a second's where `shift` divides by ticks a second
  int shift = 0;
  int64_t offset = 0;  // seconds
};

}  // namespace capture
