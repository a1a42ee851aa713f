#include "collector/report/plot.h"

#include <doctest/doctest.h>

#include <cstdint>

namespace report {
namespace {

constexpr int64_t kSecond = 1'000'000'000;

std::string LabelsOf(const std::vector<Tick>& ticks) {
  std::string labels;
  for (const Tick& tick : ticks) labels += tick.label + "|";
  return labels;
}

TEST_CASE("bars stand on top of each other and leave nothing where there is nothing") {
  CHECK(StackedBars({{"a", {0.5, 0}}, {"b", {0.25, 1}}}) ==
        R"(<path class="a" d="M0 1000.0V500.0h1V1000.0z"/>)"
        R"(<path class="b" d="M0 500.0V250.0h1V500.0zM1 1000.0V0.0h1V1000.0z"/>)");
  CHECK(StackedBars({{"a", {0, 0}}}).empty());
}

TEST_CASE("a line has gaps where there is no value") {
  CHECK(StepLine("p", {0.5, 1, std::nullopt, 0}) == R"(<path class="line p" d="M0 500.0h1V0.0h1M3 1000.0h1"/>)");
}

TEST_CASE("steps of an axis are round and hold what is shown") {
  CHECK(RoundSteps(0) == std::vector<double>{0, 1});
  CHECK(RoundSteps(1) == std::vector<double>{0, 0.5, 1});
  CHECK(RoundSteps(17) == std::vector<double>{0, 5, 10, 15, 20});
  CHECK(RoundSteps(30000) == std::vector<double>{0, 10000, 20000, 30000});
  for (double most = 0.001; most < 1e12; most *= 1.7) {
    const auto steps = RoundSteps(most);
    CHECK(steps.back() >= most * 0.999999);
    CHECK(steps.size() >= 2);
    CHECK(steps.size() <= 6);
  }
}

TEST_CASE("instants are labelled as finely as they are apart") {
  const int64_t noon = 1'767'268'800 * kSecond;  // 2026-01-01 12:00 UTC
  CHECK(LabelsOf(TimeTicks(noon, noon + 600 * kSecond)) == "12:00|12:05|");
  CHECK(LabelsOf(TimeTicks(noon, noon + 4 * kSecond)) == "12:00:00|12:00:01|12:00:02|12:00:03|");
  CHECK(LabelsOf(TimeTicks(noon, noon + kSecond / 4)).find("12:00:00.05|") != std::string::npos);
  CHECK(LabelsOf(TimeTicks(noon, noon + 24 * 3600 * kSecond)) == "12:00|18:00|2026-01-02|06:00|");
  CHECK(TimeTicks(noon - 1, noon + 600 * kSecond)[0].at > 0);
}

TEST_CASE("there is an instant's place for every range of time, and few of them") {
  for (int64_t range = 10'000'000; range < INT64_MAX / 2; range += range / 3) {
    CHECK(TimeTicks(-range, range).size() <= 6);
  }
}

TEST_CASE("a logarithmic axis holds its values between powers of ten") {
  const LogAxis axis = LogAxisFor(150, 74240);
  CHECK(axis.from == 2);
  CHECK(axis.to == 5);
  CHECK(axis.At(100) == doctest::Approx(0));
  CHECK(axis.At(1000) == doctest::Approx(1.0 / 3));
  CHECK(axis.At(0) == 0);
  CHECK(axis.Ticks().size() == 4);
  CHECK(LogAxisFor(0, 0).to > LogAxisFor(0, 0).from);
  CHECK(LogAxisFor(1000, 1000).At(1000) == 0);
  CHECK(LogAxisFor(1000, 2000).Ticks().size() == 4);  // 1, 2, 5 and 10 ms
}

TEST_CASE("a plot says what it is and where its numbers are, and labels cannot break out of it") {
  Plot plot;
  plot.label = "A \"plot\"";
  plot.table = "numbers";
  plot.columns = 2;
  plot.shapes = StackedBars({{"a", {1, 1}}});
  plot.across = {{0.5, "<x>"}};
  plot.marks = {{0.25, "median"}};
  const std::string svg = plot.Svg();
  CHECK(svg.find(R"(role="img")") != svg.npos);
  CHECK(svg.find(R"(aria-label="A &quot;plot&quot;")") != svg.npos);
  CHECK(svg.find(R"(data-table="numbers")") != svg.npos);
  CHECK(svg.find(R"(viewBox="0 0 2 1000")") != svg.npos);
  CHECK(svg.find("&lt;x&gt;") != svg.npos);
  CHECK(svg.find("style=") == svg.npos);  // the page's policy would refuse it
}

}  // namespace
}  // namespace report
