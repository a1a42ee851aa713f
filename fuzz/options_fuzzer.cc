// The command line's texts: options, settings, conditions, columns, as a user may mistype them. An argument a line
// behind the command's number.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <bit>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "collector/cli/commands.h"
#include "collector/cli/conditions.h"
#include "collector/cli/options.h"
#include "collector/cli/rotate.h"
#include "collector/cli/suggestion.h"
#include "collector/cli/usage_error.h"
#include "collector/output/client_mask.h"
#include "collector/output/columns.h"
#include "collector/output/exchange_for_tests.h"
#include "collector/output/where.h"
#include "fuzz/draw.h"
#include "fuzz/recording_sink.h"
#include "fuzz/target.h"
#include "host/protocol_parser.h"

namespace fuzz {
namespace {

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    lines.emplace_back(line);
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return lines;
}

// The C library takes its time over these, and their memory: whoever writes one on his own command line waits.
bool IsCostlyPattern(std::string_view condition) {
  return condition.size() > 100 || condition.find_first_of("{\\") != std::string_view::npos;
}

// The condition with the opposite operator, "" where there is none.
std::string Opposite(const std::string& condition) {
  static constexpr std::array<std::array<std::string_view, 2>, 9> kOpposites = {{{"!=", "="},
                                                                                 {"!~", "~"},
                                                                                 {"<=", ">"},
                                                                                 {"==", "!="},
                                                                                 {">=", "<"},
                                                                                 {"=", "!="},
                                                                                 {"<", ">="},
                                                                                 {">", "<="},
                                                                                 {"~", "!~"}}};
  const size_t at = condition.find_first_of("=!<>~");
  for (const auto& [sign, opposite] : kOpposites) {
    if (!std::string_view(condition).substr(at).starts_with(sign)) continue;
    return condition.substr(0, at).append(opposite).append(condition.substr(at + sign.size()));
  }
  return "";
}

void CheckCondition(const std::string& text) {
  if (text.find('~') != std::string::npos && IsCostlyPattern(text)) return;
  output::ExchangeForTests answered;
  output::ExchangeForTests open;
  open.TimeOut();
  open.encapsulation = nullptr;
  const output::Condition condition(text);
  const output::Condition opposite(Opposite(text));
  const bool orders = text.find_first_of("<>") == text.find_first_of("=!<>~");
  for (const plugin::Exchange* exchange :
       {static_cast<const plugin::Exchange*>(&answered), static_cast<const plugin::Exchange*>(&open)}) {
    const bool holds = condition.Holds(*exchange);
    const bool fails = opposite.Holds(*exchange);
    Must(!(holds && fails), "a condition and its opposite do not hold together");
    Must(holds || fails || orders, "a condition or its opposite holds");  // nothing is less than what is absent
  }
}

void CheckColumns(const std::string& text) {
  const output::ColumnList columns = output::ParseColumns(text);
  std::string names;
  for (const output::Column* column : columns) names.append(names.empty() ? "" : ",").append(column->name);
  Must(names == text, "the columns are those that were named");
}

// A parser takes any setting, or refuses it without leaving anything behind.
void CheckSettings(const std::vector<std::string>& texts) {
  std::vector<std::string> unknown;
  const std::map<std::string, std::string> settings = cli::PluginArguments(texts, &unknown);
  Must(settings.size() <= texts.size() && unknown.size() <= texts.size(), "a setting has one key");
  Host::log_level = 5;
  const Host host;
  RecordingSink sink;
  auto* parser = static_cast<ITimedProtocolParser*>(get_parser_default(0, &host.table, settings));
  parser->request_sink = &sink;
  parser->Heartbeat({1});
  Must(parser->GetHealthEvent() != nullptr, "a parser has a health line");
  destroy_parser_default(parser);
}

// The mask keeps so many bits of an address and no others, however often it is laid over it.
void CheckMask(const std::string& text) {
  const output::ClientMask mask(text);
  Must(mask.ipv4_bits() >= 0 && mask.ipv4_bits() <= 32, "an IPv4 address has 32 bits");
  Must(mask.ipv6_bits() >= 0 && mask.ipv6_bits() <= 128, "an IPv6 address has 128 bits");
  for (const uint8_t version : {uint8_t{4}, uint8_t{6}}) {
    packet::Address address;
    address.version = version;
    std::fill_n(address.octets.begin(), version == 4 ? 4 : 16, uint8_t{0xff});
    const packet::Address masked = mask.Applied(address);
    int bits = 0;
    for (const uint8_t octet : masked.octets) bits += std::popcount(octet);
    Must(bits == (version == 4 ? mask.ipv4_bits() : mask.ipv6_bits()), "a mask keeps as many bits as it says");
    Must(mask.Applied(masked) == masked, "what is masked stays as it is");
  }
}

void CheckRotation(const cli::Options& options) {
  if (!options.rotate_size.empty())
    Must(cli::ParseFileSize(options.rotate_size) > 0, "a file has room for something");
  Must(options.rotate_seconds >= 0, "a file is not over before it begins");
  const auto settings = cli::RotationFrom(options);
  if (!settings) return;
  Must(!settings->name.empty() && (settings->bytes > 0 || settings->seconds > 0), "files have a name and an end");
}

template <typename Check>
void Try(Check check) {
  try {
    check();
  } catch (const std::runtime_error& error) {  // the conditions' and the columns', and UsageError
    Must(*error.what() != '\0', "what is refused is told why");
  }
}

void Run(uint8_t number, std::string_view text) {
  const auto commands = cli::AllCommands();
  const cli::Command& command = commands[number % commands.size()];
  CLI::App app;
  cli::Options options;
  command.add_options(&app, &options);
  std::vector<std::string> arguments = Lines(text);
  for (const std::string& argument : arguments) {
    if (argument.size() > 40) continue;
    const std::string meant = cli::Suggestion(argument, {"read", "summary", "names", "live", "--where"});
    Must(meant.empty() || cli::TypingMistakes(argument, meant) <= meant.size(), "a suggestion is near");
  }
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    Must(*error.what() != '\0' || error.get_exit_code() == 0, "what is refused is told why");
    return;
  }
  for (const uint16_t port : options.ports) Must(port > 0, "a port is from 1 to 65535");
  Must(options.snap_length >= 64 && options.snap_length <= 262144, "the snap length is in its range");
  for (const std::string& condition : options.where) Try([&] { CheckCondition(condition); });
  if (!options.columns.empty()) Try([&] { CheckColumns(options.columns); });
  if (!options.client_mask.empty()) Try([&] { CheckMask(options.client_mask); });
  Try([&] { CheckRotation(options); });
  Try([&] { CheckSettings(options.settings); });
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  const uint8_t command = input.U8();
  fuzz::Run(command, input.Rest());
  return 0;
}
