#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "collector/output/histogram.h"
#include "collector/plugin/exchange.h"

namespace report {

// What came of a query, in as many kinds as a reader can keep apart.
enum class Outcome : uint8_t {
  kNoError,
  kNxDomain,
  kServFail,
  kRefused,
  kFormErr,
  kNotImp,
  kOtherCode,
  kMalformed,  // an answer that could not be decoded
  kTimeout,
  kOpen,
};
inline constexpr size_t kOutcomes = 10;

Outcome OutcomeOf(const plugin::Exchange& exchange);
const char* OutcomeName(Outcome outcome);

// An answer, and one that says no.
inline bool IsAnswer(Outcome outcome) { return outcome < Outcome::kTimeout; }
inline bool IsFailure(Outcome outcome) { return IsAnswer(outcome) && outcome != Outcome::kNoError; }

// Queries by the time they were sent at, in spans of equal width that stand one behind the other without a gap.
// When more spans were needed than there may be, all become wider: memory stays bounded for a capture of any
// length, whatever the order of its exchanges.
class Timeline {
 public:
  struct Span {
    std::array<uint64_t, kOutcomes> counts{};
    output::Histogram times_us;  // response times of the answered ones

    uint64_t Queries() const;
    uint64_t Answered() const;
    uint64_t Failed() const;  // of the answered ones
    uint64_t Count(Outcome outcome) const { return counts[static_cast<size_t>(outcome)]; }
    void Add(const Span& other);
  };

  // At least four.
  explicit Timeline(size_t most_spans = 240) : most(most_spans) {}

  void Add(const plugin::Exchange& exchange);

  // From the first span with a query to the last.
  const std::deque<Span>& Spans() const { return spans; }
  int64_t width_ns() const { return width; }
  int64_t BeginOf(size_t span) const { return (first + static_cast<int64_t>(span)) * width; }

 private:
  Span* At(int64_t time_ns);
  bool Fits(int64_t index) const;
  void Widen();

  size_t most;
  int64_t width = 10'000'000;  // nanoseconds
  int64_t first = 0;           // the first span's number, counted in widths from 1970
  std::deque<Span> spans;
};

// The next larger of the widths that people think in: each is a multiple of the one before it.
int64_t NextWidth(int64_t width_ns);

}  // namespace report
