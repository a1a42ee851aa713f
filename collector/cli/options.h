#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace cli {

// What the user asked for. Commands take the parts that they understand.
struct Options {
  std::vector<std::string> files;
  std::string filter;  // what stood behind "--"

  std::string plugin;                 // "" for the one that belongs to this program
  std::vector<std::string> settings;  // KEY=VALUE
  int verbosity = 0;
  bool quiet = false;
  std::vector<uint16_t> ports;
  bool separate_vlans = false;
  std::string account_file;
  bool strict = false;
  std::string sandbox;      // "on", "off" or "" for the usual
  std::string client_mask;  // prefix lengths, "" to show clients as they are

  std::vector<std::string> interfaces;  // of a live run
  int snap_length = 262144;
  bool no_promiscuous = false;
  int buffer_mib = 16;    // of the kernel, for each interface
  uint32_t workers = 0;   // on captures; 0: one process does it all, in the order in which exchanges end
  std::string user;       // whom the run belongs to once everything is open
  bool show_top = false;  // a screen instead of records

  std::string format;  // "" for the usual one of the output at hand
  std::string columns;
  std::vector<std::string> where;
  std::string output_file;
  std::string rotate_size;     // "" for files of any size
  int64_t rotate_seconds = 0;  // 0 for no end
  size_t top = 10;
  std::string title;  // of a page, "" for one made of the captures' names
};

// FILE, for commands that read captures.
void AddFileOptions(CLI::App* app, Options* options);

// -i and what belongs to it, for commands that watch interfaces.
void AddInterfaceOptions(CLI::App* app, Options* options);

// The options of every command that looks at packets.
void AddInputOptions(CLI::App* app, Options* options);

// -o, and --format with these choices.
void AddOutputOptions(CLI::App* app, Options* options, const std::vector<std::string>& formats,
                      const std::string& explanation);

// The formats that AddOutputOptions gave this option; none for another option.
std::vector<std::string> ChoicesOf(CLI::Option& option);

// -o.
void AddOutputFileOption(CLI::App* app, Options* options);

// --columns.
void AddColumnsOption(CLI::App* app, Options* options);

// --top, for commands whose output has lists.
void AddListLengthOption(CLI::App* app, Options* options);

// --title.
void AddTitleOption(CLI::App* app, Options* options);

// --workers.
void AddWorkersOption(CLI::App* app, Options* options);

// -C, and -G where time goes on while the run waits.
void AddRotationOptions(CLI::App* app, Options* options, bool with_time);

// --where.
void AddWhereOption(CLI::App* app, Options* options);

// The configuration keys that plug-ins of this interface know.
std::span<const std::string_view> PluginKeys();

// The plug-in's configuration, from KEY=VALUE texts. Throws UsageError for what has no key, and for values that a
// known key does not take. Keys that no plug-in of this interface knows are passed on, and named in `unknown`.
std::map<std::string, std::string> PluginArguments(const std::vector<std::string>& settings,
                                                   std::vector<std::string>* unknown);

}  // namespace cli
