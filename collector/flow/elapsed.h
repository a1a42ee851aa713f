#pragma once

#include <cstdint>

namespace flow {

// Whether more than `limit_ns` lie between the two times. Packet times come from files and clocks that step: a
// time far in the future has elapsed too, or what waits since then would wait until the clock comes back to it.
inline bool HasElapsed(int64_t since_ns, int64_t now_ns, int64_t limit_ns) {
  const uint64_t apart = since_ns < now_ns ? static_cast<uint64_t>(now_ns) - static_cast<uint64_t>(since_ns)
                                           : static_cast<uint64_t>(since_ns) - static_cast<uint64_t>(now_ns);
  return apart > static_cast<uint64_t>(limit_ns);
}

}  // namespace flow
