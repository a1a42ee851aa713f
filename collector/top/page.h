#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collector/top/timeline.h"
#include "collector/top/view.h"

namespace top {

struct Size {
  size_t width = 80;
  size_t height = 24;
};

enum class Look : uint8_t { kPlain, kBar, kTitle, kAlarm };

// One line of the screen.
struct Line {
  std::string text;  // printable ASCII, whatever names are made of
  Look look = Look::kPlain;
};

// What the run knows besides exchanges.
struct Surroundings {
  std::string interfaces;  // "eth0 eth1"
  int64_t time_ns = 0;     // of day, since the Unix epoch
  uint64_t packets = 0;    // since the run began
  uint64_t dropped = 0;    // of these, by the kernel or an interface
};

// The screen as lines: at most `height` of them, none longer than `width`.
std::vector<Line> Page(const Timeline::Sight& sight, const View& view, const Surroundings& around, Size size);

}  // namespace top
