#include "collector/output/histogram.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace output {
namespace {

TEST_CASE("without values everything is zero") {
  const Histogram histogram;
  CHECK(histogram.count() == 0);
  CHECK(histogram.max() == 0);
  CHECK(histogram.Quantile(0.5) == 0);
}

TEST_CASE("small values are exact") {
  Histogram histogram;
  for (int value = 0; value < 128; ++value) histogram.Add(value);
  CHECK(histogram.count() == 128);
  CHECK(histogram.Quantile(0) == 0);
  CHECK(histogram.Quantile(0.5) == 63);
  CHECK(histogram.Quantile(1) == 127);
}

TEST_CASE("any single value comes back within one percent") {
  for (int64_t value = 1; value < std::numeric_limits<int64_t>::max() / 3; value += value / 50 + 1) {
    Histogram histogram;
    histogram.Add(value);
    histogram.Add(std::numeric_limits<int64_t>::max());
    CAPTURE(value);
    const auto found = static_cast<double>(histogram.Quantile(0.5));
    CHECK(std::fabs(found - static_cast<double>(value)) <= 0.01 * static_cast<double>(value));
  }
}

TEST_CASE("quantiles of many values are within one percent of the sorted list's") {
  std::mt19937_64 random(7);
  std::lognormal_distribution<double> times(8, 2);
  std::vector<int64_t> values(20001);
  Histogram histogram;
  for (int64_t& value : values) histogram.Add(value = static_cast<int64_t>(times(random)));
  std::sort(values.begin(), values.end());
  for (const double share : {0.1, 0.5, 0.9, 0.95, 0.99, 0.999}) {
    const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(values.size())));
    const auto expected = static_cast<double>(values[rank - 1]);
    CHECK(std::fabs(static_cast<double>(histogram.Quantile(share)) - expected) <= 0.01 * expected);
  }
  CHECK(histogram.max() == values.back());
  CHECK(histogram.Quantile(1) <= histogram.max());
}

TEST_CASE("no quantile exceeds the largest value") {
  Histogram histogram;
  histogram.Add(1000000);
  CHECK(histogram.Quantile(1) <= 1000000);
  CHECK(histogram.Quantile(1) >= 990000);
}

TEST_CASE("a negative value counts as none at all") {
  Histogram histogram;
  histogram.Add(-5);
  CHECK(histogram.count() == 1);
  CHECK(histogram.Quantile(0.5) == 0);
  CHECK(histogram.max() == 0);
}

TEST_CASE("the largest value there is has a place") {
  Histogram histogram;
  histogram.Add(std::numeric_limits<int64_t>::max());
  CHECK(histogram.max() == std::numeric_limits<int64_t>::max());
  CHECK(histogram.Quantile(0.5) > std::numeric_limits<int64_t>::max() / 100 * 99);
}

TEST_CASE("the buckets hold every value once, in order") {
  Histogram histogram;
  for (const int64_t value : {7, 7, 3, 100000, 100001}) histogram.Add(value);
  std::vector<std::pair<int64_t, uint64_t>> seen;
  histogram.ForEach([&](int64_t value, uint64_t count) { seen.emplace_back(value, count); });
  REQUIRE(seen.size() == 3);
  CHECK(seen[0] == std::pair<int64_t, uint64_t>(3, 1));
  CHECK(seen[1] == std::pair<int64_t, uint64_t>(7, 2));
  CHECK(seen[2].second == 2);
  CHECK(seen[2].first == histogram.Quantile(1));
}

TEST_CASE("a value is shown as the middle of its bucket") {
  const auto shown = [](int64_t value) {
    Histogram histogram;
    histogram.Add(value);
    histogram.Add(100000000);
    return histogram.Quantile(0.5);
  };
  CHECK(shown(127) == 127);
  CHECK(shown(128) == 129);
  CHECK(shown(131) == 131);
  CHECK(shown(255) == 255);
  CHECK(shown(256) == 258);
  CHECK(shown(1000000) == 1003520);
}

TEST_CASE("two histograms together are as one") {
  Histogram one, other, both;
  for (int value = 1; value < 1000; ++value) {
    (value % 3 == 0 ? one : other).Add(value * value);
    both.Add(value * value);
  }
  one.Add(other);
  CHECK(one.count() == both.count());
  CHECK(one.max() == both.max());
  for (double share = 0; share <= 1; share += 0.01) CHECK(one.Quantile(share) == both.Quantile(share));
}

}  // namespace
}  // namespace output
