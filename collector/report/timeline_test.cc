#include "collector/report/timeline.h"

#include <doctest/doctest.h>

#include <limits>
#include <random>

#include "collector/output/exchange_for_tests.h"

namespace report {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kBegin = 1'700'000'000 * kSecond;

void AddAt(Timeline* timeline, int64_t time_ns, int result_code = 0, int64_t rtt_us = 1000) {
  output::ExchangeForTests exchange;
  exchange.query_time_ns = time_ns;
  exchange.result_code = result_code;
  exchange.rtt_us = rtt_us;
  timeline->Add(exchange);
}

uint64_t TotalOf(const Timeline& timeline) {
  uint64_t total = 0;
  for (const Timeline::Span& span : timeline.Spans()) total += span.Queries();
  return total;
}

TEST_CASE("what came of a query has a name") {
  output::ExchangeForTests exchange;
  const auto name_with = [&](int code) {
    exchange.result_code = code;
    return std::string(OutcomeName(OutcomeOf(exchange)));
  };
  CHECK(name_with(0) == "NOERROR");
  CHECK(name_with(1) == "FORMERR");
  CHECK(name_with(2) == "SERVFAIL");
  CHECK(name_with(3) == "NXDOMAIN");
  CHECK(name_with(4) == "NOTIMP");
  CHECK(name_with(5) == "REFUSED");
  CHECK(name_with(9) == "other");
  exchange.status = plugin::Status::kMalformed;
  CHECK(name_with(-2) == "malformed");
  exchange.status = plugin::Status::kTimeout;
  CHECK(name_with(-1) == "timed out");
  exchange.status = plugin::Status::kOpen;
  CHECK(name_with(-1) == "open");
}

TEST_CASE("queries count in the step that they were sent in") {
  Timeline timeline;
  AddAt(&timeline, kBegin);
  AddAt(&timeline, kBegin + 9'999'999, 3);
  AddAt(&timeline, kBegin + 30'000'000, 2, 7000);
  REQUIRE(timeline.Spans().size() == 4);
  CHECK(timeline.width_ns() == 10'000'000);
  CHECK(timeline.BeginOf(0) == kBegin);
  CHECK(timeline.Spans()[0].Queries() == 2);
  CHECK(timeline.Spans()[0].Failed() == 1);
  CHECK(timeline.Spans()[1].Queries() == 0);
  CHECK(timeline.Spans()[3].Count(Outcome::kServFail) == 1);
  CHECK(timeline.Spans()[3].times_us.max() == 7000);
}

TEST_CASE("time-outs and open queries have no response time") {
  Timeline timeline;
  output::ExchangeForTests exchange;
  exchange.TimeOut();
  timeline.Add(exchange);
  exchange.status = plugin::Status::kOpen;
  timeline.Add(exchange);
  const Timeline::Span& span = timeline.Spans().front();
  CHECK(span.Queries() == 2);
  CHECK(span.Answered() == 0);
  CHECK(span.Count(Outcome::kTimeout) == 1);
  CHECK(span.times_us.count() == 0);
}

TEST_CASE("steps get wider when there are too many, and lose nothing") {
  Timeline timeline(10);
  for (int64_t second = 0; second < 101; ++second)
    AddAt(&timeline, kBegin + second * kSecond, second % 2 == 0 ? 0 : 3);
  CHECK(timeline.width_ns() == 30 * kSecond);
  CHECK(timeline.Spans().size() == 5);
  CHECK(TotalOf(timeline) == 101);
  CHECK(timeline.BeginOf(0) <= kBegin);
  CHECK(timeline.BeginOf(0) % timeline.width_ns() == 0);
  CHECK(timeline.Spans()[1].Queries() == 30);
  CHECK(timeline.Spans()[1].Failed() == 15);
  CHECK(timeline.Spans()[1].times_us.count() == 30);
}

TEST_CASE("the order of exchanges does not matter") {
  std::mt19937_64 random(5);
  std::vector<int64_t> times(2000);
  for (int64_t& time : times) time = kBegin + static_cast<int64_t>(random() % 1'000'000) * 1'000'000;
  Timeline one(50), other(50);
  for (const int64_t time : times) AddAt(&one, time);
  std::shuffle(times.begin(), times.end(), random);
  for (const int64_t time : times) AddAt(&other, time);
  REQUIRE(one.Spans().size() == other.Spans().size());
  CHECK(one.BeginOf(0) == other.BeginOf(0));
  for (size_t i = 0; i < one.Spans().size(); ++i) CHECK(one.Spans()[i].counts == other.Spans()[i].counts);
}

TEST_CASE("the earliest and the latest instant there is fit into few steps") {
  Timeline timeline(20);
  AddAt(&timeline, std::numeric_limits<int64_t>::max());
  AddAt(&timeline, std::numeric_limits<int64_t>::min());
  AddAt(&timeline, 0);
  CHECK(timeline.Spans().size() <= 20);
  CHECK(TotalOf(timeline) == 3);
  CHECK(timeline.BeginOf(0) < 0);
  CHECK(timeline.BeginOf(timeline.Spans().size()) > 0);
}

TEST_CASE("before 1970, steps begin at round times too") {
  Timeline timeline;
  AddAt(&timeline, -1);
  CHECK(timeline.BeginOf(0) == -10'000'000);
}

TEST_CASE("each width is a multiple of the one before it") {
  for (int64_t width = 10'000'000; width < 2'000'000 * kSecond;) {
    const int64_t next = NextWidth(width);
    CHECK(next > width);
    CHECK(next % width == 0);
    width = next;
  }
}

}  // namespace
}  // namespace report
