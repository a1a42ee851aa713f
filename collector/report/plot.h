#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace report {

// Plots as SVG. Shapes stretch with the page; texts and lines keep their size, so that one plot suits a wide screen
// and a phone. Positions across run from 0 on the left to 1 on the right, heights from 0 at the bottom to 1 on top.

struct Tick {
  double at = 0;
  std::string label;
};

// A line across the plot's height, at a value worth knowing.
struct Mark {
  double at = 0;
  std::string label;
};

struct Plot {
  std::string_view label;  // for people who do not see it
  std::string_view table;  // id of the table whose rows are the plot's columns
  size_t columns = 0;
  std::string shapes;  // from StackedBars and StepLine
  std::vector<Tick> across;
  std::vector<Tick> up;
  std::vector<Mark> marks;
  int height = 180;  // of the shapes, in pixels

  std::string Svg() const;
};

// One path for each layer, the first at the bottom; layers[i][column] is a height.
struct Layer {
  std::string_view css_class;
  std::vector<double> heights;
};
std::string StackedBars(const std::vector<Layer>& layers);

// A line of one step for each column, with gaps where there is no value.
std::string StepLine(std::string_view css_class, const std::vector<std::optional<double>>& heights);

// A plot of one layer without any text, for a table's cell.
std::string Sparkline(std::string_view css_class, const std::vector<double>& heights);

// Round numbers from 0 up to the first that is not below `most`: the axis's end is the last.
std::vector<double> RoundSteps(double most);

// Instants at round times within [begin, end), and how they are labelled in UTC.
std::vector<Tick> TimeTicks(int64_t begin_ns, int64_t end_ns);

// The place of microseconds on a logarithmic axis between two powers of ten.
struct LogAxis {
  int from = 0;  // 10^from microseconds
  int to = 1;

  double At(double microseconds) const;
  std::vector<Tick> Ticks() const;  // at powers of ten; where these are few, at 2 and 5 as well
};

// An axis that holds all of [least, most] microseconds.
LogAxis LogAxisFor(int64_t least_us, int64_t most_us);

}  // namespace report
