#include "collector/cli/terminal.h"

#include <doctest/doctest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <thread>

#include "collector/cli/program_for_tests.h"

namespace cli {
namespace {

// What the program shows on a terminal of this width, line ends as "\n".
std::string OnTerminal(const std::vector<std::string>& arguments, uint16_t width,
                       const std::map<std::string, std::string>& environment = {}) {
  winsize size{};
  size.ws_col = width;
  size.ws_row = 24;
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  REQUIRE(child >= 0);
  if (child == 0) {
    setenv("TERM", "xterm", 1);
    for (const char* name : {"NO_COLOR", "COLUMNS"}) unsetenv(name);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    ExecProgram(arguments);
  }
  std::string text;
  char bytes[4096];
  for (ssize_t got = 0; (got = read(terminal, bytes, sizeof bytes)) > 0;)
    text.append(bytes, static_cast<size_t>(got));
  close(terminal);
  waitpid(child, nullptr, 0);
  std::erase(text, '\r');
  return text;
}

TEST_CASE("a terminal gets the table, in its width and in colour") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto lines = Lines(OnTerminal({"read", file.path, "-q"}, 130));
  REQUIRE(lines.size() == 5);
  CHECK(lines[0].starts_with("\033[1mTIME (UTC)"));
  CHECK(lines[1].size() == 130);
  CHECK(lines[1].ends_with(".."));
  CHECK(lines[3].starts_with("\033[31m"));
  CHECK(Lines(OnTerminal({"read", file.path, "-q"}, 80)).at(0).starts_with("\033[1mTIME UTC CLIENT "));
}

TEST_CASE("COLUMNS says how much of a terminal is used") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto shown = [&](uint16_t width, const std::map<std::string, std::string>& environment) {
    return OnTerminal({"read", file.path, "-q"}, width, environment);
  };
  CHECK(shown(200, {{"COLUMNS", "80"}}) == shown(80, {}));
  CHECK(shown(80, {{"COLUMNS", "200"}}) == shown(200, {}));
  for (const char* nonsense : {"", "0", "-5", "80x", "99999999999999999999"}) {
    CAPTURE(nonsense);
    CHECK(shown(100, {{"COLUMNS", nonsense}}) == shown(100, {}));
  }
}

TEST_CASE("a pipe gets whole lines, whatever COLUMNS says") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const std::vector<std::string> arguments = {"read", file.path, "-q", "--format", "table"};
  const std::string text = test::RunInChild([&] {
                             setenv("COLUMNS", "80", 1);
                             ExecProgram(arguments);
                           }).out;
  CHECK(text.starts_with("TIME (UTC)                 CLIENT "));
  CHECK(text == RunProgram(arguments).out);
}

TEST_CASE("NO_COLOR is respected") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  CHECK(OnTerminal({"read", file.path, "-q"}, 100, {{"NO_COLOR", "1"}}).find('\033') == std::string::npos);
  CHECK(OnTerminal({"read", file.path, "-q"}, 100, {{"NO_COLOR", ""}}).find('\033') != std::string::npos);
}

TEST_CASE("a terminal can have JSON too, whole and without colour") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const std::string text = OnTerminal({"read", file.path, "-q", "--format", "json"}, 40);
  CHECK(text.find('\033') == std::string::npos);
  CHECK(JsonLines(text).size() == 4);
}

TEST_CASE("a file gets JSON even when a terminal looks on") {
  const test::TemporaryFile file(SmallCapture().Bytes()), output;
  CHECK(OnTerminal({"read", file.path, "-q", "-o", output.path}, 100) == "");
  CHECK(RunProgram({"read", file.path, "-q"}).out.size() > 0);
}

// The program's standard error on a terminal while it reads a capture that takes its time to come.
std::string WhileReadingSlowly(const std::vector<std::string>& options) {
  const std::string capture = SmallCapture().Bytes();
  const test::TemporaryFile fifo;
  unlink(fifo.path.c_str());
  REQUIRE(mkfifo(fifo.path.c_str(), 0600) == 0);
  std::thread writer([&] {
    const int fd = open(fifo.path.c_str(), O_WRONLY);
    const auto put = [&](size_t from, size_t to) {
      [[maybe_unused]] const ssize_t written = write(fd, capture.data() + from, to - from);
      usleep(300000);
    };
    const size_t step = capture.size() / 5;
    for (size_t i = 0; i < 5; ++i) put(i * step, i == 4 ? capture.size() : (i + 1) * step);
    close(fd);
  });
  std::vector<std::string> arguments = {"summary", fifo.path, "-o", "/dev/null"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const std::string text = OnTerminal(arguments, 80);
  writer.join();
  return text;
}

TEST_CASE("a long run shows its progress on a terminal and takes it away at the end") {
  const std::string text = WhileReadingSlowly({});
  CHECK(text.find("packets/s") != std::string::npos);
  CHECK(text.find("\033[Kparser:dns ") != std::string::npos);
  CHECK(WhileReadingSlowly({"-q"}) == "");
}

TEST_CASE("a short run shows none") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  CHECK(OnTerminal({"summary", file.path, "-o", "/dev/null"}, 80).find("packets/s") == std::string::npos);
}

TEST_CASE("a terminal is spared a page of HTML, and told what to do") {
  const test::TemporaryFile file(SmallCapture().Bytes()), page;
  const std::string text = OnTerminal({"report", file.path, "-q"}, 80);
  CHECK(text.find("<html") == std::string::npos);
  CHECK(text.find("-o report.html") != std::string::npos);
  CHECK(OnTerminal({"report", file.path, "-q", "-o", page.path}, 80) == "");
}

TEST_CASE("a pipe is no terminal") {
  int ends[2];
  REQUIRE(pipe(ends) == 0);
  CHECK_FALSE(IsTerminal(ends[1]));
  CHECK_FALSE(WantsColours(ends[1]));
  CHECK(TerminalWidth(ends[1]) == 80);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace cli
