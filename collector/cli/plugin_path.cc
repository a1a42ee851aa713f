#include "collector/cli/plugin_path.h"

#include <unistd.h>

#include <climits>
#include <stdexcept>

#include "util/path.h"

namespace cli {
namespace {

constexpr const char* kFileName = "libdns-parser.so";

std::string ProgramDirectory() {
  char target[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", target, sizeof target);
  if (length <= 0) return ".";
  const std::string program(target, static_cast<size_t>(length));
  return program.substr(0, program.rfind('/'));
}

}  // namespace

std::vector<std::string> PluginPlaces(const std::string& program_directory) {
  const char* const at = program_directory.c_str();
  return {
      path_concat(at, kFileName, nullptr),
      path_concat(at, "../dns-parser", kFileName, nullptr),
      // Relative to the program, so that an installed tree can be moved.
      path_concat(at, DNSPAIR_PLUGIN_FROM_BINDIR, kFileName, nullptr),
      path_concat(DNSPAIR_PLUGIN_DIR, kFileName, nullptr),
  };
}

std::string FindPlugin() {
  std::string tried;
  for (const std::string& place : PluginPlaces(ProgramDirectory())) {
    if (access(place.c_str(), R_OK) == 0) return place;
    tried += (tried.empty() ? "" : ", ") + place;
  }
  throw std::runtime_error("no plug-in found (looked for " + tried + "); name one with --plugin");
}

}  // namespace cli
