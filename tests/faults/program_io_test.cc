#include <doctest/doctest.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "collector/cli/program_for_tests.h"
#include "tests/support/compress.h"

// The program while its files are taken away from it: inputs, outputs, the plug-in, and its life.

namespace {

using cli::CaptureForTests;
using cli::Content;
using cli::kMillisecond;
using test::ChildResult;
using test::kA;
using test::RunInChild;

// The records of a text that is made of whole lines.
size_t WholeRecords(const std::string& text) {
  CHECK((text.empty() || text.back() == '\n'));
  return cli::JsonLines(text).size();
}

// Exchanges far apart: behind each comes a frame of another protocol, so that the capture has megabytes.
constexpr int kExchanges = 700;
std::string LongCapture() {
  CaptureForTests capture;
  for (int i = 0; i < kExchanges; ++i) {
    const auto id = static_cast<unsigned>(i);
    capture.Query(i * kMillisecond, test::Query(id).Question("www.example", kA));
    capture.Response(i * kMillisecond + 1, test::Response(id).Question("www.example", kA));
    capture.Frame(i * kMillisecond + 2, test::Packet().Ethernet().Type(0x0806).Text(std::string(8000, 'x')));
  }
  return capture.Bytes();
}

// The program, fed by hand, or held up in the midst of its input: nobody takes its records until it is let go on.
class Held {
 public:
  explicit Held(const std::vector<std::string>& arguments) {
    int in[2];
    int out[2];
    REQUIRE(pipe2(in, O_CLOEXEC) == 0);
    REQUIRE(pipe2(out, O_CLOEXEC) == 0);
    process = fork();
    if (process == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      if (std::freopen(messages.path.c_str(), "w", stderr) == nullptr) _exit(99);
      for (const int number : {SIGBUS, SIGSEGV}) signal(number, SIG_DFL);
      setenv("ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0", 1);  // a sanitizer would have the last word
      cli::ExecProgram(arguments);
    }
    close(in[0]);
    close(out[1]);
    input = in[1];
    output = out[0];
  }
  ~Held() {
    if (process > 0) Kill();
    close(input);
    close(output);
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

  void Feed(const std::string& bytes) const {
    REQUIRE(write(input, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }
  // Waits for the first byte of the records.
  void UntilItWrites() {
    records.resize(1);
    REQUIRE(read(output, records.data(), 1) == 1);
  }
  void LetGo() {
    close(std::exchange(input, -1));
    char bytes[65536];
    for (ssize_t got; (got = read(output, bytes, sizeof bytes)) > 0;)
      records.append(bytes, static_cast<size_t>(got));
    waitpid(std::exchange(process, -1), &status, 0);
  }
  void Kill() {
    kill(process, SIGKILL);
    waitpid(std::exchange(process, -1), &status, 0);
  }
  int ExitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
  std::string Said() const { return Content(messages.path); }

  std::string records;
  int status = 0;

 private:
  test::TemporaryFile messages;
  pid_t process = -1;
  int input = -1;
  int output = -1;
};

const std::vector<std::string> kQuietly = {"read", "-q", "--format", "json"};

std::vector<std::string> Quietly(std::vector<std::string> more) {
  more.insert(more.begin(), kQuietly.begin(), kQuietly.end());
  return more;
}

// Runs the program with a disk of 64 KiB at /mnt that nobody else sees. What stands in /mnt/out in the end comes as
// standard output. Exit code 77: this process may not mount disks.
ChildResult OnSmallDisk(const std::vector<std::string>& arguments) {
  return RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(77);
    if (mount("tmpfs", "/mnt", "tmpfs", 0, "size=65536") != 0) _exit(77);
    const pid_t program = fork();
    if (program == 0) cli::ExecProgram(arguments);
    int status = 0;
    waitpid(program, &status, 0);
    std::fputs(Content("/mnt/out").c_str(), stdout);
    std::fflush(stdout);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
  });
}

}  // namespace

TEST_CASE("a disk that fills up ends the run with the file's name, and leaves whole lines") {
  const test::TemporaryFile file(LongCapture());
  const ChildResult result = OnSmallDisk(Quietly({file.path, "-o", "/mnt/out"}));
  if (result.ExitCode() == 77) {
    MESSAGE("skipped: a disk of one's own needs root");
    return;
  }
  CHECK(result.ExitCode() == 1);
  CHECK(result.err == "dnspair: /mnt/out: No space left on device\n");
  CHECK(result.out.size() > 60'000);
  const size_t records = WholeRecords(result.out);
  CHECK(records > 50);
  CHECK(cli::RunProgram(Quietly({file.path})).out.starts_with(result.out));
}

TEST_CASE("a capture that another file replaces is read to its own end") {
  const std::string capture = LongCapture();
  const test::TemporaryFile file(capture), other("no capture");
  Held run(Quietly({file.path}));
  run.UntilItWrites();
  std::filesystem::copy_file(other.path, file.path + ".new");
  std::filesystem::rename(file.path + ".new", file.path);
  run.LetGo();
  CHECK(run.ExitCode() == 0);
  CHECK(run.Said() == "");
  CHECK(WholeRecords(run.records) == kExchanges);
}

TEST_CASE("a capture that is cut while it is read gives what is left of it, plain or compressed") {
  for (const bool compressed : {false, true}) {
    CAPTURE(compressed);
    const std::string capture = LongCapture();
    const test::TemporaryFile file(compressed ? test::Gzip(capture, 0) : capture);
    Held run(Quietly({file.path}));
    run.UntilItWrites();
    std::filesystem::resize_file(file.path, capture.size() - 500'000);
    run.LetGo();
    CHECK(run.ExitCode() == 1);
    CHECK(run.Said().starts_with("dnspair: " + file.path + ":"));
    CHECK(run.Said().find(": the file became shorter while it was read") != std::string::npos);
    CHECK(WholeRecords(run.records) > kExchanges - kExchanges * 600'000 / capture.size());
    CHECK(WholeRecords(run.records) < kExchanges);
  }
}

TEST_CASE("a capture that is overwritten while it is read is an error and no crash") {
  const std::string capture = LongCapture();
  const test::TemporaryFile file(capture);
  Held run(Quietly({file.path}));
  run.UntilItWrites();
  file.Write(std::string(capture.size(), '\xff'));
  run.LetGo();
  CHECK(run.ExitCode() == 1);
  CHECK(run.Said().starts_with("dnspair: " + file.path + ":"));
  CHECK(WholeRecords(run.records) > 100);
  CHECK(WholeRecords(run.records) < kExchanges);
}

TEST_CASE("a run that is killed leaves whole lines in its file") {
  const test::TemporaryFile records("old");
  Held run(Quietly({"-", "-o", records.path}));
  run.Feed(cli::SmallCapture().Bytes());
  while (Content(records.path).size() < 10) usleep(10'000);
  run.Kill();
  CHECK(WholeRecords(Content(records.path)) == 3);
}

TEST_CASE("a plug-in that is replaced by another file goes on as it was") {
  const test::TemporaryFile plug_in(Content(DNS_PARSER));
  Held run(Quietly({"-", "--plugin", plug_in.path}));
  const std::string capture = cli::SmallCapture().Bytes();
  run.Feed(capture.substr(0, 400));
  run.UntilItWrites();
  std::ofstream(plug_in.path + ".new") << "no library";
  std::filesystem::rename(plug_in.path + ".new", plug_in.path);
  run.Feed(capture.substr(400));
  run.LetGo();
  CHECK(run.ExitCode() == 0);
  CHECK(WholeRecords(run.records) == 4);
}

TEST_CASE("a plug-in whose file is cut ends the run with last words at the packet, behind whole lines") {
  const test::TemporaryFile plug_in(Content(DNS_PARSER));
  Held run(Quietly({"-", "--plugin", plug_in.path}));
  const std::string capture = cli::SmallCapture().Bytes();
  run.Feed(capture.substr(0, 400));
  run.UntilItWrites();
  std::filesystem::resize_file(plug_in.path, 0);
  run.Feed(capture.substr(400));
  run.LetGo();
  CHECK(WIFSIGNALED(run.status));
  CHECK(WTERMSIG(run.status) == SIGBUS);
  CHECK(run.Said().find("dnspair: crashed (SIGBUS); at packet ") != std::string::npos);
  CHECK(run.Said().find(", -:") != std::string::npos);
  CHECK(WholeRecords(run.records) >= 1);
}
