#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>

#include "collector/plugin/exchange.h"
#include "collector/top/slice.h"

namespace top {

// How far back the screen looks.
enum class Window : uint8_t { kTenSeconds, kMinute, kFiveMinutes, kRun };
inline constexpr size_t kWindows = 4;

// What came of the exchanges of the last seconds, of the last minutes and of the whole run. An exchange counts when
// it is over. Time is cut into slices of a second, ten of them into one of ten seconds; a window is made of whole
// slices and of the second that has begun, so that a minute is one of 60 to 70 seconds.
class Timeline {
 public:
  explicit Timeline(int64_t now_ns);

  // Moves time on; `now_ns` is of a clock that is never set back. Cheap where no second is over.
  void Advance(int64_t now_ns);

  // Exchanges that are open at the end of a run came to nothing yet, and are left out.
  void Add(const plugin::Exchange& exchange);

  struct Sight {
    Slice slice;
    double seconds;  // that the slice is of, 1 at least
  };
  Sight Look(Window window) const;

  // Keys that are held altogether; kMostKeys at most, whatever comes.
  size_t Keys() const;
  static const size_t kMostKeys;

 private:
  using SlicePointer = std::unique_ptr<Slice>;

  void CloseSecond();
  void CloseTenSeconds();

  int64_t begin_ns;                  // of the second at hand
  int64_t last_ns;                   // the newest that is known
  int64_t closed = 0;                // seconds that are over
  SlicePointer second;               // the one at hand
  std::deque<SlicePointer> seconds;  // the newest first
  std::deque<SlicePointer> tens;     // the newest first
  Slice run;                         // all seconds that are over
};

}  // namespace top
