#include "collector/cli/interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "collector/capture/stop.h"
#include "collector/top/rescue.h"

namespace cli {
namespace {

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t account_wanted = 0;
volatile std::sig_atomic_t reopen_wanted = 0;

bool Take(volatile std::sig_atomic_t* request) {
  if (*request == 0) return false;
  *request = 0;
  return true;
}

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_flags = SA_RESTART;
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

void OnInterrupt(int signal) {
  if (interrupted != 0) {
    top::RescueTerminal();
    std::signal(signal, SIG_DFL);
    raise(signal);
    return;
  }
  interrupted = 1;
  capture::StopReading();
}

}  // namespace

void PrepareSignals() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

void PrepareWorkerSignals() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigaction(SIGUSR2, &action, nullptr);
  std::signal(SIGINT, SIG_IGN);
  std::signal(SIGTERM, SIG_IGN);
}

void KeepStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free number is this one. The wrong way round, on purpose.
    open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

bool Interrupted() { return interrupted != 0; }

void PrepareAccountSignal() {
  Handle(SIGUSR1, [](int) { account_wanted = 1; });
}

void PrepareReopenSignal() {
  Handle(SIGHUP, [](int) { reopen_wanted = 1; });
}

bool TakeAccountRequest() { return Take(&account_wanted); }

bool TakeReopenRequest() { return Take(&reopen_wanted); }

}  // namespace cli
