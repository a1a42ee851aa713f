#include "collector/top/timeline.h"

#include <doctest/doctest.h>

#include "collector/top/exchanges_for_tests.h"

namespace top {
namespace {

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kStart = 7777 * kSecond + 123456789;

uint64_t Seen(const Timeline& timeline, Window window) { return timeline.Look(window).slice.all().Ended(); }

TEST_CASE("an exchange leaves one window after the other, and the run never") {
  Timeline timeline(kStart);
  Add(&timeline, {});
  timeline.Advance(kStart + 9 * kSecond);
  CHECK(Seen(timeline, Window::kTenSeconds) == 1);
  timeline.Advance(kStart + 12 * kSecond);
  CHECK(Seen(timeline, Window::kTenSeconds) == 0);
  CHECK(Seen(timeline, Window::kMinute) == 1);
  timeline.Advance(kStart + 59 * kSecond);
  CHECK(Seen(timeline, Window::kMinute) == 1);
  timeline.Advance(kStart + 70 * kSecond);
  CHECK(Seen(timeline, Window::kMinute) == 0);
  timeline.Advance(kStart + 299 * kSecond);
  CHECK(Seen(timeline, Window::kFiveMinutes) == 1);
  timeline.Advance(kStart + 310 * kSecond);
  CHECK(Seen(timeline, Window::kFiveMinutes) == 0);
  CHECK(Seen(timeline, Window::kRun) == 1);
}

TEST_CASE("nothing is counted twice and nothing is missed in any window at any time") {
  Timeline timeline(kStart);
  for (int second = 0; second < 400; ++second) {
    timeline.Advance(kStart + second * kSecond + kSecond / 2);
    Add(&timeline, {});
    for (const Window window : {Window::kTenSeconds, Window::kMinute, Window::kFiveMinutes, Window::kRun}) {
      const Timeline::Sight sight = timeline.Look(window);
      // One a second: as many as the window has seconds, the one at hand included.
      CHECK(sight.slice.all().Ended() == static_cast<uint64_t>(sight.seconds + 0.6));
    }
  }
}

TEST_CASE("windows are as long as they say, once there was time enough") {
  Timeline timeline(kStart);
  timeline.Advance(kStart + 1234 * kSecond + kSecond / 4);
  CHECK(timeline.Look(Window::kTenSeconds).seconds == doctest::Approx(10.25));
  CHECK(timeline.Look(Window::kMinute).seconds == doctest::Approx(64.25));
  CHECK(timeline.Look(Window::kFiveMinutes).seconds == doctest::Approx(304.25));
  CHECK(timeline.Look(Window::kRun).seconds == doctest::Approx(1234.25));
}

TEST_CASE("a rate is not extrapolated from the first moments") {
  const Timeline timeline(kStart);
  CHECK(timeline.Look(Window::kMinute).seconds == 1);
}

TEST_CASE("after a year's sleep the windows are empty, and the run is a year long") {
  Timeline timeline(kStart);
  Add(&timeline, {});
  constexpr int64_t kYear = 365 * 86400;
  timeline.Advance(kStart + kYear * kSecond);
  CHECK(Seen(timeline, Window::kFiveMinutes) == 0);
  CHECK(Seen(timeline, Window::kRun) == 1);
  CHECK(timeline.Look(Window::kRun).seconds == doctest::Approx(static_cast<double>(kYear)));
}

TEST_CASE("a clock that seems to go back changes nothing") {
  Timeline timeline(kStart);
  timeline.Advance(kStart + 5 * kSecond);
  timeline.Advance(kStart);
  CHECK(timeline.Look(Window::kRun).seconds == doctest::Approx(5));
}

TEST_CASE("what is still open at the end of a run is not counted") {
  Timeline timeline(kStart);
  output::ExchangeForTests exchange;
  exchange.status = plugin::Status::kOpen;
  timeline.Add(exchange);
  CHECK(Seen(timeline, Window::kRun) == 0);
}

TEST_CASE("memory is bounded whatever names, clients and servers come") {
  Timeline timeline(kStart);
  output::ExchangeForTests exchange;
  std::string name = output::Question("n0000000.example", 1);
  size_t most = 0;
  int64_t now = kStart;
  int number = 0;
  // More different ones in each slice than it keeps, for as long as the longest window.
  const auto come = [&](int seconds, int a_second) {
    for (int i = 0; i < seconds * a_second; ++i, ++number) {
      const std::string digits = std::to_string(1000000 + number);
      name.replace(2, digits.size(), digits);
      exchange.Ask(name);
      exchange.client_address = output::Ipv4(10, static_cast<uint8_t>(number >> 16),
                                             static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number));
      exchange.server_address = exchange.client_address;
      exchange.result_code = 3;
      timeline.Advance(now += kSecond / a_second);
      timeline.Add(exchange);
    }
    most = std::max(most, timeline.Keys());
  };
  come(300, 60);
  come(11, 600);
  CHECK(most <= Timeline::kMostKeys);
  CHECK(most > Timeline::kMostKeys * 9 / 10);
  CHECK(Seen(timeline, Window::kRun) == static_cast<uint64_t>(number));
}

}  // namespace
}  // namespace top
