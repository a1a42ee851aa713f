#pragma once

#include <cstdint>

#include "host/timestamp.h"

namespace plugin {

// The instant in whole microseconds, rounded down.
Microtime ToMicrotime(int64_t time_ns);

// A clock that the packets of a capture move, on a grid of whole seconds. What hangs on the grid depends on the
// packets' times alone, and not on how the input was cut into files or reads.
class PacketClock {
 public:
  // Packets that are older than the grid by more than this were stamped by a clock that was set back.
  static constexpr int64_t kMaxDisorderSeconds = 60;

  // Moves the clock to a packet's time. True when the packet crossed the next grid second, one or many. The first
  // packet only sets the grid. A packet of a clock that was set back takes the grid with it and crosses nothing.
  bool Advance(int64_t now_ns);

  bool started() const { return running; }
  int64_t grid_ns() const;                       // the second crossed last
  int64_t latest_ns() const { return latest; }   // the newest packet since the clock was last set back
  uint64_t steps_back() const { return steps; }  // packets that took the grid back

 private:
  bool running = false;
  int64_t grid = 0;  // seconds since the Unix epoch
  int64_t latest = 0;
  uint64_t steps = 0;
};

}  // namespace plugin
