#include "collector/plugin/packet_clock.h"

#include <algorithm>

namespace plugin {
namespace {

constexpr int64_t kPerSecond = 1000000000;
constexpr int64_t kPerMicrosecond = 1000;

int64_t FloorDivide(int64_t dividend, int64_t divisor) {
  return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

}  // namespace

Microtime ToMicrotime(int64_t time_ns) { return {FloorDivide(time_ns, kPerMicrosecond)}; }

bool PacketClock::Advance(int64_t now_ns) {
  const int64_t second = FloorDivide(now_ns, kPerSecond);
  const bool set_back = running && second < grid - kMaxDisorderSeconds;
  if (!running || set_back) {
    if (set_back) ++steps;
    running = true;
    grid = second;
    latest = now_ns;
    return false;
  }
  latest = std::max(latest, now_ns);
  if (second <= grid) return false;
  grid = second;
  return true;
}

int64_t PacketClock::grid_ns() const { return grid * kPerSecond; }

}  // namespace plugin
