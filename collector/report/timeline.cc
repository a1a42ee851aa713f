#include "collector/report/timeline.h"

#include <algorithm>
#include <utility>

#include "host/requests.h"

namespace report {
namespace {

constexpr int64_t kMillisecond = 1'000'000;
constexpr int64_t kSecond = 1000 * kMillisecond;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kWidths[] = {10 * kMillisecond,
                               50 * kMillisecond,
                               100 * kMillisecond,
                               500 * kMillisecond,
                               kSecond,
                               5 * kSecond,
                               10 * kSecond,
                               30 * kSecond,
                               kMinute,
                               5 * kMinute,
                               10 * kMinute,
                               30 * kMinute,
                               kHour,
                               3 * kHour,
                               6 * kHour,
                               12 * kHour,
                               24 * kHour};

// Times before 1825 and after 2115 count as these: the begin and the end of their span have to fit into 64 bits.
constexpr int64_t kFarthest = 4'600'000'000 * kSecond;

int64_t Floor(int64_t value, int64_t divisor) {
  const int64_t quotient = value / divisor;
  return value % divisor < 0 ? quotient - 1 : quotient;
}

constexpr std::pair<int, Outcome> kCodes[] = {{0, Outcome::kNoError},  {1, Outcome::kFormErr},
                                              {2, Outcome::kServFail}, {3, Outcome::kNxDomain},
                                              {4, Outcome::kNotImp},   {5, Outcome::kRefused}};

constexpr std::array<const char*, kOutcomes> kNames = {"NOERROR", "NXDOMAIN", "SERVFAIL",  "REFUSED",   "FORMERR",
                                                       "NOTIMP",  "other",    "malformed", "timed out", "open"};

}  // namespace

Outcome OutcomeOf(const plugin::Exchange& exchange) {
  if (exchange.status == plugin::Status::kOpen) return Outcome::kOpen;
  if (exchange.status == plugin::Status::kTimeout) return Outcome::kTimeout;
  if (exchange.status == plugin::Status::kMalformed) return Outcome::kMalformed;
  const auto* const known = std::find_if(std::begin(kCodes), std::end(kCodes),
                                         [&](const auto& code) { return code.first == exchange.result_code; });
  return known == std::end(kCodes) ? Outcome::kOtherCode : known->second;
}

const char* OutcomeName(Outcome outcome) { return kNames[static_cast<size_t>(outcome)]; }

int64_t NextWidth(int64_t width_ns) {
  const auto* const next = std::upper_bound(std::begin(kWidths), std::end(kWidths), width_ns);
  return next == std::end(kWidths) ? 2 * width_ns : *next;
}

uint64_t Timeline::Span::Queries() const { return Answered() + Count(Outcome::kTimeout) + Count(Outcome::kOpen); }

uint64_t Timeline::Span::Answered() const { return Failed() + Count(Outcome::kNoError); }

uint64_t Timeline::Span::Failed() const {
  uint64_t failed = 0;
  for (size_t i = 0; i < kOutcomes; ++i) failed += IsFailure(static_cast<Outcome>(i)) ? counts[i] : 0;
  return failed;
}

void Timeline::Span::Add(const Span& other) {
  for (size_t i = 0; i < kOutcomes; ++i) counts[i] += other.counts[i];
  times_us.Add(other.times_us);
}

void Timeline::Add(const plugin::Exchange& exchange) {
  const Outcome outcome = OutcomeOf(exchange);
  Span* const span = At(std::clamp(exchange.query_time_ns, -kFarthest, kFarthest));
  ++span->counts[static_cast<size_t>(outcome)];
  if (IsAnswer(outcome)) span->times_us.Add(exchange.rtt_us);
}

Timeline::Span* Timeline::At(int64_t time_ns) {
  while (!Fits(Floor(time_ns, width))) Widen();
  const int64_t index = Floor(time_ns, width);
  if (spans.empty()) first = index;
  for (; first > index; --first) spans.emplace_front();
  while (index - first >= static_cast<int64_t>(spans.size())) spans.emplace_back();
  return &spans[static_cast<size_t>(index - first)];
}

bool Timeline::Fits(int64_t index) const {
  if (spans.empty()) return true;
  const int64_t last = std::max(index, first + static_cast<int64_t>(spans.size()) - 1);
  return last - std::min(index, first) < static_cast<int64_t>(most);
}

void Timeline::Widen() {
  const int64_t wider = NextWidth(width);
  const int64_t factor = wider / width;
  std::deque<Span> merged;
  const int64_t merged_first = Floor(first, factor);
  for (size_t i = 0; i < spans.size(); ++i) {
    const auto at = static_cast<size_t>(Floor(first + static_cast<int64_t>(i), factor) - merged_first);
    if (at == merged.size()) merged.emplace_back();
    merged[at].Add(spans[i]);
  }
  spans = std::move(merged);
  first = merged_first;
  width = wider;
}

}  // namespace report
