#include "collector/cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace cli {
namespace {

std::string_view Environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody changes the environment
  return value == nullptr ? "" : value;
}

}  // namespace

bool IsTerminal(int descriptor) { return isatty(descriptor) != 0; }

size_t TerminalWidth(int descriptor) {
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

bool WantsColours(int descriptor) {
  return IsTerminal(descriptor) && Environment("NO_COLOR").empty() && Environment("TERM") != "dumb";
}

}  // namespace cli
