#include "collector/cli/worker_report.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <type_traits>

namespace cli {
namespace {

using output::Account;

struct Figures {
  uint64_t packets;
  uint64_t filtered;
  decltype(Account::outcomes) outcomes;
  decltype(Account::deliveries) deliveries;
  decltype(Account::fragments) fragments;
  uint64_t fragments_held;
  decltype(Account::flows) flows;
  decltype(Account::messages) messages;
  uint64_t clock_steps_back;
  uint64_t exchanges;
  uint64_t shown;
  uint64_t input_problems;
};
static_assert(std::is_trivially_copyable_v<Figures>);

}  // namespace

std::string Pack(const WorkerReport& report) {
  const Account& a = report.account;
  const Figures figures{a.packets, a.filtered, a.outcomes,         a.deliveries, a.fragments, a.fragments_held,
                        a.flows,   a.messages, a.clock_steps_back, a.exchanges,  a.shown,     a.input_problems};
  const nlohmann::json texts = {{"not_filtered", a.not_filtered},
                                {"unknown_link_types", a.unknown_link_types},
                                {"health", a.health},
                                {"problems", report.problems}};
  std::string packed(sizeof figures, '\0');
  std::memcpy(packed.data(), &figures, sizeof figures);
  for (const uint8_t byte : nlohmann::json::to_cbor(texts)) packed.push_back(static_cast<char>(byte));
  return packed;
}

WorkerReport Unpack(std::string_view packed) {
  Figures f;
  std::memcpy(&f, packed.data(), sizeof f);
  const nlohmann::json texts = nlohmann::json::from_cbor(packed.substr(sizeof f));
  WorkerReport report;
  Account& a = report.account;
  a.packets = f.packets;
  a.filtered = f.filtered;
  a.outcomes = f.outcomes;
  a.deliveries = f.deliveries;
  a.fragments = f.fragments;
  a.fragments_held = f.fragments_held;
  a.flows = f.flows;
  a.messages = f.messages;
  a.clock_steps_back = f.clock_steps_back;
  a.exchanges = f.exchanges;
  a.shown = f.shown;
  a.input_problems = f.input_problems;
  texts["not_filtered"].get_to(a.not_filtered);
  texts["unknown_link_types"].get_to(a.unknown_link_types);
  texts["health"].get_to(a.health);
  texts["problems"].get_to(report.problems);
  return report;
}

}  // namespace cli
