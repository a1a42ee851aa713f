#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace cli {

// How far a run is.
struct ProgressFigures {
  double seconds = 0;  // since the run began
  uint64_t bytes_read = 0;
  uint64_t bytes_total = 0;  // 0 where unknown
  uint64_t packets = 0;
};

// One line of at most `width` characters: a bar, bytes, packets per second, time left; without a total only what is
// known.
std::string ProgressLine(const ProgressFigures& figures, size_t width);

// Keeps such a line at the bottom of a terminal on standard error. Silent where standard error is no terminal, and
// in runs shorter than a second.
class Progress {
 public:
  explicit Progress(bool wanted);
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // True when it is time to call Show: at most five times a second. Cheap.
  bool Due();
  void Show(ProgressFigures figures);

  // Takes the line away, before something else is written there.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  bool enabled;
  bool shown = false;
  Clock::time_point begin = Clock::now();
  Clock::time_point next = begin + std::chrono::seconds(1);
};

}  // namespace cli
