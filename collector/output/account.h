#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collector/capture/live.h"
#include "collector/flow/flow_table.h"
#include "collector/output/client_mask.h"
#include "collector/packet/decoder.h"
#include "collector/plugin/session.h"

namespace output {

// Where every packet and every message of a run went. Filled in by one process; the accounts of several that shared
// the conversations among them can be added.
struct Account {
  static constexpr size_t kOutcomes = static_cast<size_t>(packet::Outcome::kCount);
  static constexpr size_t kDeliveries = static_cast<size_t>(flow::Delivery::kCount);

  uint64_t packets = 0;
  uint64_t filtered = 0;                         // packets that the filter expression left out
  std::map<std::string, uint64_t> not_filtered;  // of these: link types that the expression cannot be compiled for
  std::array<uint64_t, kOutcomes> outcomes{};
  std::array<uint64_t, kDeliveries> deliveries{};
  std::map<std::string, uint64_t> unknown_link_types;

  packet::FragmentCounts fragments;
  uint64_t fragments_held = 0;  // still waiting at the end
  flow::Counts flows;
  plugin::MessageCounts messages;
  uint64_t clock_steps_back = 0;

  uint64_t exchanges = 0;       // delivered
  uint64_t waiting = 0;         // begun, and neither ended nor given up: none once a run has ended
  uint64_t shown = 0;           // of these, written: the others did not fulfil the conditions
  uint64_t input_problems = 0;  // inputs that were damaged or could not be read
  bool interrupted = false;     // by the user, before the input ended

  std::vector<capture::LiveCounts> interfaces;  // of a live run
  std::optional<ClientMask> client_mask;        // where clients were hidden

  std::string health;  // the plug-in's line
};

// What all processes see of their common input counts in the account of one of them; this leaves in another's what
// belongs to its own conversations.
void KeepOwnShare(Account* account);

// Adds the account of another process, its own share. Health lines are added figure by figure.
void AddAccount(Account* sum, const Account& other);

// What does not add up, a sentence each. Empty for every run: anything else is a defect of ours.
std::vector<std::string> Contradictions(const Account& account);

// One way in which traffic was lost that a complete capture, a whole file or a larger table would have kept.
struct Loss {
  std::string_view name;
  uint64_t count;
};

// What was lost, without the zeros.
std::vector<Loss> Losses(const Account& account);

// For people, some lines; every total stands before the parts that it is the sum of.
std::string AccountText(const Account& account);

nlohmann::ordered_json AccountJson(const Account& account);
std::string AccountJsonText(const Account& account);  // indented, with a line feed at its end

}  // namespace output
