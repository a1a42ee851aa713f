#include "collector/cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "collector/cli/terminal.h"

namespace cli {
namespace {

constexpr size_t kBarWidth = 24;

// "1.5 GB", in steps of a thousand.
std::string Scaled(double amount, const char* unit) {
  static constexpr std::array<const char*, 5> kPrefixes = {"", "k", "M", "G", "T"};
  size_t prefix = 0;
  for (; amount >= 999.5 && prefix + 1 < kPrefixes.size(); ++prefix) amount /= 1000;
  char text[48];
  const int decimals = prefix == 0 || amount >= 99.95 ? 0 : 1;
  std::snprintf(text, sizeof text, "%.*f %s%s", decimals, amount, kPrefixes[prefix], unit);
  return text;
}

// "1:02:03", hours only where there are some.
std::string Duration(double seconds) {
  const auto whole = static_cast<uint64_t>(std::clamp(seconds, 0.0, 359999.0));
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%u:%02u:%02u", static_cast<unsigned>(whole / 3600),
                  static_cast<unsigned>(whole / 60 % 60), static_cast<unsigned>(whole % 60));
  } else {
    std::snprintf(text, sizeof text, "%u:%02u", static_cast<unsigned>(whole / 60),
                  static_cast<unsigned>(whole % 60));
  }
  return text;
}

void WriteLine(const std::string& text) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

std::string ProgressLine(const ProgressFigures& figures, size_t width) {
  const double seconds = std::max(figures.seconds, 1e-3);
  std::string line;
  std::string left;
  if (figures.bytes_total > 0) {
    const double done =
        std::min(1.0, static_cast<double>(figures.bytes_read) / static_cast<double>(figures.bytes_total));
    const auto filled = static_cast<size_t>(done * kBarWidth);
    line = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
    line += std::to_string(static_cast<int>(done * 100)) + "%  ";
    if (done > 0) left = ", " + Duration(seconds / done - seconds) + " left";
  }
  line += Scaled(static_cast<double>(figures.bytes_read), "B");
  line += ", " + Scaled(static_cast<double>(figures.packets) / seconds, "packets/s") + left;
  if (line.size() > width) line.resize(width);
  return line;
}

Progress::Progress(bool wanted) : enabled(wanted && IsTerminal(STDERR_FILENO)) {}

bool Progress::Due() { return enabled && Clock::now() >= next; }

void Progress::Show(ProgressFigures figures) {
  const Clock::time_point now = Clock::now();
  figures.seconds = std::chrono::duration<double>(now - begin).count();
  next = now + std::chrono::milliseconds(200);
  shown = true;
  // Not the last column: some terminals would go to the next line.
  WriteLine("\r" + ProgressLine(figures, TerminalWidth(STDERR_FILENO) - 1) + "\033[K");
}

void Progress::Clear() {
  if (shown) WriteLine("\r\033[K");
  shown = false;
}

}  // namespace cli
