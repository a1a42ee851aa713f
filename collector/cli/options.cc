#include "collector/cli/options.h"

#include <strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <sstream>

#include "collector/cli/usage_error.h"

namespace cli {
namespace {

constexpr std::array<std::string_view, 4> kPluginKeys = {"max_open_requests", "enable_dnssec", "enable_axfr",
                                                         "request_timeout_s"};

// What the plug-in takes for something else than it looks like is refused: "1.5" for 1, "-5" and "2x" for no
// number, and every word that it does not know for no.
void RequireNumber(const std::string& key, const std::string& value) {
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  const bool whole = error == std::errc() && end == value.data() + value.size();
  if (!whole || number > std::numeric_limits<int32_t>::max()) {
    throw UsageError("--set: " + key + " takes a number from 0 to 2147483647, and not '" + value + "'");
  }
}
void RequireBoolean(const std::string& key, const std::string& value) {
  static constexpr std::array kWords = {"true", "yes", "on", "1", "false", "no", "off", "0"};
  const auto same = [&](const char* word) { return strcasecmp(word, value.c_str()) == 0; };
  if (std::ranges::none_of(kWords, same)) {
    throw UsageError("--set: " + key + " takes true, yes, on or 1, or false, no, off or 0, and not '" + value +
                     "'");
  }
}
void RequireValue(const std::string& key, const std::string& value) {
  key.starts_with("enable_") ? RequireBoolean(key, value) : RequireNumber(key, value);
}

// An option that may be given several times, with one value each.
CLI::Option* Repeated(CLI::Option* option) { return option->allow_extra_args(false); }

}  // namespace

void AddFileOptions(CLI::App* app, Options* options) {
  app->add_option("FILE", options->files,
                  "captures: pcap or pcapng, plain or compressed with gzip or zstd; - for standard input; several "
                  "are merged by time")
      ->type_name("")
      ->required();
}

void AddInterfaceOptions(CLI::App* app, Options* options) {
  Repeated(app->add_option("-i,--interface", options->interfaces, "watch this interface; any for all of them"))
      ->type_name("IFACE")
      ->required();
  app->add_option("--snaplen", options->snap_length, "bytes kept of a packet, 64 to 262144 (262144)")
      ->check(CLI::Range(64, 262144).description(""))
      ->type_name("BYTES");
  app->add_flag("--no-promiscuous", options->no_promiscuous, "only packets for this machine");
  app->add_option("--buffer", options->buffer_mib, "the kernel's buffer for each interface, 1 to 1024 (16)")
      ->check(CLI::Range(1, 1024).description(""))
      ->type_name("MIB");
  app->add_option("-Z,--user", options->user, "give up privileges for this user once the interfaces are open")
      ->type_name("USER");
  app->add_flag("--top", options->show_top,
                "a screen with rates, response times and who asks what, renewed every second; h shows its keys; "
                "records are written with -o only");
}

void AddInputOptions(CLI::App* app, Options* options) {
  Repeated(app->add_option("--port", options->ports, "DNS ports, instead of 53"))
      ->delimiter(',')
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("PORT,...");
  app->add_flag("--separate-vlans", options->separate_vlans,
                "conversations in different VLANs and tunnels are different ones");
  app->add_option("--plugin", options->plugin, "the parser plug-in to load")->type_name("PATH");
  Repeated(app->add_option("--set", options->settings,
                           "a configuration key for the plug-in: max_open_requests, enable_dnssec, enable_axfr, "
                           "request_timeout_s; dnspair-read(1) explains them"))
      ->type_name("KEY=VALUE");
  app->add_flag("-v,--verbose", options->verbosity, "the plug-in's log on standard error; twice: its traces too");
  app->add_flag("-q,--quiet", options->quiet, "no health line, no account and no progress on standard error");
  app->add_option("--account", options->account_file, "write the account there as JSON")->type_name("PATH");
  app->add_option("--sandbox", options->sandbox,
                  "allow only the system calls that a run needs (seccomp): on (usual for live) or off")
      ->check(CLI::IsMember({"on", "off"}).description(""))
      ->type_name("on|off");
  app->add_option(
         "--mask-clients", options->client_mask,
         "hide clients: of their addresses only so many bits of IPv4 and of IPv6 are written, such as 24,48")
      ->type_name("BITS,BITS");
  app->add_flag("--strict", options->strict, "exit with 3 when anything was lost");
}

void AddOutputOptions(CLI::App* app, Options* options, const std::vector<std::string>& formats,
                      const std::string& explanation) {
  app->add_option("--format", options->format, explanation)
      ->check(CLI::IsMember(formats).description("").name(CLI::detail::join(formats, ",")))
      ->type_name("FORMAT");
  AddOutputFileOption(app, options);
}

void AddOutputFileOption(CLI::App* app, Options* options) {
  app->add_option("-o,--output", options->output_file, "write there instead of to standard output")
      ->type_name("PATH");
}

std::vector<std::string> ChoicesOf(CLI::Option& option) {
  std::vector<std::string> choices;
  std::istringstream names(option.get_validator(0)->get_name());
  for (std::string name; std::getline(names, name, ',');) choices.push_back(name);
  return choices;
}

void AddColumnsOption(CLI::App* app, Options* options) {
  app->add_option("--columns", options->columns, "the columns to write, in this order; dnspair-read(1) lists them")
      ->type_name("A,B,...");
}

void AddListLengthOption(CLI::App* app, Options* options) {
  app->add_option("--top", options->top, "how many servers, names and so on to list, 1 to 1000000 (10)")
      ->check(CLI::Range(1, 1'000'000).description(""))
      ->type_name("NUMBER");
}

void AddTitleOption(CLI::App* app, Options* options) {
  app->add_option("--title", options->title, "what the page is called; usually after the captures")
      ->type_name("TEXT");
}

void AddWorkersOption(CLI::App* app, Options* options) {
  app->add_option("--workers", options->workers, "processes that share the conversations, 1 to 64; not for tables")
      ->check(CLI::Range(1, 64).description(""))
      ->type_name("NUMBER");
}

void AddRotationOptions(CLI::App* app, Options* options, bool with_time) {
  app->add_option(
         "-C,--rotate-size", options->rotate_size,
         "begin another file when the one of -o has so many millions of bytes, or KiB, MiB or GiB with a K, M "
         "or G behind the number")
      ->type_name("SIZE");
  if (!with_time) return;
  app->add_option(
         "-G,--rotate-seconds", options->rotate_seconds,
         "begin another file at each multiple of this time, 1 to 31536000; strftime puts the time into the name "
         "of -o, in UTC: dns-%Y%m%d-%H%M%S.json")
      ->check(CLI::Range(1, 31536000).description(""))
      ->type_name("SECONDS");
}

void AddWhereOption(CLI::App* app, Options* options) {
  Repeated(app->add_option(
               "--where", options->where,
               "only exchanges that fulfil the condition, for example rcode=NXDOMAIN, 'rtt>100ms', "
               "status=timeout, 'qname~\\.example$'; all of several conditions; dnspair-read(1) lists columns, "
               "operators and units"))
      ->type_name("CONDITION");
}

std::span<const std::string_view> PluginKeys() { return kPluginKeys; }

std::map<std::string, std::string> PluginArguments(const std::vector<std::string>& settings,
                                                   std::vector<std::string>* unknown) {
  std::map<std::string, std::string> arguments;
  for (const std::string& setting : settings) {
    const size_t equals = setting.find('=');
    if (equals == std::string::npos || equals == 0) throw UsageError("--set: '" + setting + "' is not KEY=VALUE");
    const std::string key = setting.substr(0, equals);
    const std::string value = setting.substr(equals + 1);
    if (std::ranges::find(kPluginKeys, key) != kPluginKeys.end()) {
      RequireValue(key, value);
    } else {
      unknown->push_back(key);
    }
    arguments[key] = value;
  }
  return arguments;
}

}  // namespace cli
