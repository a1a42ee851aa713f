#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "collector/output/iana.h"
#include "collector/output/keys.h"
#include "collector/output/question.h"
#include "collector/output/summary.h"
#include "collector/output/text.h"
#include "host/requests.h"

namespace output {
namespace {

using nlohmann::ordered_json;

struct NamedQuantile {
  const char* name;
  const char* title;
  double share;
};
constexpr NamedQuantile kQuantiles[] = {{"p50", "P50", 0.5},
                                        {"p90", "P90", 0.9},
                                        {"p95", "P95", 0.95},
                                        {"p99", "P99", 0.99},
                                        {"p99_9", "P99.9", 0.999}};

// --- keys as texts

std::string TypeOf(std::string_view key) {
  char text[kRoomForWord];
  const auto type = static_cast<uint16_t>(static_cast<uint8_t>(key[0]) << 8 | static_cast<uint8_t>(key[1]));
  return std::string(text, PutType(text, type));
}

std::string ResultName(int code) {
  if (code == kResultTimedOut) return "timeout";
  if (code == kResultMalformedAnswer) return "malformed";
  char text[kRoomForWord];
  return std::string(text, PutRcode(text, static_cast<uint16_t>(code)));
}

// "NOERROR" for the key of a DNS record, "name=value" for whatever else a key may say of itself.
std::string GroupName(const MetricGroups::Group& group) {
  if (group.attributes.empty()) return "others";
  std::string text;
  for (const auto& [attribute, value] : group.attributes) {
    if (!text.empty()) text += ' ';
    text += attribute == "ResultCode" ? ResultName(value) : attribute + "=" + std::to_string(value);
  }
  return Printable(text);
}

// --- text

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

std::string Percent(uint64_t part, uint64_t whole) { return Fixed(100 * Share(part, whole), 1) + " %"; }

std::string Milliseconds(int64_t microseconds) {
  char text[32];
  return std::string(text, PutMilliseconds(text, microseconds));
}

// Rows of cells under a title; the first column to the left, the others to the right, all as wide as needed.
class Grid {
 public:
  void Row(std::vector<std::string> cells) {
    if (widths.size() < cells.size()) widths.resize(cells.size());
    for (size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
    rows.push_back(std::move(cells));
  }

  std::string Text() const {
    std::string text;
    for (const auto& row : rows) {
      text += "  ";
      for (size_t i = 0; i < row.size(); ++i) {
        const std::string padding(widths[i] - row[i].size(), ' ');
        if (i > 0) text += "  " + padding;
        text += row[i];
        if (i == 0 && row.size() > 1) text += padding;
      }
      text.erase(text.find_last_not_of(' ') + 1);
      text += '\n';
    }
    return text;
  }

 private:
  std::vector<size_t> widths;
  std::vector<std::vector<std::string>> rows;
};

void AddTimes(const Histogram& times, std::vector<std::string>* cells) {
  for (const NamedQuantile& quantile : kQuantiles) {
    cells->push_back(times.count() == 0 ? "-" : Milliseconds(times.Quantile(quantile.share)));
  }
  cells->push_back(times.count() == 0 ? "-" : Milliseconds(times.max()));
}

std::vector<std::string> TallyRow(const std::string& name, const Summary::Tally& tally) {
  std::vector<std::string> cells = {name, std::to_string(tally.answered), std::to_string(tally.failed),
                                    std::to_string(tally.timed_out)};
  AddTimes(tally.times_us, &cells);
  return cells;
}

std::string TallyTable(const char* title, const Summary::Tallies& tallies, const Summary::Tally& others,
                       const Summary::Tally* all, size_t top, std::string (*name_of)(std::string_view)) {
  Grid grid;
  std::vector<std::string> header = {"", "ANSWERED", "FAILED", "TIMED OUT"};
  for (const NamedQuantile& quantile : kQuantiles) header.emplace_back(quantile.title);
  header.emplace_back("MAX");
  grid.Row(header);
  for (const auto* entry : tallies.Top(top)) grid.Row(TallyRow(name_of(entry->key), entry->payload));
  if (others.Ended() > 0) grid.Row(TallyRow("(forgotten)", others));
  if (all != nullptr) grid.Row(TallyRow("(all)", *all));
  return std::string("\n") + title + " (response times in ms)\n" + grid.Text();
}

std::string CountTable(const char* title, const Summary::Counts& counts, size_t top,
                       std::string (*name_of)(std::string_view)) {
  if (counts.size() == 0) return {};
  Grid grid;
  for (const auto* entry : counts.Top(top)) {
    const std::string doubt = entry->error == 0 ? "" : " (up to " + std::to_string(entry->error) + " too many)";
    grid.Row({name_of(entry->key), std::to_string(entry->count) + doubt});
  }
  return std::string("\n") + title + "\n" + grid.Text();
}

std::string SlowestTable(const Largest& slowest, size_t top) {
  if (slowest.All().empty()) return {};
  Grid grid;
  for (const Largest::Entry& entry : slowest.All()) {
    if (top-- == 0) break;
    grid.Row({NameText(entry.key), Milliseconds(entry.value) + " ms"});
  }
  return "\nSlowest names\n" + grid.Text();
}

// --- JSON

ordered_json TimesJson(const Histogram& times) {
  ordered_json json;
  json["count"] = times.count();
  if (times.count() == 0) return json;
  for (const NamedQuantile& quantile : kQuantiles) json[quantile.name] = times.Quantile(quantile.share);
  json["max"] = times.max();
  return json;
}

ordered_json TallyJson(const Summary::Tally& tally) {
  ordered_json json;
  json["answered"] = tally.answered;
  json["failed"] = tally.failed;
  json["timeout"] = tally.timed_out;
  json["open"] = tally.open;
  json["response_time_us"] = TimesJson(tally.times_us);
  return json;
}

ordered_json TalliesJson(const char* key, const std::vector<const Summary::Tallies::Entry*>& entries,
                         std::string (*name_of)(std::string_view)) {
  ordered_json list = ordered_json::array();
  for (const auto* entry : entries) {
    ordered_json json = {{key, name_of(entry->key)}};
    json.update(TallyJson(entry->payload));
    list.push_back(json);
  }
  return list;
}

// How servers are ranked besides by the number of exchanges. A server whose answers all came at once is not slow.
int64_t SlowAnswers(const Summary::Tallies::Entry& server) { return server.payload.times_us.Quantile(0.95); }
uint64_t TimedOut(const Summary::Tallies::Entry& server) { return server.payload.timed_out; }

ordered_json CountsJson(const char* key, const Summary::Counts& counts, size_t top,
                        std::string (*name_of)(std::string_view)) {
  ordered_json list = ordered_json::array();
  for (const auto* entry : counts.Top(top)) {
    list.push_back({{key, name_of(entry->key)}, {"count", entry->count}, {"error", entry->error}});
  }
  return list;
}

ordered_json SlowestJson(const Largest& slowest, size_t top) {
  ordered_json list = ordered_json::array();
  for (const Largest::Entry& entry : slowest.All()) {
    if (top-- == 0) break;
    list.push_back({{"qname", NameText(entry.key)}, {"rtt_us", entry.value}});
  }
  return list;
}

}  // namespace

std::string Summary::Text(size_t top) const {
  const uint64_t total = all.Ended() + all.open;
  if (total == 0) return "no DNS exchanges\n";
  std::string text = std::to_string(total) + " exchanges from " + TimeText(rate.first_ns()) + " to " +
                     TimeText(rate.last_ns()) + " UTC\n";
  const double seconds = rate.Seconds();
  if (seconds > 0) {
    text += Fixed(static_cast<double>(total) / seconds, 1) + " queries per second, " + std::to_string(rate.Peak()) +
            " in the busiest one\n";
  }
  Grid grid;
  grid.Row({"answered", std::to_string(all.answered), Percent(all.answered, all.Ended())});
  grid.Row({"  failed", std::to_string(all.failed), Percent(all.failed, all.Ended())});
  grid.Row({"timed out", std::to_string(all.timed_out), Percent(all.timed_out, all.Ended())});
  if (all.open > 0) grid.Row({"open at the end", std::to_string(all.open), ""});
  text += "\n" + grid.Text();

  Grid results;
  for (const auto* group : groups.All()) {
    results.Row({GroupName(*group), std::to_string(group->count), Percent(group->count, all.Ended())});
  }
  text += "\nBy result\n" + results.Text();
  text += TallyTable("Busiest servers", servers, other_servers, &all, top, AddressOfKey);
  text += TallyTable("Types", types, other_types, nullptr, top, TypeOf);
  text += CountTable("Names asked most", names, top, NameText);
  text += CountTable("Clients that asked most", clients, top, AddressOfKey);
  text += SlowestTable(slowest, top);
  text += CountTable("Names that failed most", failing, top, NameText);
  text += CountTable("Names that timed out most", unanswered, top, NameText);
  return text;
}

nlohmann::ordered_json Summary::Json(size_t top) const {
  ordered_json json;
  const uint64_t total = all.Ended() + all.open;
  json["exchanges"] = {
      {"total", total},           {"answered", all.answered}, {"failed", all.failed}, {"malformed", malformed},
      {"timeout", all.timed_out}, {"open", all.open},         {"udp", udp},           {"tcp", total - udp}};
  json["share"] = {{"answered", Share(all.answered, all.Ended())},
                   {"failed", Share(all.failed, all.Ended())},
                   {"timeout", Share(all.timed_out, all.Ended())}};
  json["first_ns"] = rate.first_ns();
  json["last_ns"] = rate.last_ns();
  const double seconds = rate.Seconds();
  json["queries_per_second"] = seconds > 0 ? static_cast<double>(total) / seconds : 0;
  json["busiest_second"] = rate.Peak();
  json["groups"] = ordered_json::array();
  for (const auto* group : groups.All()) {
    ordered_json entry = {{"name", GroupName(*group)}, {"count", group->count}, {"failed", group->failed}};
    for (const auto& [attribute, value] : group->attributes) entry[Printable(attribute)] = value;
    json["groups"].push_back(entry);
  }
  json["response_time_us"] = TimesJson(all.times_us);
  json["servers"] = TalliesJson("server_ip", servers.Top(top), AddressOfKey);
  json["slowest_servers"] = TalliesJson("server_ip", servers.Top(top, SlowAnswers), AddressOfKey);
  json["unanswered_servers"] = TalliesJson("server_ip", servers.Top(top, TimedOut), AddressOfKey);
  json["types"] = TalliesJson("qtype", types.Top(top), TypeOf);
  json["names"] = CountsJson("qname", names, top, NameText);
  json["clients"] = CountsJson("client_ip", clients, top, AddressOfKey);
  json["slowest_names"] = SlowestJson(slowest, top);
  json["failing_names"] = CountsJson("qname", failing, top, NameText);
  json["unanswered_names"] = CountsJson("qname", unanswered, top, NameText);
  return json;
}

std::string Summary::JsonText(size_t top) const { return Json(top).dump(2) + "\n"; }

}  // namespace output
