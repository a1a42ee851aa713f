#pragma once

#include <cstdint>
#include <string>

namespace report {

// Numbers as people read them.

// "1 234 567", with spaces that no line breaks at.
std::string Grouped(uint64_t number);

// With at least three significant digits: "0.004", "1.23", "12.3", "1 234".
std::string Rounded(double number);

// "66.7 %"; "-" of nothing.
std::string PercentText(uint64_t part, uint64_t whole);

// "870 µs", "1.23 ms", "4.5 s": three significant digits, in the unit that fits.
std::string DurationText(int64_t microseconds);

// How long a stretch of the clock is: "50 ms", "10 s", "5 min", "3 h", "2 d".
std::string WidthText(int64_t nanoseconds);

}  // namespace report
