#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

// Fatal checks. They guard against our own mistakes (a view longer than its message, a broken invariant), never
// against packets: one line on standard error, then the process aborts. There is no recovery and no lock; two
// threads that fail at once may mix their text.

#pragma GCC visibility push(default)
extern "C" {
// The scratch buffer that every fatal check formats its line into. Exported so that a core file shows it by name.
extern char _fprintf_output_buffer[512];

// Writes the local wall-clock time to `fd` with one write: 27 characters, "YYYY-MM-DD HH:MM:SS.uuuuuu-", with no
// newline. Output errors are ignored.
void g_print_timestamp(int fd);
}
#pragma GCC visibility pop

// Names one fatal check in the line it prints. File and line are part of what operators search for, so they belong
// to the check and stay with it when code moves.
struct CheckSite {
  const char* file;
  int line;
  const char* condition;
};

// Ends a fatal check whose line stands in _fprintf_output_buffer: writes it to standard error and aborts.
// `formatted` is the formatter's result. Negative: nothing is written. Above 511: the line was cut, and is written
// as 511 characters that end in "..." without a newline.
[[noreturn, gnu::cold]] inline void abort_with_line(int formatted) {
  if (formatted < 0) std::abort();
  constexpr int kLongest = static_cast<int>(sizeof _fprintf_output_buffer) - 1;
  if (formatted > kLongest) {
    formatted = kLongest;
    for (int i = kLongest - 3; i < kLongest; ++i) _fprintf_output_buffer[i] = '.';
  }
  [[maybe_unused]] const ssize_t written =
      write(fileno(stderr), _fprintf_output_buffer, static_cast<size_t>(formatted));
  std::abort();
}

// A condition that must hold does not: "{ERROR}-<file>:<line>: failed condition: <condition>".
[[noreturn, gnu::cold]] inline void check_failed(const char* file, int line, const char* condition) {
  g_print_timestamp(2);
  abort_with_line(std::snprintf(_fprintf_output_buffer, sizeof _fprintf_output_buffer,
                                "{ERROR}-%s:%d: failed condition: %s\n", file, line, condition));
}

// check_failed of the string utilities. Their one check has no "{ERROR}-" in front, on purpose: the line has always
// looked like this, and whoever greps for it expects it so.
[[noreturn, gnu::cold]] inline void check_failed_unprefixed(const char* file, int line, const char* condition) {
  g_print_timestamp(2);
  abort_with_line(std::snprintf(_fprintf_output_buffer, sizeof _fprintf_output_buffer,
                                "%s:%d: failed condition: %s\n", file, line, condition));
}

// A branch that must not run does: "{ERROR}-<file>:<line>: should not be reached".
[[noreturn, gnu::cold]] inline void not_reached(const char* file, int line) {
  g_print_timestamp(2);
  abort_with_line(std::snprintf(_fprintf_output_buffer, sizeof _fprintf_output_buffer,
                                "{ERROR}-%s:%d: should not be reached\n", file, line));
}

inline void check(bool holds, const CheckSite& site) {
  if (!holds) [[unlikely]]
    check_failed(site.file, site.line, site.condition);
}
