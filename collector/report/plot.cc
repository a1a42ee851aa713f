#include "collector/report/plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "collector/output/text.h"
#include "collector/report/figures.h"
#include "collector/report/html.h"
#include "collector/report/timeline.h"

namespace report {
namespace {

constexpr int kAbove = 22;     // pixels for the topmost grid line's label
constexpr int kForMark = 14;   // and for each mark's
constexpr int kBelow = 24;     // for the labels across
constexpr int kUnits = 1000;   // of height, inside shapes
constexpr int kMostTicks = 5;  // across: as many as a phone has room for

std::string Number(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}
std::string Percentage(double at) { return Number(100 * at, 3) + "%"; }

// Down, as SVG counts.
std::string Y(double height) { return Number(kUnits * (1 - std::clamp(height, 0.0, 1.0)), 1); }

// Shapes lie in an image of their own that stretches: a column is 1 wide, the whole height is 1000.
constexpr const char* kPlot =
    R"(<svg class="plot" role="img" width="100%" height="{{whole}}" aria-label="{{label}}" data-table="{{table}}">)"
    R"(<g class="grid">{{grid}}</g>)"
    R"(<svg x="0" y="{{top}}" width="100%" height="{{height}}" viewBox="0 0 {{columns}} 1000")"
    R"( preserveAspectRatio="none">{{shapes}}</svg>)"
    R"({{labels}}<g class="marks">{{marks}}</g></svg>)";
constexpr const char* kSparkline =
    R"(<svg class="spark" aria-hidden="true" viewBox="0 0 {{columns}} 1000" preserveAspectRatio="none">)"
    R"({{shapes}}</svg>)";

// Labels near the edges stay inside.
const char* Anchor(double at, double edge) { return at < edge ? "start" : at > 1 - edge ? "end" : "middle"; }

std::string Text(const std::string& x, int y, const char* anchor, std::string_view text) {
  return "<text x=\"" + x + "\" y=\"" + std::to_string(y) + "\" text-anchor=\"" + anchor + "\">" + Escaped(text) +
         "</text>";
}

std::string Line(const std::string& x1, const std::string& x2, int y1, int y2) {
  return "<line x1=\"" + x1 + "\" x2=\"" + x2 + "\" y1=\"" + std::to_string(y1) + "\" y2=\"" + std::to_string(y2) +
         "\"/>";
}

// Of instants that may be centuries apart.
double Distance(int64_t from_ns, int64_t to_ns) {
  return static_cast<double>(static_cast<uint64_t>(to_ns) - static_cast<uint64_t>(from_ns));
}

}  // namespace

std::string Plot::Svg() const {
  const int top = kAbove + kForMark * static_cast<int>(marks.size());
  const int bottom = top + height;
  std::string grid;
  std::string labels;
  for (const Tick& tick : up) {
    const int y = bottom - static_cast<int>(std::lround(tick.at * height));
    grid += Line("0", "100%", y, y);
    labels += Text("0", y - 4, "start", tick.label);
  }
  for (const Tick& tick : across) {
    const std::string x = Percentage(tick.at);
    grid += Line(x, x, bottom, bottom + 5);
    labels += Text(x, bottom + 19, Anchor(tick.at, 0.06), tick.label);
  }
  std::string lines;
  int row = 0;
  for (const Mark& mark : marks) {
    const int y = kForMark * ++row;
    const std::string x = Percentage(mark.at);
    lines += Line(x, x, y + 3, bottom) + Text(x, y, Anchor(mark.at, 0.15), mark.label);
  }
  return Filled(kPlot, {{"whole", std::to_string(bottom + kBelow)},
                        {"label", Escaped(label)},
                        {"table", std::string(table)},
                        {"grid", grid},
                        {"top", std::to_string(top)},
                        {"height", std::to_string(height)},
                        {"columns", std::to_string(columns)},
                        {"shapes", shapes},
                        {"labels", labels},
                        {"marks", lines}});
}

std::string StackedBars(const std::vector<Layer>& layers) {
  std::string shapes;
  std::vector<double> below(layers.empty() ? 0 : layers.front().heights.size());
  for (const Layer& layer : layers) {
    std::string path;
    for (size_t i = 0; i < layer.heights.size(); ++i) {
      const double from = below[i];
      below[i] += layer.heights[i];
      if (layer.heights[i] <= 0) continue;
      path += "M" + std::to_string(i) + " " + Y(from) + "V" + Y(below[i]) + "h1V" + Y(from) + "z";
    }
    if (!path.empty()) shapes += "<path class=\"" + std::string(layer.css_class) + "\" d=\"" + path + "\"/>";
  }
  return shapes;
}

std::string StepLine(std::string_view css_class, const std::vector<std::optional<double>>& heights) {
  std::string path;
  bool drawing = false;
  for (size_t i = 0; i < heights.size(); ++i) {
    if (heights[i]) path += (drawing ? "V" : "M" + std::to_string(i) + " ") + Y(*heights[i]) + "h1";
    drawing = heights[i].has_value();
  }
  return "<path class=\"line " + std::string(css_class) + "\" d=\"" + path + "\"/>";
}

std::string Sparkline(std::string_view css_class, const std::vector<double>& heights) {
  return Filled(kSparkline,
                {{"columns", std::to_string(heights.size())}, {"shapes", StackedBars({{css_class, heights}})}});
}

std::vector<double> RoundSteps(double most) {
  if (most <= 0) return {0, 1};
  const double power = std::pow(10, std::floor(std::log10(most / 2)));
  double step = power;
  for (const double factor : {2.0, 5.0, 10.0}) {
    if (most / step > 4) step = factor * power;
  }
  std::vector<double> steps = {0};
  while (steps.back() < most) steps.push_back(step * static_cast<double>(steps.size()));
  return steps;
}

std::vector<Tick> TimeTicks(int64_t begin_ns, int64_t end_ns) {
  constexpr int64_t kSecond = 1'000'000'000;
  constexpr int64_t kDay = 86400 * kSecond;
  int64_t step = 10'000'000;
  while (end_ns / step - begin_ns / step > kMostTicks) step = NextWidth(step);
  std::vector<Tick> ticks;
  for (int64_t number = begin_ns / step; number <= end_ns / step; ++number) {
    const int64_t time = number * step;
    if (time < begin_ns || time >= end_ns) continue;
    const std::string text = output::TimeText(time);  // "2026-01-31 12:34:56.789012"
    const size_t clock = text.find(' ') + 1;
    std::string label;
    if (time % kDay == 0) {
      label = text.substr(0, clock - 1);
    } else if (step >= 60 * kSecond) {
      label = text.substr(clock, 5);
    } else {
      label = text.substr(clock, step >= kSecond ? 8 : 11);
    }
    ticks.push_back({Distance(begin_ns, time) / Distance(begin_ns, end_ns), label});
  }
  return ticks;
}

double LogAxis::At(double microseconds) const {
  const double power = std::log10(std::max(microseconds, 1.0));
  return std::clamp((power - from) / (to - from), 0.0, 1.0);
}

std::vector<Tick> LogAxis::Ticks() const {
  std::vector<Tick> ticks;
  const auto add = [&](double microseconds) {
    ticks.push_back({At(microseconds), DurationText(std::llround(microseconds))});
  };
  for (int power = from; power <= to; ++power) {
    const double decade = std::pow(10, power);
    add(decade);
    if (to - from > 2 || power == to) continue;
    add(2 * decade);
    add(5 * decade);
  }
  return ticks;
}

LogAxis LogAxisFor(int64_t least_us, int64_t most_us) {
  LogAxis axis;
  const auto power = [](int64_t value) { return std::log10(static_cast<double>(std::max<int64_t>(value, 1))); };
  axis.from = static_cast<int>(std::floor(power(least_us)));
  axis.to = std::max(static_cast<int>(std::ceil(power(most_us))), axis.from + 1);
  return axis;
}

}  // namespace report
