#include "collector/top/rescue.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

#include "collector/top/held_messages.h"

namespace top {
namespace {

// Signals that end the process by default and that nobody else here listens to.
constexpr std::array kFatal = {SIGABRT, SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,  SIGSYS,
                               SIGTRAP, SIGQUIT, SIGALRM, SIGUSR2, SIGXCPU, SIGXFSZ};

// What a signal handler needs lies ready here.
volatile std::sig_atomic_t armed = 0;
termios modes;
std::array<char, 256> undo;
size_t undo_length = 0;
std::array<struct sigaction, kFatal.size()> before;

// The action that was there before has the last word.
void OnFatal(int signal) {
  RescueTerminal();
  for (size_t i = 0; i < kFatal.size(); ++i) {
    if (kFatal.at(i) == signal) sigaction(signal, &before.at(i), nullptr);
  }
  raise(signal);
}

}  // namespace

Rescue::Rescue() {
  undo_length = 0;
  if (tcgetattr(STDOUT_FILENO, &modes) != 0) return;
  armed = 1;
  struct sigaction action {};
  action.sa_handler = OnFatal;
  action.sa_flags = SA_ONSTACK;  // where somebody has made one, for a stack that has overflowed
  // With all others blocked: from the background, setting modes would stop the process by SIGTTOU.
  sigfillset(&action.sa_mask);
  for (size_t i = 0; i < kFatal.size(); ++i) sigaction(kFatal.at(i), &action, &before.at(i));
}

Rescue::~Rescue() {
  if (armed == 0) return;
  armed = 0;
  for (size_t i = 0; i < kFatal.size(); ++i) sigaction(kFatal.at(i), &before.at(i), nullptr);
}

void Rescue::SetBytes(const std::string& bytes) {
  undo_length = std::min(bytes.size(), undo.size());
  std::copy_n(bytes.begin(), undo_length, undo.begin());
}

void RescueTerminal() {
  if (armed == 0) return;
  armed = 0;
  const int saved = errno;
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, undo.data(), undo_length);
  tcsetattr(STDOUT_FILENO, TCSANOW, &modes);
  ReleaseMessages();
  errno = saved;
}

}  // namespace top
