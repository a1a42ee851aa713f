#include "collector/output/account.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <nlohmann/json.hpp>
#include <numeric>

namespace output {
namespace {

struct Part {
  std::string_view name;
  uint64_t count;
};

// A total and what it is the sum of. Outcomes that cannot occur are parts as well.
struct Sum {
  std::string_view name;
  uint64_t total;
  std::vector<Part> parts;
};

uint64_t Of(const Account& account, packet::Outcome outcome) {
  return account.outcomes[static_cast<size_t>(outcome)];
}
uint64_t Of(const Account& account, flow::Delivery delivery) {
  return account.deliveries[static_cast<size_t>(delivery)];
}

Sum Packets(const Account& account) {
  Sum sum{"packets", account.packets, {}};
  for (size_t i = 0; i < Account::kOutcomes; ++i) {
    sum.parts.push_back({OutcomeName(static_cast<packet::Outcome>(i)), account.outcomes[i]});
  }
  sum.parts.push_back({"filtered", account.filtered});
  return sum;
}

// One for each packet that held or completed one, and those that never became complete.
Sum Datagrams(const Account& account) {
  Sum sum{"datagrams", Of(account, packet::Outcome::kDatagram) + account.fragments.cut_datagrams, {}};
  for (size_t i = 0; i < Account::kDeliveries; ++i) {
    sum.parts.push_back({DeliveryName(static_cast<flow::Delivery>(i)), account.deliveries[i]});
  }
  return sum;
}

std::vector<Sum> Sums(const Account& account) {
  const plugin::MessageCounts& m = account.messages;
  return {
      Packets(account),
      Datagrams(account),
      {"messages",
       m.queries + m.responses,
       {{"udp", account.flows.udp_messages}, {"tcp", account.flows.tcp_messages}}},
      {"queries",
       m.queries,
       {{"begun", m.begun},
        {"duplicates", m.duplicates},
        {"table_full", m.table_full},
        {"ignored", m.query_ignored},
        {"refused", m.query_refused}}},
      {"responses",
       m.responses,
       {{"answered", m.answered},
        {"unsolicited", m.unsolicited},
        {"ignored", m.response_ignored},
        {"refused", m.response_refused}}},
      {"exchanges",
       m.begun,
       {{"answered", m.answered}, {"timeout", m.timed_out}, {"open", m.open_at_end}, {"waiting", account.waiting}}},
  };
}

// What is worth knowing beside the sums.
std::vector<Part> Details(const Account& account) {
  const flow::Counts& f = account.flows;
  const plugin::MessageCounts& m = account.messages;
  return {
      {"malformed", m.malformed},
      {"retransmits", m.retransmits},
      {"question_mismatches", m.question_mismatches},
      {"cut_messages", m.cut},
      {"mappings", m.mappings},
      {"flows", f.flows},
      {"flows_evicted", f.flows_evicted},
      {"tcp_cut_messages", f.tcp_cut_messages},
      {"tcp_gaps", f.tcp_gaps},
      {"tcp_skipped_bytes", f.tcp_skipped_bytes},
      {"tcp_retransmitted_bytes", f.tcp_retransmitted_bytes},
      {"tcp_dropped_bytes", f.tcp_dropped_bytes},
      {"tcp_unfinished_messages", f.tcp_unfinished_messages},
      {"tcp_resets", f.tcp_resets},
      {"fragments_reassembled", account.fragments.reassembled},
      {"fragments_cut_datagrams", account.fragments.cut_datagrams},
      {"fragments_expired", account.fragments.expired},
      {"fragments_dropped", account.fragments.dropped},
      {"fragments_inconsistent", account.fragments.inconsistent},
      {"fragments_held", account.fragments_held},
      {"clock_steps_back", account.clock_steps_back},
  };
}

uint64_t Total(const std::vector<Part>& parts) {
  return std::accumulate(parts.begin(), parts.end(), uint64_t{0},
                         [](uint64_t total, const Part& part) { return total + part.count; });
}

uint64_t Total(const std::map<std::string, uint64_t>& by_name) {
  uint64_t total = 0;
  for (const auto& entry : by_name) total += entry.second;
  return total;
}

std::string JoinNonZero(const std::vector<Part>& parts, std::string_view separator) {
  std::string text;
  for (const Part& part : parts) {
    if (part.count == 0) continue;
    if (!text.empty()) text += separator;
    text.append(std::to_string(part.count)).append(" ").append(part.name);
  }
  return text;
}

std::string Line(std::string_view name, const std::string& text) {
  std::string line(name);
  line.resize(std::max<size_t>(line.size() + 1, 11), ' ');
  return line + text + "\n";
}

void CheckEqual(const char* sentence, uint64_t one, uint64_t other, std::vector<std::string>* wrong) {
  if (one == other) return;
  wrong->push_back(std::string(sentence) + ": " + std::to_string(one) + " against " + std::to_string(other));
}

// The "name:number" words of the health line.
nlohmann::ordered_json HealthFigures(std::string_view line) {
  nlohmann::ordered_json figures = nlohmann::ordered_json::object();
  while (!line.empty()) {
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(line.size(), word.size() + 1));
    const size_t colon = word.find(':');
    if (colon == std::string_view::npos) continue;
    int64_t figure = 0;
    const char* end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + colon + 1, end, figure);
    if (parsed.ec == std::errc() && parsed.ptr == end) figures[std::string(word.substr(0, colon))] = figure;
  }
  return figures;
}

uint64_t DroppedByKernel(const Account& account) {
  uint64_t dropped = 0;
  for (const capture::LiveCounts& one : account.interfaces) dropped += one.dropped + one.dropped_by_interface;
  return dropped;
}

// A structure of nothing but 64-bit counters.
template <typename Counters>
void AddCounters(Counters* sum, const Counters& other) {
  using Words = std::array<uint64_t, sizeof(Counters) / sizeof(uint64_t)>;
  static_assert(sizeof(Words) == sizeof(Counters));
  auto words = std::bit_cast<Words>(*sum);
  const auto added = std::bit_cast<Words>(other);
  for (size_t i = 0; i < words.size(); ++i) words[i] += added[i];
  *sum = std::bit_cast<Counters>(words);
}

// Each figure of the first line, and the one of the same name in the other.
std::string SumOfHealth(const std::string& one, const std::string& other) {
  const nlohmann::ordered_json figures = HealthFigures(one);
  const nlohmann::ordered_json added = HealthFigures(other);
  std::string line = one.substr(0, one.find(' '));
  for (const auto& [name, figure] : figures.items()) {
    const int64_t sum = figure.get<int64_t>() + added.value(name, int64_t{0});
    line.append(" ").append(name).append(":").append(std::to_string(sum));
  }
  return line;
}

}  // namespace

void KeepOwnShare(Account* account) {
  account->packets = 0;
  account->filtered = 0;
  account->not_filtered.clear();
  account->outcomes = {};
  account->unknown_link_types.clear();
  account->fragments = {};
  account->fragments_held = 0;
  account->clock_steps_back = 0;
  account->input_problems = 0;
}

void AddAccount(Account* sum, const Account& other) {
  sum->packets += other.packets;
  sum->filtered += other.filtered;
  for (const auto& [name, count] : other.not_filtered) sum->not_filtered[name] += count;
  AddCounters(&sum->outcomes, other.outcomes);
  AddCounters(&sum->deliveries, other.deliveries);
  for (const auto& [name, count] : other.unknown_link_types) sum->unknown_link_types[name] += count;
  AddCounters(&sum->fragments, other.fragments);
  sum->fragments_held += other.fragments_held;
  AddCounters(&sum->flows, other.flows);
  AddCounters(&sum->messages, other.messages);
  sum->clock_steps_back += other.clock_steps_back;
  sum->exchanges += other.exchanges;
  sum->waiting += other.waiting;
  sum->shown += other.shown;
  sum->input_problems += other.input_problems;
  sum->health = sum->health.empty() ? other.health : SumOfHealth(sum->health, other.health);
}

std::vector<std::string> Contradictions(const Account& account) {
  std::vector<std::string> wrong;
  for (const Sum& sum : Sums(account)) {
    CheckEqual((std::string(sum.name) + " and their parts").c_str(), sum.total, Total(sum.parts), &wrong);
  }
  CheckEqual("UDP messages and UDP datagrams with one", account.flows.udp_messages,
             Of(account, flow::Delivery::kUdpMessage), &wrong);
  CheckEqual("exchanges begun and delivered", account.messages.begun, account.exchanges + account.waiting, &wrong);
  CheckEqual("packets of unknown link types and their names", Of(account, packet::Outcome::kUnknownLinkType),
             Total(account.unknown_link_types), &wrong);
  return wrong;
}

std::vector<Loss> Losses(const Account& account) {
  const plugin::MessageCounts& m = account.messages;
  std::vector<Loss> losses = {
      {"inputs", account.input_problems},
      {"kernel_dropped_packets", DroppedByKernel(account)},
      {"unfilterable_packets", Total(account.not_filtered)},
      {"unknown_link_type_packets", Of(account, packet::Outcome::kUnknownLinkType)},
      {"truncated_packets", Of(account, packet::Outcome::kTruncated)},
      {"malformed_packets", Of(account, packet::Outcome::kMalformed)},
      {"too_deep_packets", Of(account, packet::Outcome::kTooDeep)},
      {"fragments", account.fragments.expired + account.fragments.dropped + account.fragments_held},
      {"inconsistent_fragments", account.fragments.inconsistent},
      {"no_flow_datagrams", Of(account, flow::Delivery::kNoFlow)},
      {"no_surrogate_datagrams", Of(account, flow::Delivery::kNoSurrogate)},
      {"tcp_gaps", account.flows.tcp_gaps},
      {"tcp_skipped_bytes", account.flows.tcp_skipped_bytes},
      {"tcp_dropped_bytes", account.flows.tcp_dropped_bytes},
      {"tcp_unfinished_messages", account.flows.tcp_unfinished_messages},
      {"cut_messages", m.cut},
      {"refused_messages", m.query_refused + m.response_refused},
      {"superseded_queries", m.duplicates - std::min(m.duplicates, m.retransmits)},
      {"table_full_queries", m.table_full},
  };
  std::erase_if(losses, [](const Loss& loss) { return loss.count == 0; });
  return losses;
}

std::string AccountText(const Account& account) {
  std::string text;
  for (const Sum& sum : Sums(account)) {
    const std::string parts = JoinNonZero(sum.parts, " + ");
    text += Line(sum.name, std::to_string(sum.total) + (parts.empty() ? "" : " = " + parts));
  }
  for (const auto& [name, count] : account.unknown_link_types) {
    text += Line("link type", std::to_string(count) + " packets of " + name + " are not decoded");
  }
  for (const auto& [name, count] : account.not_filtered) {
    text += Line("filter", std::to_string(count) + " packets of " + name + " cannot be filtered and were left out");
  }
  for (const capture::LiveCounts& one : account.interfaces) {
    text += Line("interface", one.interface + ": " + std::to_string(one.received) + " received, " +
                                  std::to_string(one.dropped) + " dropped by the kernel, " +
                                  std::to_string(one.dropped_by_interface) + " by the interface");
  }
  if (account.client_mask) {
    text += Line("clients", "hidden but for " + std::to_string(account.client_mask->ipv4_bits()) +
                                " bits of an IPv4 and " + std::to_string(account.client_mask->ipv6_bits()) +
                                " bits of an IPv6 address");
  }
  if (account.interrupted && account.interfaces.empty()) {
    text += Line("input", "not read to its end: the run was interrupted");
  }
  if (account.shown != account.exchanges) text += Line("shown", std::to_string(account.shown));
  const std::string details = JoinNonZero(Details(account), ", ");
  if (!details.empty()) text += Line("details", details);
  std::vector<Part> lost;
  for (const Loss& loss : Losses(account)) lost.push_back({loss.name, loss.count});
  text += Line("lost", lost.empty() ? "nothing" : JoinNonZero(lost, ", "));
  for (const std::string& wrong : Contradictions(account)) text += Line("WRONG", wrong);
  return text;
}

nlohmann::ordered_json AccountJson(const Account& account) {
  nlohmann::ordered_json json;
  for (const Sum& sum : Sums(account)) {
    auto& parts = json[std::string(sum.name)];
    parts["total"] = sum.total;
    for (const Part& part : sum.parts) parts[std::string(part.name)] = part.count;
  }
  json["exchanges"]["shown"] = account.shown;
  for (const Part& part : Details(account)) json["details"][std::string(part.name)] = part.count;
  json["unknown_link_types"] = account.unknown_link_types;
  json["not_filtered"] = account.not_filtered;
  for (const capture::LiveCounts& one : account.interfaces) {
    json["interfaces"][one.interface] = {
        {"received", one.received}, {"dropped", one.dropped}, {"dropped_by_interface", one.dropped_by_interface}};
  }
  if (account.client_mask) {
    json["client_mask"] = {{"ipv4_bits", account.client_mask->ipv4_bits()},
                           {"ipv6_bits", account.client_mask->ipv6_bits()}};
  }
  json["input_problems"] = account.input_problems;
  json["interrupted"] = account.interrupted;
  json["health"]["line"] = account.health;
  json["health"]["figures"] = HealthFigures(account.health);
  json["lost"] = nlohmann::ordered_json::object();
  for (const Loss& loss : Losses(account)) json["lost"][std::string(loss.name)] = loss.count;
  json["adds_up"] = Contradictions(account).empty();
  return json;
}

std::string AccountJsonText(const Account& account) { return AccountJson(account).dump(2) + "\n"; }

}  // namespace output
