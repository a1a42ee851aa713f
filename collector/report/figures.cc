#include "collector/report/figures.h"

#include <cmath>
#include <cstdio>

namespace report {
namespace {

constexpr const char* kThinSpace = "\u202f";  // narrow, no break

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

// Three significant digits of a number below 1000, without zeros behind the point.
std::string Short(double value) {
  std::string text = Fixed(value, value < 9.995 ? 2 : value < 99.95 ? 1 : 0);
  if (text.find('.') == std::string::npos) return text;
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

struct Unit {
  int64_t size;
  const char* name;
};

}  // namespace

std::string Grouped(uint64_t number) {
  const std::string digits = std::to_string(number);
  std::string text;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += kThinSpace;
    text += digits[i];
  }
  return text;
}

std::string Rounded(double number) {
  if (number >= 999.5) return Grouped(static_cast<uint64_t>(std::llround(number)));
  if (number > 0 && number < 0.995) return Fixed(number, 3);
  return Short(number);
}

std::string PercentText(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  return Fixed(100 * static_cast<double>(part) / static_cast<double>(whole), 1) + "\u00a0%";
}

std::string DurationText(int64_t microseconds) {
  const auto value = static_cast<double>(microseconds);
  if (value < 1000) return Short(value) + "\u00a0µs";
  if (value < 999500) return Short(value / 1e3) + "\u00a0ms";
  if (value < 999.5e6) return Short(value / 1e6) + "\u00a0s";
  return Grouped(static_cast<uint64_t>(value / 1e6)) + "\u00a0s";
}

std::string WidthText(int64_t nanoseconds) {
  static constexpr Unit kUnits[] = {{86'400'000'000'000, "d"}, {3'600'000'000'000, "h"}, {60'000'000'000, "min"},
                                    {1'000'000'000, "s"},      {1'000'000, "ms"},        {1, "ns"}};
  for (const Unit& unit : kUnits) {
    if (nanoseconds % unit.size == 0) {
      return Grouped(static_cast<uint64_t>(nanoseconds / unit.size)) + "\u00a0" + unit.name;
    }
  }
  return {};
}

}  // namespace report
