#include "collector/cli/last_words.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstring>
#include <string_view>

namespace cli {

Position position;

namespace {

struct Fatal {
  int signal;
  const char* what;
};
constexpr std::array kFatal = {
    Fatal{SIGABRT, "aborted (SIGABRT)"},
    Fatal{SIGSEGV, "crashed (SIGSEGV)"},
    Fatal{SIGBUS, "crashed (SIGBUS)"},
    Fatal{SIGFPE, "crashed (SIGFPE)"},
    Fatal{SIGILL, "crashed (SIGILL)"},
    Fatal{SIGSYS, "stopped by its sandbox (SIGSYS): it made a system call that no run needs"},
};

const std::vector<std::string>* inputs = nullptr;

// A line put together without memory of its own: everything here runs in a signal handler.
class Line {
 public:
  Line& Text(std::string_view text) {
    const size_t room = bytes.size() - size;
    size = static_cast<size_t>(std::copy_n(text.data(), std::min(text.size(), room), bytes.data() + size) -
                               bytes.data());
    return *this;
  }
  Line& Number(uint64_t number) {
    std::array<char, 20> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return Text({digits.data(), static_cast<size_t>(end - digits.data())});
  }
  // File names may hold anything.
  Line& Printable(std::string_view text) {
    const size_t start = size;
    Text(text);
    std::replace_if(
        bytes.data() + start, bytes.data() + size,
        [](char each) { return static_cast<unsigned char>(each) < 0x20 || each == 0x7f; }, '?');
    return *this;
  }
  void Write() const { [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, bytes.data(), size); }

 private:
  std::array<char, 1024> bytes;
  size_t size = 0;
};

void OnFatal(int signal) {
  const auto* fatal =
      std::find_if(kFatal.begin(), kFatal.end(), [&](const Fatal& each) { return each.signal == signal; });
  Line line;
  line.Text("dnspair: ").Text(fatal == kFatal.end() ? "ended" : fatal->what);
  if (position.frame == nullptr) {
    line.Text("; behind packet ").Number(position.packets);
  } else {
    line.Text("; at packet ").Number(position.packets);
    if (inputs != nullptr && position.frame->source < inputs->size()) {
      line.Text(", ").Printable((*inputs)[position.frame->source]).Text(":").Number(position.frame->offset);
    }
  }
  line.Text("\n").Write();
  raise(signal);  // SA_RESETHAND: this time as if nobody listened
}

// A stack that has overflowed has no room for a handler.
void PrepareStack() {
  static std::array<char, size_t{64} << 10> memory;
  stack_t before{};
  if (sigaltstack(nullptr, &before) != 0 || (before.ss_flags & SS_DISABLE) == 0) return;
  const stack_t stack{.ss_sp = memory.data(), .ss_flags = 0, .ss_size = memory.size()};
  sigaltstack(&stack, nullptr);
}

}  // namespace

void PrepareLastWords(const std::vector<std::string>* files) {
  inputs = files;
  PrepareStack();
  struct sigaction action {};
  action.sa_handler = OnFatal;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_ONSTACK);
  for (const Fatal& fatal : kFatal) {
    struct sigaction before {};
    sigaction(fatal.signal, nullptr, &before);
    // A sanitizer says more than we could.
    if (before.sa_handler == SIG_DFL) sigaction(fatal.signal, &action, nullptr);
  }
}

}  // namespace cli
