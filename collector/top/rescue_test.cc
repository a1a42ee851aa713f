#include "collector/top/rescue.h"

#include <doctest/doctest.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "collector/top/held_messages.h"

namespace top {
namespace {

struct Outcome {
  std::string text;   // what the terminal got
  bool echo = false;  // whether the terminal echoes in the end, as it did at first
  int status = 0;
};

void SetEcho(bool on) {
  termios modes{};
  tcgetattr(STDOUT_FILENO, &modes);
  modes.c_lflag = on ? modes.c_lflag | ECHO : modes.c_lflag & ~static_cast<tcflag_t>(ECHO);
  tcsetattr(STDOUT_FILENO, TCSANOW, &modes);
}

// Runs the body in a process with a terminal of its own.
Outcome OnTerminal(const std::function<void()>& body) {
  int terminal = -1;
  int other = -1;
  REQUIRE(openpty(&terminal, &other, nullptr, nullptr, nullptr) == 0);
  const pid_t child = fork();
  REQUIRE(child >= 0);
  if (child == 0) {
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    for (const int number : {SIGABRT, SIGSEGV, SIGQUIT}) signal(number, SIG_DFL);
    login_tty(other);
    body();
    _exit(0);
  }
  // `other` stays open here, so that the terminal keeps its modes.
  Outcome outcome;
  char bytes[4096];
  bool ended = false;
  while (true) {
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(terminal, &ready);
    timeval moment{0, 20000};
    if (select(terminal + 1, &ready, nullptr, nullptr, &moment) > 0) {
      outcome.text.append(bytes, static_cast<size_t>(read(terminal, bytes, sizeof bytes)));
    } else if (ended) {
      break;
    }
    ended = ended || waitpid(child, &outcome.status, WNOHANG) == child;
  }
  termios modes{};
  tcgetattr(terminal, &modes);
  outcome.echo = (modes.c_lflag & ECHO) != 0;
  close(terminal);
  close(other);
  return outcome;
}

int SignalOf(const Outcome& outcome) { return WIFSIGNALED(outcome.status) ? WTERMSIG(outcome.status) : 0; }

// A screen that is up: echo is off, and a message was held.
void Damage(Rescue* rescue) {
  SetEcho(false);
  rescue->SetBytes("<undone>");
  std::fputs("message", stderr);
}

TEST_CASE("a process that aborts leaves the terminal as it was, and its last words behind that") {
  const Outcome outcome = OnTerminal([] {
    Rescue rescue;
    const HeldMessages held;
    Damage(&rescue);
    abort();
  });
  CHECK(SignalOf(outcome) == SIGABRT);
  CHECK(outcome.echo);
  CHECK(outcome.text == "<undone>message");
}

TEST_CASE("so does a process that is told to quit") {
  const Outcome outcome = OnTerminal([] {
    Rescue rescue;
    const HeldMessages held;
    Damage(&rescue);
    raise(SIGQUIT);
  });
  CHECK(SignalOf(outcome) == SIGQUIT);
  CHECK(outcome.echo);
  CHECK(outcome.text == "<undone>message");
}

TEST_CASE("a signal handler that was there before still has its turn") {
  const Outcome outcome = OnTerminal([] {
    signal(SIGABRT, [](int) { _exit(42); });
    Rescue rescue;
    Damage(&rescue);
    abort();
  });
  CHECK(WEXITSTATUS(outcome.status) == 42);
  CHECK(outcome.echo);
}

TEST_CASE("without a screen there is nothing to rescue") {
  const Outcome outcome = OnTerminal([] {
    {
      Rescue rescue;
      rescue.SetBytes("<undone>");
    }
    RescueTerminal();
    abort();
  });
  CHECK(SignalOf(outcome) == SIGABRT);
  CHECK(outcome.text == "");
}

TEST_CASE("messages that were held come out in the end, the newest of very many") {
  const Outcome outcome = OnTerminal([] {
    {
      const HeldMessages held;
      const std::string line(999, 'x');
      for (int i = 0; i < 500; ++i) {
        std::fprintf(stderr, "%s\n", line.c_str());
        if (i % 7 == 0) HeldMessages::Trim();
      }
      std::fputs("last\n", stderr);
      [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "screen ", 7);
    }
    std::fputs("after", stderr);
  });
  CHECK(outcome.text.starts_with("screen x"));
  CHECK(outcome.text.ends_with("x\r\nlast\r\nafter"));
  CHECK(outcome.text.size() > 65000);
  CHECK(outcome.text.size() < 66000);
}

}  // namespace
}  // namespace top
