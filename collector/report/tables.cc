#include "collector/report/tables.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "collector/output/text.h"
#include "collector/report/figures.h"
#include "collector/report/html.h"
#include "collector/report/plot.h"

namespace report {
namespace {

using nlohmann::ordered_json;

constexpr const char* kNothing = "<p class=\"none\">There are none.</p>";
constexpr auto kText = Table::Align::kText;

struct Quantile {
  const char* key;  // in the summary
  const char* title;
};
constexpr Quantile kQuantiles[] = {{"p50", "Median"}, {"p90", "90 %"},     {"p95", "95 %"},
                                   {"p99", "99 %"},   {"p99_9", "99.9 %"}, {"max", "Slowest"}};

std::string Milliseconds(int64_t microseconds) {
  char text[32];
  return std::string(text, output::PutMilliseconds(text, microseconds));
}

Table::Cell CountCell(uint64_t count) { return {Grouped(count), std::to_string(count)}; }
Table::Cell CountCell(const ordered_json& count) { return CountCell(count.get<uint64_t>()); }

// "-1" sorts what has no time below everything that has one.
Table::Cell TimeCell(const ordered_json& times_us, const char* key) {
  if (!times_us.contains(key)) return {"-", "-1"};
  const auto value = times_us[key].get<int64_t>();
  return {Milliseconds(value), std::to_string(value)};
}

// One of the figures: `key` names it for scripts, the value is as it stands in the summary.
std::string Figure(const char* css_class, const char* title, const char* key, const ordered_json& value,
                   const std::string& text, const std::string& remark) {
  return "<div class=\"" + std::string(css_class) + "\"><dt>" + title + "</dt><dd><data data-key=\"" + key +
         "\" value=\"" + value.dump() + "\">" + text + "</data></dd>" +
         (remark.empty() ? "" : "<dd>" + remark + "</dd>") + "</div>";
}

std::string TimeFigure(const ordered_json& times_us, const char* key, const char* title) {
  if (!times_us.contains(key)) return {};
  return Figure("", title, key, times_us[key], DurationText(times_us[key].get<int64_t>()), "response time");
}

struct Kind {
  const char* key;  // class of the row, and what the filter asks for
  bool (*holds)(Outcome outcome);
};
constexpr Kind kKinds[] = {{"timeout", [](Outcome outcome) { return outcome == Outcome::kTimeout; }},
                           {"failed", IsFailure},
                           {"slow", [](Outcome outcome) { return outcome == Outcome::kNoError; }}};

std::string KindOf(Outcome outcome) {
  const auto* const kind =
      std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& k) { return k.holds(outcome); });
  return kind == std::end(kKinds) ? "" : kind->key;
}

const char* ToneOf(Outcome outcome) {
  if (outcome == Outcome::kNoError) return "good";
  if (outcome == Outcome::kTimeout) return "lost";
  return outcome == Outcome::kOpen ? "open" : "failed";
}

}  // namespace

std::string Figures(const ordered_json& summary) {
  const auto& exchanges = summary["exchanges"];
  const auto count = [&](const char* key) { return exchanges[key].get<uint64_t>(); };
  const uint64_t ended = count("answered") + count("timeout");
  const auto shown = [&](const char* css_class, const char* title, const char* key) {
    return Figure(css_class, title, key, exchanges[key], Grouped(count(key)), PercentText(count(key), ended));
  };
  std::string html = Figure("", "Exchanges", "total", exchanges["total"], Grouped(count("total")),
                            Grouped(count("udp")) + " by UDP, " + Grouped(count("tcp")) + " by TCP");
  html += Figure("", "Queries per second", "queries_per_second", summary["queries_per_second"],
                 Rounded(summary["queries_per_second"].get<double>()),
                 "busiest: " + Grouped(summary["busiest_second"].get<uint64_t>()));
  html += shown("good", "Answered", "answered");
  html += shown("failed", "&hellip; of these, failed", "failed");
  html += shown("lost", "Timed out", "timeout");
  if (count("open") > 0) {
    html += Figure("", "Open at the end", "open", exchanges["open"], Grouped(count("open")), "not counted as lost");
  }
  const auto& times = summary["response_time_us"];
  return html + TimeFigure(times, "p50", "Median") + TimeFigure(times, "p95", "95 % are within") +
         TimeFigure(times, "p99", "99 % are within");
}

std::string QuantilesTable(const ordered_json& times_us) {
  if (times_us["count"] == 0) return {};
  std::vector<Table::Column> columns;
  std::vector<Table::Cell> cells;
  for (const Quantile& quantile : kQuantiles) {
    columns.push_back({quantile.title});
    cells.push_back(TimeCell(times_us, quantile.key));
  }
  columns.insert(columns.begin(), {"Share of answers", kText});
  cells.insert(cells.begin(), {"milliseconds"});
  Table table("Response times that shares of the answers do not exceed", columns);
  table.Row(cells);
  return R"(<div class="wide" role="region" tabindex="0" aria-label="Percentiles">)" +
         table.Html(" id=\"quantiles\"") + "</div>";
}

std::string ResultsTable(const Timeline& timeline) {
  Table table("Results", {{"Result", kText}, {"Exchanges"}, {"Share"}, {"Over time", kText, "plotted"}});
  uint64_t total = 0;
  for (const Timeline::Span& span : timeline.Spans()) total += span.Queries();
  for (size_t i = 0; i < kOutcomes; ++i) {
    const auto outcome = static_cast<Outcome>(i);
    uint64_t count = 0;
    uint64_t most = 1;
    for (const Timeline::Span& span : timeline.Spans()) {
      count += span.Count(outcome);
      most = std::max(most, span.Count(outcome));
    }
    if (count == 0) continue;
    std::vector<double> heights;
    for (const Timeline::Span& span : timeline.Spans()) {
      heights.push_back(static_cast<double>(span.Count(outcome)) / static_cast<double>(most));
    }
    table.Row({{OutcomeName(outcome)},
               CountCell(count),
               {PercentText(count, total)},
               {Sparkline(ToneOf(outcome), heights)}});
  }
  return table.empty() ? kNothing : table.Html(" id=\"results\"");
}

std::string SpansTable(const Timeline& timeline) {
  Table table("Queries and response times over time", {{"From (UTC)", kText},
                                                       {"Queries"},
                                                       {"Answered"},
                                                       {"Failed"},
                                                       {"Timed out"},
                                                       {"Open"},
                                                       {"Median ms"},
                                                       {"95 % ms"},
                                                       {"99 % ms"}});
  for (size_t i = 0; i < timeline.Spans().size(); ++i) {
    const Timeline::Span& span = timeline.Spans()[i];
    std::vector<Table::Cell> cells = {{output::TimeText(timeline.BeginOf(i)).substr(0, 22)},
                                      {Grouped(span.Queries())},
                                      {Grouped(span.Answered())},
                                      {Grouped(span.Failed())},
                                      {Grouped(span.Count(Outcome::kTimeout))},
                                      {Grouped(span.Count(Outcome::kOpen))}};
    for (const double share : {0.5, 0.95, 0.99}) {
      cells.push_back({span.times_us.count() == 0 ? "-" : Milliseconds(span.times_us.Quantile(share))});
    }
    table.Row(cells);
  }
  return table.empty() ? kNothing : table.Html(" id=\"spans\"");
}

std::string TalliesTable(std::string_view about, std::string_view title, const ordered_json& list) {
  std::vector<Table::Column> columns = {{title, kText}, {"Answered"}, {"Failed"}, {"Timed out"}};
  for (const Quantile& quantile : kQuantiles) columns.push_back({quantile.title});
  Table table(about, columns);
  for (const ordered_json& entry : list) {
    std::vector<Table::Cell> cells = {{Escaped(entry.front().get<std::string>())},
                                      CountCell(entry["answered"]),
                                      CountCell(entry["failed"]),
                                      CountCell(entry["timeout"])};
    for (const Quantile& quantile : kQuantiles) cells.push_back(TimeCell(entry["response_time_us"], quantile.key));
    table.Row(cells);
  }
  return table.empty() ? kNothing : table.Html(" class=\"sorts\"");
}

std::string CountsTable(std::string_view about, std::string_view title, std::string_view counted,
                        const ordered_json& list) {
  Table table(about, {{title, kText}, {counted}});
  for (const ordered_json& entry : list) {
    const auto error = entry["error"].get<uint64_t>();
    Table::Cell count = CountCell(entry["count"]);
    if (error > 0) count.html += " (up to " + Grouped(error) + " too many)";
    table.Row({{Escaped(entry.front().get<std::string>())}, count});
  }
  return table.empty() ? kNothing : table.Html();
}

std::string SlowestTable(const ordered_json& list) {
  Table table("Names with the slowest answers", {{"Name", kText}, {"Slowest"}});
  for (const ordered_json& entry : list) {
    table.Row({{Escaped(entry["qname"].get<std::string>())}, {DurationText(entry["rtt_us"].get<int64_t>())}});
  }
  return table.empty() ? kNothing : table.Html();
}

std::string UnansweredTable(const ordered_json& list) {
  Table table("Servers that did not answer", {{"Server", kText}, {"Timed out"}, {"of its queries"}});
  for (const ordered_json& entry : list) {
    const auto timed_out = entry["timeout"].get<uint64_t>();
    table.Row({{Escaped(entry.front().get<std::string>())},
               CountCell(timed_out),
               {PercentText(timed_out, timed_out + entry["answered"].get<uint64_t>())}});
  }
  return table.empty() ? kNothing : table.Html();
}

std::string WorstSentence(const std::vector<BadExchange>& exchanges) {
  if (exchanges.empty()) return "There is nothing to complain about.";
  return "The " + Grouped(exchanges.size()) +
         " that most deserve a look: time-outs, the slowest answers, and the failures that say most about servers.";
}

std::string WorstTable(const std::vector<BadExchange>& exchanges) {
  if (exchanges.empty()) return kNothing;
  // What one looks for first is what a phone shows without scrolling.
  Table table("Worst exchanges", {{"Name", kText, "name"},
                                  {"Result", kText, "result"},
                                  {"Time ms"},
                                  {"Type", kText},
                                  {"Client", kText},
                                  {"Server", kText},
                                  {"Via", kText},
                                  {"Repeats"},
                                  {"Asked at (UTC)", kText}});
  for (const BadExchange& one : exchanges) {
    const Table::Cell time = one.has_response ? Table::Cell{Milliseconds(one.rtt_us), std::to_string(one.rtt_us)}
                                              : Table::Cell{"-", "-1"};
    table.Row({{Escaped(one.name)},
               {Escaped(one.result)},
               time,
               {Escaped(one.type)},
               {Escaped(one.client)},
               {Escaped(one.server)},
               {Escaped(one.proto)},
               CountCell(one.retransmits),
               {output::TimeText(one.query_time_ns)}},
              " class=\"" + KindOf(one.outcome) + "\"");
  }
  return table.Html(R"( class="sorts" id="worst-table")");
}

}  // namespace report
