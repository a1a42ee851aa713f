#include "collector/cli/completion.h"

#include <net/if.h>
#include <pwd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>

#include "collector/cli/options.h"
#include "collector/output/columns.h"

namespace cli {
namespace {

struct Candidate {
  std::string text;
  std::string description;
};

// What fits one place of the command line.
struct Offer {
  std::vector<Candidate> candidates;
  bool unfinished = false;
  bool files = false;
};

Offer Choices(CLI::Option& option, const std::string&) {
  Offer offer;
  for (const std::string& choice : ChoicesOf(option)) offer.candidates.push_back({choice, ""});
  return offer;
}

Offer Files(CLI::Option&, const std::string&) { return {.candidates = {}, .unfinished = false, .files = true}; }

Offer Interfaces(CLI::Option&, const std::string&) {
  Offer offer{{{"any", "all interfaces"}}};
  const std::unique_ptr<struct if_nameindex, decltype(&if_freenameindex)> all(if_nameindex(), if_freenameindex);
  if (all == nullptr) return offer;
  for (const struct if_nameindex* each = all.get(); each->if_name != nullptr; ++each) {
    offer.candidates.push_back({each->if_name, ""});
  }
  return offer;
}

Offer Users(CLI::Option&, const std::string&) {
  Offer offer;
  // NOLINTBEGIN(concurrency-mt-unsafe): completion has one thread
  setpwent();
  while (const passwd* entry = getpwent()) offer.candidates.push_back({entry->pw_name, ""});
  endpwent();
  // NOLINTEND(concurrency-mt-unsafe)
  return offer;
}

// The part of a list "a,b," that stays.
Offer Columns(CLI::Option&, const std::string& begun) {
  const std::string kept = begun.substr(0, begun.rfind(',') + 1);  // npos + 1 is 0
  Offer offer{.candidates = {}, .unfinished = true};
  for (const output::Column& column : output::AllColumns()) {
    offer.candidates.push_back({kept + std::string(column.name), ""});
  }
  return offer;
}

Offer Conditions(CLI::Option&, const std::string&) {
  Offer offer{.candidates = {}, .unfinished = true};
  for (const output::Column& column : output::AllColumns()) {
    offer.candidates.push_back({std::string(column.name) + "=", ""});
  }
  return offer;
}

Offer Keys(CLI::Option&, const std::string&) {
  Offer offer{.candidates = {}, .unfinished = true};
  for (const std::string_view key : PluginKeys()) offer.candidates.push_back({std::string(key) + "=", ""});
  return offer;
}

// An option's argument goes by the name that it has in the help, which tells what it is.
struct ArgumentKind {
  std::string_view name;
  Offer (*offer)(CLI::Option& option, const std::string& begun);
};

constexpr std::array kArguments = {
    ArgumentKind{"FORMAT", Choices},       ArgumentKind{"PATH", Files},      ArgumentKind{"IFACE", Interfaces},
    ArgumentKind{"USER", Users},           ArgumentKind{"A,B,...", Columns}, ArgumentKind{"KEY=VALUE", Keys},
    ArgumentKind{"CONDITION", Conditions},
};

Offer ValuesOf(CLI::Option& option, const std::string& begun) {
  const std::string name = option.get_type_name();
  const auto* const kind = std::ranges::find(kArguments, name, &ArgumentKind::name);
  return kind == kArguments.end() ? Offer{} : kind->offer(option, begun);
}

bool TakesValue(const CLI::Option& option) { return !option.get_type_name().empty(); }

CLI::Option* FindOption(CLI::App& app, const std::string& word) {
  if (!word.starts_with('-')) return nullptr;
  for (CLI::Option* each : app.get_options()) {
    if (!each->get_positional() && each->check_name(word)) return each;
  }
  return nullptr;
}

bool HasPositional(CLI::App& app) {
  return std::ranges::any_of(app.get_options(), [](const CLI::Option* each) { return each->get_positional(); });
}

Offer OptionsOf(CLI::App& app) {
  Offer offer;
  for (CLI::Option* each : app.get_options()) {
    for (const std::string& name : each->get_lnames()) {
      offer.candidates.push_back({"--" + name, each->get_description()});
    }
    for (const std::string& name : each->get_snames()) {
      offer.candidates.push_back({"-" + name, each->get_description()});
    }
  }
  return offer;
}

std::vector<CLI::App*> CommandsOf(CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

Offer Commands(CLI::App& app) {
  Offer offer;
  for (CLI::App* each : CommandsOf(app)) {
    offer.candidates.push_back({each->get_name(), each->get_description()});
  }
  return offer;
}

Offer FirstWord(CLI::App& app, const std::string& word) {
  if (word.starts_with('-')) return OptionsOf(app);
  Offer offer = Commands(app);
  offer.candidates.push_back({"help", "what a command does, with examples"});
  return offer;
}

// --option=value in one word.
Offer JoinedValue(CLI::App& command, const std::string& word) {
  const size_t equals = word.find('=');
  CLI::Option* option = FindOption(command, word.substr(0, equals));
  if (option == nullptr || !TakesValue(*option)) return {};
  Offer offer = ValuesOf(*option, word.substr(equals + 1));
  for (Candidate& each : offer.candidates) each.text.insert(0, word, 0, equals + 1);
  return offer;
}

Offer LaterWord(CLI::App& command, const std::vector<std::string>& words) {
  if (std::find(words.begin(), words.end() - 1, "--") != words.end() - 1) return {};  // a filter expression
  const std::string& word = words.back();
  CLI::Option* before = FindOption(command, words[words.size() - 2]);
  if (before != nullptr && TakesValue(*before)) return ValuesOf(*before, word);
  if (word.starts_with("--") && word.find('=') != std::string::npos) return JoinedValue(command, word);
  if (word.starts_with('-')) return OptionsOf(command);
  return {.candidates = {}, .unfinished = false, .files = HasPositional(command)};
}

Offer OfferFor(CLI::App& app, const std::vector<std::string>& words) {
  if (words.size() < 2) return FirstWord(app, words.empty() ? "" : words.front());
  if (words.front() == "help") return words.size() == 2 ? Commands(app) : Offer{};
  for (CLI::App* each : CommandsOf(app)) {
    if (each->get_name() == words.front()) return LaterWord(*each, words);
  }
  return {};
}

}  // namespace

std::vector<std::string> Completions(CLI::App& app, const std::vector<std::string>& words) {
  const Offer offer = OfferFor(app, words);
  const std::string begun = words.empty() ? "" : words.back();
  std::vector<std::string> lines;
  for (const Candidate& each : offer.candidates) {
    if (each.text.starts_with(begun)) lines.push_back(each.text + "\t" + each.description);
  }
  if (offer.unfinished && !lines.empty()) lines.emplace_back(":nospace");
  if (offer.files) lines.emplace_back(":files");
  return lines;
}

}  // namespace cli
