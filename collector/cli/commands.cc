#include "collector/cli/commands.h"

#include <pcap/pcap.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "collector/capture/filter.h"
#include "collector/cli/completion.h"
#include "collector/cli/help_formatter.h"
#include "collector/cli/interrupt.h"
#include "collector/cli/run.h"
#include "collector/cli/suggestion.h"
#include "collector/cli/usage_error.h"
#include "host/protocol_parser.h"

namespace cli {
namespace {

constexpr Command kCommands[] = {
    {"read", "print one record for each DNS exchange in a capture",
     "Examples:\n"
     "  dnspair read samples/dns.pcap\n"
     "  dnspair read *.pcap.gz --format csv --columns ts_us,client_ip,qname,rtt_us -o slow.csv --where "
     "'rtt>100ms'\n"
     "  tcpdump -i eth0 -w - port 53 | dnspair read - --where status=timeout\n"
     "  dnspair read big.pcapng --account account.json -- host 192.0.2.1\n",
     AddReadOptions, RunRead},
    {"live", "print one record for each DNS exchange that is seen on interfaces",
     "Examples:\n"
     "  dnspair live -i eth0\n"
     "  dnspair live -i eth0 -i eth1 -Z nobody --format json -o /var/log/dnspair.json\n"
     "  dnspair live -i any --where status=timeout -- host 192.0.2.1\n"
     "  dnspair live -i eth0 --top\n"
     "  dnspair live -i eth0 -G 3600 -C 1G -o '/var/log/dns-%Y%m%d-%H.json' --mask-clients 24,48\n"
     "Ctrl-C or SIGTERM ends the run with everything written; SIGUSR1 prints the account so far; SIGHUP opens\n"
     "the file of -o again after it was moved, or begins another with -C or -G.\n"
     "Those files are called NAME.part until they are whole, and none that is there already is touched.\n",
     AddLiveOptions, RunLiveRead},
    {"summary", "rates, results and response times of a capture",
     "Examples:\n"
     "  dnspair summary samples/dns.pcap\n"
     "  dnspair summary monday.pcap.zst tuesday.pcap.zst --top 25\n"
     "  dnspair summary big.pcap --format json --where 'qname~\\.example$'\n",
     AddSummaryOptions, RunSummary},
    {"report", "rates, results and response times of a capture as a page for a browser",
     "Examples:\n"
     "  dnspair report samples/dns.pcap -o report.html\n"
     "  dnspair report monday.pcap.zst tuesday.pcap.zst --title 'Two busy days' --top 25 -o report.html\n"
     "  dnspair report big.pcap --where server_ip=192.0.2.53 -o one-server.html\n"
     "The page is one file that needs no network: it can be mailed.\n"
     "The file names of the captures stand in it, but not their folders.\n",
     AddReportOptions, RunReport},
    {"names", "the names and IPv4 addresses in a capture's answers, as a passive DNS list",
     "Examples:\n"
     "  dnspair names samples/dns.pcap\n"
     "  dnspair names big.pcap.gz --format json -o passive-dns.json\n",
     AddNamesOptions, RunNames},
};

std::string VersionText() {
  return std::string("dnspair ") + DNSPAIR_VERSION + "\nplug-in interface " + std::to_string(kParserApiVersion) +
         "\n" + pcap_lib_version();
}

// The command line in two: what CLI11 understands, and the filter expression behind "--".
struct CommandLine {
  std::vector<std::string> arguments;
  std::string filter;
};

CommandLine Split(int argc, char** argv) {
  CommandLine line;
  bool behind = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (behind) {
      line.filter += (line.filter.empty() ? "" : " ") + argument;
    } else if (argument == "--") {
      behind = true;
    } else {
      line.arguments.push_back(argument);
    }
  }
  return line;
}

int UsageProblem(const std::string& text, const std::string& help_of) {
  PrintProblem(text);
  std::fprintf(stderr, "Try '%s --help'.\n", help_of.c_str());
  return kWrongUsage;
}

const Command* FindCommand(const std::string& name) {
  const auto commands = AllCommands();
  const auto found =
      std::find_if(commands.begin(), commands.end(), [&](const Command& command) { return name == command.name; });
  return found == commands.end() ? nullptr : &*found;
}

std::string CommandNames() {
  std::string names;
  for (const Command& command : AllCommands()) names.append(names.empty() ? "" : ", ").append(command.name);
  return names;
}

std::string DidYouMean(const std::string& suggestion) { return "; did you mean '" + suggestion + "'?"; }

const Command* NeedCommand(const std::string& name) {
  if (const Command* command = FindCommand(name)) return command;
  std::vector<std::string> known = {"help"};
  for (const Command& command : AllCommands()) known.emplace_back(command.name);
  const std::string near = Suggestion(name, known);
  throw UsageError("there is no command '" + name + "'" +
                   (near.empty() ? " (only " + CommandNames() + ")" : DidYouMean(near)));
}

// "help" and "help COMMAND" in the words of the options.
std::vector<std::string> WithoutHelpCommand(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.front() != "help") return arguments;
  if (arguments.size() == 1 || arguments[1] == "help") return {"--help"};
  if (arguments[1].starts_with('-')) return {arguments[1]};
  return {NeedCommand(arguments[1])->name, "--help"};
}

// What is wrong with the first argument that the command has no use for.
std::string UnknownArgument(const CLI::App& app, const std::vector<std::string>& arguments) {
  const std::string& argument = arguments.front();
  if (!argument.starts_with('-')) return "the argument '" + argument + "' has no place here";
  const std::string option = argument.substr(0, argument.find('='));
  std::vector<std::string> known;
  for (const CLI::Option* each : app.get_options()) {
    for (const std::string& name : each->get_lnames()) known.push_back("--" + name);
  }
  const std::string near = Suggestion(option, known);
  return "there is no option '" + option + "'" + (near.empty() ? "" : DidYouMean(near));
}

// The command stands first, so that an option of it cannot be taken for one of the program. Null when the first
// argument is an option of the program; UsageError when it is neither.
const Command* ChooseCommand(const CommandLine& line) {
  if (line.arguments.empty()) throw UsageError("no command given (one of " + CommandNames() + ")");
  return line.arguments.front().starts_with('-') ? nullptr : NeedCommand(line.arguments.front());
}

// What the shells' completions ask for; see completion.h.
int PrintCompletions(const std::vector<std::string>& words) {
  Options options;
  const std::unique_ptr<CLI::App> app = MakeApp(&options);
  for (const std::string& line : Completions(*app, words)) std::puts(line.c_str());
  return 0;
}

int RunCommand(const Command& command, const Options& options) {
  try {
    return command.run(options);
  } catch (const UsageError&) {
    throw;
  } catch (const capture::FilterError& error) {
    throw UsageError(error.what());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    PrintProblem(error.what());
  } catch (...) {
    PrintProblem("the plug-in threw an exception of an unknown kind");
  }
  return kRuntimeError;
}

// An empty value is a mistake, such as a variable of the shell that is not set: never a way to say nothing.
void RefuseEmptyValues(CLI::App* app) {
  const auto refuse = [](const std::string& value) { return value.empty() ? "an empty text is no value" : ""; };
  for (CLI::Option* option : app->get_options()) {
    if (option->get_items_expected_max() > 0) option->check(CLI::Validator(refuse, "", ""));
  }
}

// What no single option can see.
void Settle(Options* options) {
  if (options->output_file == "-") options->output_file.clear();
  if (options->account_file == "-") throw UsageError("--account: an account goes into a file, and '-' is none");
  const auto twice = [](std::vector<std::string> all) {
    std::ranges::sort(all);
    const auto same = std::ranges::adjacent_find(all);
    return same == all.end() ? std::string() : *same;
  };
  if (const std::string name = twice(options->interfaces); !name.empty()) {
    throw UsageError("--interface: '" + name + "' is named twice");
  }
  if (std::ranges::count(options->files, "-") > 1) throw UsageError("standard input can be read only once");
}

// Help that nobody can read is no success.
int FlushedOutput(int code) {
  if (std::cout.flush() && std::fflush(stdout) == 0) return code;
  PrintProblem("standard output: " + std::generic_category().message(errno));
  return kRuntimeError;
}

}  // namespace

std::span<const Command> AllCommands() { return kCommands; }

std::unique_ptr<CLI::App> MakeApp(Options* options) {
  auto app = std::make_unique<CLI::App>("Pairs DNS queries with their responses.", "dnspair");
  app->formatter(std::make_shared<HelpFormatter>());
  app->require_subcommand(1);
  app->footer("'dnspair help COMMAND' says more, with examples.");
  app->set_version_flag("--version", VersionText(),
                        "the version of the program, its plug-in interface and libpcap");
  for (const Command& command : AllCommands()) {
    CLI::App* sub = app->add_subcommand(command.name, command.summary)->group("Commands");
    sub->footer(std::string("An argument -- is followed by a filter expression as tcpdump takes it.\n\n") +
                command.examples);
    command.add_options(sub, options);
    RefuseEmptyValues(sub);
  }
  return app;
}

int Main(int argc, char** argv) try {
  KeepStandardDescriptors();
  PrepareSignals();
  if (argc > 1 && argv[1] == std::string_view("--complete")) return PrintCompletions({argv + 2, argv + argc});
  CommandLine line = Split(argc, argv);
  Options options;
  options.filter = line.filter;
  std::string help_of = "dnspair";
  try {
    line.arguments = WithoutHelpCommand(line.arguments);
    const Command* command = ChooseCommand(line);
    if (command != nullptr) help_of.append(" ").append(command->name);
    // One set of options for all commands: they write to the same place, and only one command is chosen.
    const std::unique_ptr<CLI::App> app = MakeApp(&options);
    std::reverse(line.arguments.begin(), line.arguments.end());  // as CLI11 wants them
    try {
      app->parse(line.arguments);
    } catch (const CLI::Success& success) {
      return FlushedOutput(app->exit(success));
    } catch (const CLI::ParseError& error) {
      const CLI::App& at = command == nullptr ? *app : *app->get_subcommand(command->name);
      const std::vector<std::string> unknown = at.remaining(true);
      // A misspelt option is why another one is missing.
      const auto is = [&](CLI::ExitCodes code) { return error.get_exit_code() == static_cast<int>(code); };
      const bool unexpected =
          command == nullptr || is(CLI::ExitCodes::ExtrasError) || is(CLI::ExitCodes::RequiredError);
      throw UsageError(unexpected && !unknown.empty() ? UnknownArgument(at, unknown) : error.what());
    }
    if (command == nullptr) throw UsageError("the command has to stand first (one of " + CommandNames() + ")");
    Settle(&options);
    return RunCommand(*command, options);
  } catch (const UsageError& error) {
    return UsageProblem(error.what(), help_of);
  }
} catch (const std::bad_alloc&) {
  std::fputs("dnspair: out of memory\n", stderr);  // as it stands here: there is no memory to compose it in
  return kRuntimeError;
}

}  // namespace cli
