#pragma once

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#ifdef DNSPAIR_COVERAGE
extern "C" void __gcov_dump(void);
#endif

// Runs code that ends the process, or prints, in a child process, and hands back what it wrote and how it ended.

namespace test {

// What became of a child.
struct ChildResult {
  std::string out;  // everything it wrote to standard output
  std::string err;  // and to standard error
  int status = 0;   // as waitpid gives it

  bool Aborted() const { return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT; }
  // The exit code, or -1 when a signal ended the child.
  int ExitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

namespace death_detail {

// Counters of a coverage build would be lost with a process that aborts or leaves by _exit.
inline void SaveCoverage(int = 0) {
#ifdef DNSPAIR_COVERAGE
  __gcov_dump();
#endif
}

[[noreturn]] inline void Leave(int code) {
  fflush(stdout);
  fflush(stderr);
  SaveCoverage();
  _exit(code);
}

// The child's life. The test framework's signal handlers would print a report of their own, so they go first.
[[noreturn]] inline void RunBody(const std::function<void()>& body, int out, int err) {
  for (const int number : {SIGABRT, SIGSEGV, SIGFPE, SIGILL, SIGBUS, SIGINT, SIGTERM}) signal(number, SIG_DFL);
#ifdef DNSPAIR_COVERAGE
  signal(SIGABRT, SaveCoverage);
#endif
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  try {
    body();
  } catch (const std::exception& failure) {
    fprintf(stderr, "exception left the child: %s\n", failure.what());
    Leave(120);
  } catch (...) {
    fputs("exception left the child\n", stderr);
    Leave(120);
  }
  Leave(0);
}

// Reads both pipes until both are closed: reading one after the other would block a child that fills the other.
inline void ReadAll(std::array<pollfd, 2> pipes, std::array<std::string*, 2> texts) {
  while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
    if (poll(pipes.data(), pipes.size(), -1) < 0) continue;
    for (size_t i = 0; i < pipes.size(); ++i) {
      if (pipes[i].revents == 0) continue;
      char chunk[4096];
      const ssize_t got = read(pipes[i].fd, chunk, sizeof chunk);
      if (got > 0) {
        texts[i]->append(chunk, static_cast<size_t>(got));
      } else {
        close(pipes[i].fd);
        pipes[i].fd = -1;  // poll passes over it
      }
    }
  }
}

}  // namespace death_detail

// Runs `body` in a forked child. A body that returns gives exit code 0; an exception that leaves it is named on the
// child's standard error and gives exit code 120. Checks inside the body do not reach the test: hand their outcome
// over as output or as an exit code.
inline ChildResult RunInChild(const std::function<void()>& body) {
  ChildResult result;
  int out[2];
  int err[2];
  if (pipe(out) != 0 || pipe(err) != 0) throw std::runtime_error("pipe failed");
  fflush(stdout);
  fflush(stderr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    close(out[0]);
    close(err[0]);
    death_detail::RunBody(body, out[1], err[1]);
  }
  close(out[1]);
  close(err[1]);
  death_detail::ReadAll({{{out[0], POLLIN, 0}, {err[0], POLLIN, 0}}}, {&result.out, &result.err});
  waitpid(child, &result.status, 0);
  return result;
}

// The length of "YYYY-MM-DD HH:MM:SS.uuuuuu-", which opens each fatal line.
inline constexpr size_t kTimestampLength = 27;

// True when `text` starts with such a time stamp.
inline bool StartsWithTimestamp(const std::string& text) {
  constexpr char kShape[] = "dddd-dd-dd dd:dd:dd.dddddd-";
  static_assert(sizeof kShape - 1 == kTimestampLength);
  if (text.size() < kTimestampLength) return false;
  for (size_t i = 0; i < kTimestampLength; ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kShape[i] == 'd' ? !digit : text[i] != kShape[i]) return false;
  }
  return true;
}

// The line that `body` dies with: what it wrote to standard error behind the time stamp. When it did not abort, or
// wrote anything else, the text says so instead and equals no line of ours.
inline std::string FatalLine(const std::function<void()>& body) {
  const ChildResult child = RunInChild(body);
  if (!child.Aborted()) return "(did not abort: status " + std::to_string(child.status) + ") " + child.err;
  if (!child.out.empty()) return "(wrote to standard output) " + child.out;
  if (!StartsWithTimestamp(child.err)) return "(no time stamp) " + child.err;
  return child.err.substr(kTimestampLength);
}

}  // namespace test
