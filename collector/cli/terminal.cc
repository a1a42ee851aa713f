#include "collector/cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
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

size_t OutputWidth() {
  const std::string_view wanted = Environment("COLUMNS");
  const char* end = wanted.data() + wanted.size();
  size_t columns = 0;
  const auto parsed = std::from_chars(wanted.data(), end, columns);
  const bool is_number = parsed.ec == std::errc{} && parsed.ptr == end;
  return is_number && columns > 0 ? columns : TerminalWidth(STDOUT_FILENO);
}

bool WantsColours(int descriptor) {
  return IsTerminal(descriptor) && Environment("NO_COLOR").empty() && Environment("TERM") != "dumb";
}

}  // namespace cli
