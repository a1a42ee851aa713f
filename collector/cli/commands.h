#pragma once

#include <memory>
#include <span>

#include "collector/cli/options.h"

namespace CLI {
class App;
}

namespace cli {

class Consumer;

// One sub-command of the program.
struct Command {
  const char* name;
  const char* summary;   // one line
  const char* examples;  // shown below its help
  void (*add_options)(CLI::App* app, Options* options);
  int (*run)(const Options& options);  // returns the exit code
};

std::span<const Command> AllCommands();

// The program's command line as CLI11 understands it; what it parses goes into the options.
std::unique_ptr<CLI::App> MakeApp(Options* options);

// The command line as a whole: prints what there is to print and returns the exit code.
int Main(int argc, char** argv);

// read: a record for each exchange.
void AddReadOptions(CLI::App* app, Options* options);
int RunRead(const Options& options);

// live: the same for what arrives on interfaces.
void AddLiveOptions(CLI::App* app, Options* options);
int RunLiveRead(const Options& options);

// live --top: shows on the terminal what comes. `records` gets the exchanges too, unless it is null.
int RunTop(const Options& options, Consumer* records);

// summary: what people want to know first.
void AddSummaryOptions(CLI::App* app, Options* options);
int RunSummary(const Options& options);

// report: a page of HTML.
void AddReportOptions(CLI::App* app, Options* options);
int RunReport(const Options& options);

// names: which names had which addresses.
void AddNamesOptions(CLI::App* app, Options* options);
int RunNames(const Options& options);

}  // namespace cli
