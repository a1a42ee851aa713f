#pragma once

#include <chrono>
#include <cstdint>

namespace cli {

// Nanoseconds since the Unix epoch, as packets have them. It may be set back.
inline int64_t WallClock() {
  return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace cli
