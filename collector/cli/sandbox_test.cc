#include "collector/cli/sandbox.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "collector/cli/program_for_tests.h"

using test::ChildResult;
using test::RunInChild;

namespace cli {
namespace {

// Leaves without what a sanitizer or a coverage build does at the end.
ChildResult Confined(const SandboxSettings& settings, const std::function<bool()>& body) {
  return RunInChild([&] {
    if (!EnterSandbox(settings)) _exit(77);
    _exit(body() ? 0 : 1);
  });
}

bool Available() {
  static const bool available = Confined({}, [] { return true; }).ExitCode() == 0;
  if (!available) MESSAGE("skipped: this kernel offers no filter of system calls");
  return available;
}

bool IsStopped(const std::function<void()>& call, const SandboxSettings& settings = {}) {
  const ChildResult child = Confined(settings, [&] {
    call();
    return true;
  });
  return WIFSIGNALED(child.status) && WTERMSIG(child.status) == SIGSYS;
}

bool OpensForWriting(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  return fd >= 0 && write(fd, "x", 1) == 1 && close(fd) == 0;
}

TEST_CASE("a sandboxed process reads, writes, allocates, waits and starts threads") {
  if (!Available()) return;
  const test::TemporaryFile file("content");
  const ChildResult child = Confined({}, [&] {
    char content[7];
    const int fd = open(file.path.c_str(), O_RDONLY);
    if (read(fd, content, sizeof content) != sizeof content) return false;
    int sum = 0;
    std::thread([&] { sum = static_cast<int>(std::string(10'000'000, '\1').size()); }).join();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return sum == 10'000'000 && write(STDOUT_FILENO, content, sizeof content) == sizeof content;
  });
  CHECK(child.ExitCode() == 0);
  CHECK(child.out == "content");
}

TEST_CASE("a sandboxed process that starts a program, a process or a connection is stopped") {
  if (!Available()) return;
  CHECK(IsStopped([] { execl("/bin/true", "true", nullptr); }));
  CHECK(IsStopped([] { fork(); }));
  CHECK(IsStopped([] { socket(AF_INET, SOCK_STREAM, 0); }));
}

TEST_CASE("a sandboxed process cannot type into its terminal") {
  if (!Available()) return;
  CHECK(IsStopped([] { ioctl(0, TIOCSTI, "x"); }));
}

TEST_CASE("a sandboxed process opens files for writing only where its run writes some") {
  if (!Available()) return;
  const test::TemporaryFile file;
  CHECK(IsStopped([&] { OpensForWriting(file.path); }));
  CHECK(IsStopped([&] { std::rename(file.path.c_str(), file.path.c_str()); }));
  CHECK(Confined({.creates_files = true}, [&] { return OpensForWriting(file.path); }).ExitCode() == 0);
}

TEST_CASE("a sandboxed run reads every kind of capture as any other run does") {
  if (!Available()) return;
  for (const char* command : {"read", "summary", "names"}) {
    const ChildResult open_run = RunProgram({command, "samples/dns.pcap", "samples/dns6.pcap", "--sandbox", "off"});
    const ChildResult confined = RunProgram({command, "samples/dns.pcap", "samples/dns6.pcap", "--sandbox", "on"});
    CHECK(confined.ExitCode() == 0);
    CHECK(confined.out == open_run.out);
    CHECK(!confined.out.empty());
  }
}

TEST_CASE("a sandboxed run ends one file by its size and begins the next, as any other run does") {
  if (!Available()) return;
  std::map<std::string, std::string> files[2];  // what each name holds
  for (const bool confined : {false, true}) {
    const test::TemporaryFile name;
    const std::string folder = name.path + ".d";
    std::filesystem::create_directory(folder);
    const ChildResult run = RunProgram({"read", "-q", "samples/dns.pcap", "--format", "json", "-o", folder + "/dns",
                                        "-C", "16k", "--sandbox", confined ? "on" : "off"});
    CHECK(run.ExitCode() == 0);
    CHECK(run.err == "");
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
      std::ostringstream content;
      content << std::ifstream(file.path(), std::ios::binary).rdbuf();
      files[confined ? 1 : 0][file.path().filename()] = content.str();
    }
    std::filesystem::remove_all(folder);
  }
  CHECK(files[0].size() > 2);
  CHECK(files[0] == files[1]);
}

TEST_CASE("a plug-in that opens a socket ends a sandboxed run with a clear word, and no other") {
  if (!Available()) return;
  const test::TemporaryFile file(SmallCapture().Bytes());
  const std::vector<std::string> run = {"read",  file.path,   "--plugin", FAKE_PARSER,
                                        "--set", "do=socket", "--sandbox"};
  std::vector<std::string> confined = run;
  confined.emplace_back("on");
  const ChildResult child = RunProgram(confined);
  CHECK(WIFSIGNALED(child.status));
  CHECK(child.err.find("stopped by its sandbox (SIGSYS)") != std::string::npos);
  CHECK(child.err.find("at packet 1, " + file.path) != std::string::npos);
  std::vector<std::string> free_run = run;
  free_run.emplace_back("off");
  CHECK(RunProgram(free_run).ExitCode() == 0);
}

}  // namespace
}  // namespace cli
