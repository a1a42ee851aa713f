#include "collector/report/plots.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "collector/report/figures.h"
#include "collector/report/html.h"
#include "collector/report/plot.h"

namespace report {
namespace {

constexpr const char* kNothing = "<p class=\"none\">There are none.</p>";

// --- the histogram

constexpr size_t kBarsPerDecade = 10;

// Response times in bars that are equally wide on a logarithmic axis, over all decades that hold any.
struct Bars {
  LogAxis axis;
  std::vector<uint64_t> counts;

  double BeginOf(size_t bar) const { return std::pow(10, axis.from + static_cast<double>(bar) / kBarsPerDecade); }
};

Bars MakeBars(const output::Histogram& times_us) {
  int64_t least = times_us.max();
  times_us.ForEach([&](int64_t value, uint64_t) { least = std::min(least, value); });
  Bars bars{LogAxisFor(least, times_us.max()), {}};
  bars.counts.resize(static_cast<size_t>(bars.axis.to - bars.axis.from) * kBarsPerDecade);
  times_us.ForEach([&](int64_t value, uint64_t count) {
    const double at = bars.axis.At(static_cast<double>(value)) * static_cast<double>(bars.counts.size());
    bars.counts[std::min(static_cast<size_t>(at), bars.counts.size() - 1)] += count;
  });
  return bars;
}

std::vector<Mark> QuantileMarks(const output::Histogram& times_us, const LogAxis& axis) {
  std::vector<Mark> marks;
  for (const auto& [name, share] : {std::pair("median", 0.5), std::pair("95 %", 0.95), std::pair("99 %", 0.99)}) {
    const int64_t value = times_us.Quantile(share);
    marks.push_back({axis.At(static_cast<double>(value)), std::string(name) + ": " + DurationText(value)});
  }
  return marks;
}

// --- plots over time

// Grid lines at round numbers, and the number that stands for the full height.
double SetScale(double most, const std::string& unit, Plot* plot) {
  const std::vector<double> steps = RoundSteps(most);
  for (const double step : steps) plot->up.push_back({step / steps.back(), Rounded(step)});
  plot->up.back().label += unit;  // once is enough
  return steps.back();
}

void SetTime(const Timeline& timeline, Plot* plot) {
  plot->table = "spans";
  plot->columns = timeline.Spans().size();
  plot->across = TimeTicks(timeline.BeginOf(0), timeline.BeginOf(timeline.Spans().size()));
}

using CountOf = std::function<uint64_t(const Timeline::Span&)>;

uint64_t MostOf(const Timeline& timeline, const CountOf& count_of) {
  uint64_t most = 0;
  for (const Timeline::Span& span : timeline.Spans()) most = std::max(most, count_of(span));
  return most;
}

struct Part {
  const char* css_class;
  CountOf count_of;
};

// What counts are given per: a second, or a step that is shorter.
int64_t RateUnit(const Timeline& timeline) { return std::min<int64_t>(timeline.width_ns(), 1'000'000'000); }

// Counts per unit of time, one part on top of the other, under a scale that `whole` fits in.
std::string RatePlot(const Timeline& timeline, const char* label, int height, const CountOf& whole,
                     const std::vector<Part>& parts) {
  const double units = static_cast<double>(timeline.width_ns()) / static_cast<double>(RateUnit(timeline));
  Plot plot;
  plot.label = label;
  plot.height = height;
  SetTime(timeline, &plot);
  const double full =
      SetScale(static_cast<double>(MostOf(timeline, whole)) / units, " per " + RateUnitText(timeline), &plot);
  std::vector<Layer> layers;
  for (const Part& part : parts) {
    Layer& layer = layers.emplace_back(Layer{part.css_class, {}});
    for (const Timeline::Span& span : timeline.Spans()) {
      layer.heights.push_back(static_cast<double>(part.count_of(span)) / units / full);
    }
  }
  plot.shapes = StackedBars(layers);
  return plot.Svg();
}

std::string QuantileLine(const Timeline& timeline, const char* css_class, double share, const LogAxis& axis) {
  std::vector<std::optional<double>> heights;
  for (const Timeline::Span& span : timeline.Spans()) {
    std::optional<double>& height = heights.emplace_back();
    if (span.times_us.count() > 0) height = axis.At(static_cast<double>(span.times_us.Quantile(share)));
  }
  return StepLine(css_class, heights);
}

}  // namespace

std::string RateUnitText(const Timeline& timeline) {
  return timeline.width_ns() < 1'000'000'000 ? WidthText(timeline.width_ns()) : "second";
}

std::string HistogramPlot(const output::Histogram& times_us) {
  if (times_us.count() == 0) return kNothing;
  const Bars bars = MakeBars(times_us);
  Plot plot;
  plot.label = "Histogram of response times on a logarithmic axis";
  plot.table = "bars";
  plot.columns = bars.counts.size();
  plot.across = bars.axis.Ticks();
  plot.marks = QuantileMarks(times_us, bars.axis);
  const uint64_t most = *std::max_element(bars.counts.begin(), bars.counts.end());
  const double full = SetScale(static_cast<double>(most), " answers", &plot);
  Layer layer{"good", {}};
  for (const uint64_t count : bars.counts) layer.heights.push_back(static_cast<double>(count) / full);
  plot.shapes = StackedBars({layer});
  return plot.Svg();
}

std::string HistogramTable(const output::Histogram& times_us) {
  if (times_us.count() == 0) return kNothing;
  const Bars bars = MakeBars(times_us);
  Table table("Histogram of response times", {{"From", Table::Align::kText}, {"Answers"}, {"Share"}});
  for (size_t i = 0; i < bars.counts.size(); ++i) {
    table.Row({{DurationText(std::llround(bars.BeginOf(i)))},
               {Grouped(bars.counts[i]), std::to_string(bars.counts[i])},
               {PercentText(bars.counts[i], times_us.count())}});
  }
  return table.Html(" id=\"bars\"");
}

std::string TimesPlot(const Timeline& timeline) {
  int64_t least = 0;
  int64_t most = 0;
  for (const Timeline::Span& span : timeline.Spans()) {
    if (span.times_us.count() == 0) continue;
    const int64_t median = span.times_us.Quantile(0.5);
    least = least == 0 ? median : std::min(least, median);
    most = std::max(most, span.times_us.Quantile(0.99));
  }
  if (most == 0) return kNothing;
  const LogAxis axis = LogAxisFor(least, most);
  Plot plot;
  plot.label = "Response times over time on a logarithmic axis: median, 95th and 99th percentile";
  SetTime(timeline, &plot);
  plot.up = axis.Ticks();
  plot.shapes = QuantileLine(timeline, "p99", 0.99, axis) + QuantileLine(timeline, "p95", 0.95, axis) +
                QuantileLine(timeline, "p50", 0.5, axis);
  return plot.Svg();
}

std::string QueriesPlot(const Timeline& timeline) {
  if (timeline.Spans().empty()) return kNothing;
  constexpr int kHeight = 180;
  return RatePlot(timeline, "Queries over time, by what came of them", kHeight, &Timeline::Span::Queries,
                  {{"good", [](const auto& span) { return span.Count(Outcome::kNoError); }},
                   {"failed", &Timeline::Span::Failed},
                   {"lost", [](const auto& span) { return span.Count(Outcome::kTimeout); }},
                   {"open", [](const auto& span) { return span.Count(Outcome::kOpen); }}});
}

std::string TimeoutsPlot(const Timeline& timeline) {
  const CountOf timed_out = [](const Timeline::Span& span) { return span.Count(Outcome::kTimeout); };
  if (MostOf(timeline, timed_out) == 0) return {};
  constexpr int kHeight = 110;
  return RatePlot(timeline, "Time-outs over time, by when the query was sent", kHeight, timed_out,
                  {{"lost", timed_out}});
}

}  // namespace report
