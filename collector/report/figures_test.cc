#include "collector/report/figures.h"

#include <doctest/doctest.h>

#include <limits>

namespace report {
namespace {

// Spaces that do not break, as plain ones.
std::string Plain(std::string text) {
  for (const std::string space : {"\u202f", "\u00a0"}) {
    for (size_t at; (at = text.find(space)) != text.npos;) text.replace(at, space.size(), " ");
  }
  return text;
}

TEST_CASE("digits stand in groups of three") {
  CHECK(Grouped(0) == "0");
  CHECK(Grouped(999) == "999");
  CHECK(Plain(Grouped(1000)) == "1 000");
  CHECK(Plain(Grouped(1234567)) == "1 234 567");
  CHECK(Plain(Grouped(std::numeric_limits<uint64_t>::max())) == "18 446 744 073 709 551 615");
}

TEST_CASE("numbers are rounded to what one reads") {
  CHECK(Rounded(0) == "0");
  CHECK(Rounded(0.0042) == "0.004");
  CHECK(Rounded(1.5) == "1.5");
  CHECK(Rounded(12.34) == "12.3");
  CHECK(Rounded(345.6) == "346");
  CHECK(Plain(Rounded(1234.5)) == "1 235");
}

TEST_CASE("a share of nothing is none") {
  CHECK(PercentText(0, 0) == "-");
  CHECK(Plain(PercentText(2, 3)) == "66.7 %");
}

TEST_CASE("durations have three digits in the unit that fits") {
  CHECK(Plain(DurationText(0)) == "0 µs");
  CHECK(Plain(DurationText(870)) == "870 µs");
  CHECK(Plain(DurationText(1000)) == "1 ms");
  CHECK(Plain(DurationText(1234)) == "1.23 ms");
  CHECK(Plain(DurationText(23936)) == "23.9 ms");
  CHECK(Plain(DurationText(999499)) == "999 ms");
  CHECK(Plain(DurationText(999600)) == "1 s");
  CHECK(Plain(DurationText(4500000)) == "4.5 s");
  CHECK(Plain(DurationText(3600000000)) == "3 600 s");
}

TEST_CASE("steps are told in the largest unit that they are a multiple of") {
  CHECK(Plain(WidthText(50'000'000)) == "50 ms");
  CHECK(Plain(WidthText(30'000'000'000)) == "30 s");
  CHECK(Plain(WidthText(300'000'000'000)) == "5 min");
  CHECK(Plain(WidthText(10'800'000'000'000)) == "3 h");
  CHECK(Plain(WidthText(172'800'000'000'000)) == "2 d");
}

}  // namespace
}  // namespace report
