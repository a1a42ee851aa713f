#include "collector/cli/rotate.h"

#include <sys/stat.h>

#include <charconv>
#include <string_view>

#include "collector/cli/usage_error.h"

namespace cli {
namespace {

struct Unit {
  std::string_view suffix;
  uint64_t bytes;
};
constexpr Unit kUnits[] = {{"", 1000000},  {"k", 1 << 10}, {"K", 1 << 10}, {"m", 1 << 20},
                           {"M", 1 << 20}, {"g", 1 << 30}, {"G", 1 << 30}};

}  // namespace

uint64_t ParseFileSize(const std::string& text) {
  uint64_t count = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, count);
  const std::string_view suffix(parsed.ptr, static_cast<size_t>(end - parsed.ptr));
  constexpr uint64_t kMost = uint64_t{1} << 33;  // of the largest unit still fits
  for (const Unit& unit : kUnits) {
    if (parsed.ec == std::errc() && suffix == unit.suffix && count > 0 && count < kMost) return count * unit.bytes;
  }
  throw UsageError("-C: '" + text + "' is no size such as 100 (million bytes), 512K, 64M or 2G");
}

std::optional<output::RotationSettings> RotationFrom(const Options& options) {
  if (options.rotate_size.empty() && options.rotate_seconds == 0) return std::nullopt;
  if (options.output_file.empty()) throw UsageError("-C and -G end files: say with -o how they are called");
  struct stat status {};
  if (stat(options.output_file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw UsageError("-C and -G: '" + options.output_file + "' is not the name of a file");
  }
  output::RotationSettings settings;
  settings.name = options.output_file;
  settings.seconds = options.rotate_seconds;
  if (!options.rotate_size.empty()) settings.bytes = ParseFileSize(options.rotate_size);
  return settings;
}

}  // namespace cli
