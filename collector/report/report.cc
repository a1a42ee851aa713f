#include "collector/report/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "collector/output/text.h"
#include "collector/report/figures.h"
#include "collector/report/html.h"
#include "collector/report/page_files.h"
#include "collector/report/plots.h"
#include "collector/report/tables.h"

namespace report {
namespace {

using nlohmann::ordered_json;

// The last part of a path: where a file lay is nobody's business whom the page is sent to.
std::string_view FileName(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

std::string Title(const Labels& labels) {
  if (!labels.title.empty()) return labels.title;
  if (labels.files.empty()) return "DNS report";
  const std::string first = "DNS report: " + std::string(FileName(labels.files.front()));
  const size_t others = labels.files.size() - 1;
  return others == 0 ? first : first + " and " + std::to_string(others) + " more";
}

std::string FilesSentence(const Labels& labels) {
  std::string text = "Read: ";
  for (const std::string& file : labels.files) {
    if (&file != &labels.files.front()) text += ", ";
    text += Escaped(file == "-" ? "standard input" : FileName(file));
  }
  return text + ".";
}

std::string Subtitle(const ordered_json& json) {
  const auto total = json["exchanges"]["total"].get<uint64_t>();
  if (total == 0) return "There are no DNS exchanges in it.";
  const auto seconds = [](const ordered_json& time) {
    return output::TimeText(time.get<int64_t>()).substr(0, std::string("2026-01-31 12:34:56").size());
  };
  return Grouped(total) + (total == 1 ? " exchange" : " exchanges") + " from " + seconds(json["first_ns"]) +
         " to " + seconds(json["last_ns"]) + " UTC";
}

// A page leaves the account of its run behind, and has to say itself what it does not show.
std::string LossesSentence(const Labels& labels) {
  std::string text = labels.interrupted ? "Reading was stopped before the end. " : "";
  if (labels.losses.empty()) return text + "Nothing was lost on the way to this page.";
  text += "Lost on the way to this page: ";
  for (const output::Loss& loss : labels.losses) {
    if (&loss != &labels.losses.front()) text += ", ";
    std::string name(loss.name);
    std::ranges::replace(name, '_', ' ');
    text += name + " " + Grouped(loss.count);
  }
  return text + ".";
}

std::string TimeoutsSentence(const ordered_json& json) {
  const auto& exchanges = json["exchanges"];
  const auto timed_out = exchanges["timeout"].get<uint64_t>();
  const uint64_t ended = timed_out + exchanges["answered"].get<uint64_t>();
  if (timed_out == 0) return "Every query that had the time was answered.";
  return Grouped(timed_out) + " of " + Grouped(ended) + " queries (" + PercentText(timed_out, ended) +
         ") got no answer in time. Queries that were still open when the capture ended are not counted.";
}

}  // namespace

void Report::Add(const plugin::Exchange& exchange) {
  summary.Add(exchange);
  timeline.Add(exchange);
  worst.Add(exchange);
}

std::string Report::Html(const Labels& labels) const {
  const ordered_json json = summary.Json(labels.top);
  const std::vector<BadExchange> bad = worst.All();
  const output::Histogram& times = summary.Total().times_us;
  return Filled(PageHtml(),
                {{"style_hash", std::string(PageStyleHash())},
                 {"script_hash", std::string(PageScriptHash())},
                 {"style", std::string(PageStyle())},
                 {"script", std::string(PageScript())},
                 {"version", Escaped(labels.version)},
                 {"title", Escaped(Title(labels))},
                 {"subtitle", Subtitle(json)},
                 {"files", FilesSentence(labels)},
                 {"figures", Figures(json)},
                 {"losses", LossesSentence(labels)},
                 {"answered", Grouped(times.count())},
                 {"histogram", HistogramPlot(times)},
                 {"histogram_table", HistogramTable(times)},
                 {"quantiles", QuantilesTable(json["response_time_us"])},
                 {"width", WidthText(timeline.width_ns())},
                 {"rate_unit", RateUnitText(timeline)},
                 {"times_plot", TimesPlot(timeline)},
                 {"queries_plot", QueriesPlot(timeline)},
                 {"spans_table", SpansTable(timeline)},
                 {"results", ResultsTable(timeline)},
                 {"servers", TalliesTable("Busiest servers", "Server", json["servers"])},
                 {"slowest_servers", TalliesTable("Slowest servers", "Server", json["slowest_servers"])},
                 {"types", TalliesTable("Types of query", "Type", json["types"])},
                 {"names", CountsTable("Names asked most", "Name", "Asked", json["names"])},
                 {"slowest_names", SlowestTable(json["slowest_names"])},
                 {"failing_names", CountsTable("Names that failed most", "Name", "Failed", json["failing_names"])},
                 {"clients", CountsTable("Clients that asked most", "Client", "Asked", json["clients"])},
                 {"timeouts_sentence", TimeoutsSentence(json)},
                 {"timeouts_plot", TimeoutsPlot(timeline)},
                 {"unanswered_servers", UnansweredTable(json["unanswered_servers"])},
                 {"unanswered_names",
                  CountsTable("Names that timed out most", "Name", "Timed out", json["unanswered_names"])},
                 {"worst_sentence", WorstSentence(bad)},
                 {"worst", WorstTable(bad)}});
}

}  // namespace report
