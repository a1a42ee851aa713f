#include "collector/top/timeline.h"

#include <algorithm>

namespace top {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr size_t kSecondsKept = 10;
constexpr size_t kTensKept = 30;
constexpr size_t kSliceKeys = 512;
constexpr size_t kRunKeys = 4096;
constexpr size_t kSightKeys = 8192;

// Of a slice: each subject has two lists of this length, and one of those that are slow.
constexpr size_t MostKeys(size_t keys) { return kSubjects * (2 * keys + 64); }

// How many slices of ten seconds a window has.
constexpr std::array<size_t, kWindows> kTensOf = {0, 6, kTensKept, 0};

}  // namespace

const size_t Timeline::kMostKeys = (1 + kSecondsKept + kTensKept) * MostKeys(kSliceKeys) + MostKeys(kRunKeys);

Timeline::Timeline(int64_t now_ns)
    : begin_ns(now_ns), last_ns(now_ns), second(std::make_unique<Slice>(kSliceKeys)), run(kRunKeys) {}

void Timeline::Advance(int64_t now_ns) {
  last_ns = std::max(last_ns, now_ns);
  // After a long sleep (the program was stopped) the windows are empty: there is no need to walk through all of it.
  constexpr int64_t kAllWindows = kTensKept * 10;
  while (last_ns - begin_ns >= kSecond) {
    CloseSecond();
    const int64_t behind = (last_ns - begin_ns) / kSecond;
    if (behind <= 2 * kAllWindows) continue;
    const int64_t skipped = (behind - kAllWindows) / 10 * 10;
    closed += skipped;
    begin_ns += skipped * kSecond;
  }
}

void Timeline::CloseSecond() {
  run.Add(*second);
  seconds.push_front(std::move(second));
  if (seconds.size() > kSecondsKept) seconds.pop_back();
  second = std::make_unique<Slice>(kSliceKeys);
  begin_ns += kSecond;
  if (++closed % 10 == 0) CloseTenSeconds();
}

void Timeline::CloseTenSeconds() {
  auto ten = std::make_unique<Slice>(kSliceKeys);
  for (const SlicePointer& each : seconds) ten->Add(*each);
  tens.push_front(std::move(ten));
  if (tens.size() > kTensKept) tens.pop_back();
}

void Timeline::Add(const plugin::Exchange& exchange) {
  if (exchange.status != plugin::Status::kOpen) second->Add(exchange);
}

Timeline::Sight Timeline::Look(Window window) const {
  Sight sight{Slice(kSightKeys), 0};
  size_t single = window == Window::kTenSeconds ? seconds.size() : static_cast<size_t>(closed % 10);
  if (window == Window::kRun) {
    single = 0;
    sight.slice.Add(run);
    sight.seconds = static_cast<double>(closed);
  }
  const size_t ten = std::min(tens.size(), kTensOf[static_cast<size_t>(window)]);
  for (size_t i = 0; i < ten; ++i) sight.slice.Add(*tens[i]);
  for (size_t i = 0; i < single; ++i) sight.slice.Add(*seconds[i]);
  sight.slice.Add(*second);
  sight.seconds += static_cast<double>(10 * ten + single) + static_cast<double>(last_ns - begin_ns) / 1e9;
  sight.seconds = std::max(sight.seconds, 1.0);
  return sight;
}

size_t Timeline::Keys() const {
  size_t keys = second->Keys() + run.Keys();
  for (const SlicePointer& each : seconds) keys += each->Keys();
  for (const SlicePointer& each : tens) keys += each->Keys();
  return keys;
}

}  // namespace top
