#include "collector/cli/workers.h"

#include <doctest/doctest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <optional>

#include "collector/cli/program_for_tests.h"
#include "tests/support/compress.h"

// dnspair read --workers N: the same records in the same order, whatever N is.
namespace cli {
namespace {

using test::A;
using test::ChildResult;
using test::kA;

// Many clients, so that every worker has some: answered, failing, repeated and unanswered queries, over UDP and,
// where the number ends in 7, with answers in fragments.
std::string BusyCapture(int exchanges) {
  CaptureForTests capture;
  for (int i = 0; i < exchanges; ++i) {
    const auto id = static_cast<unsigned>(i * 7 % 65536);
    const auto port = static_cast<uint16_t>(20000 + i % 30000);
    const int64_t now = i * kMillisecond;
    const std::string name = "host" + std::to_string(i % 50) + ".example";
    capture.Query(now, test::Query(id).Question(name, kA), port);
    if (i % 11 == 0) capture.Query(now, test::Query(id).Question(name, kA), port);
    if (i % 5 == 0) continue;
    capture.Response(now + kMillisecond / 2, test::Response(id).Question(name, kA).Answer(name, A("192.0.2.80")),
                     port);
  }
  capture.Nothing(exchanges * kMillisecond + 7 * kSecond);
  for (int i = 0; i < 20; ++i) {
    const auto port = static_cast<uint16_t>(1000 + i);
    capture.Query(exchanges * kMillisecond + 8 * kSecond, test::Query(9).Question("open.example", kA), port);
  }
  return capture.Bytes();
}

struct Shared {
  ChildResult result;
  nlohmann::json account;
};

Shared RunShared(const std::vector<std::string>& arguments, int workers) {
  const test::TemporaryFile account;
  std::vector<std::string> all{"read", "--account", account.path};
  all.insert(all.end(), arguments.begin(), arguments.end());
  if (workers > 0) all.insert(all.end(), {"--workers", std::to_string(workers)});
  Shared shared{RunProgram(all), {}};
  std::ifstream file(account.path);
  shared.account = nlohmann::json::parse(file, nullptr, false);
  return shared;
}

std::vector<std::string> Sorted(std::vector<std::string> lines) {
  std::sort(lines.begin(), lines.end());
  return lines;
}

// Any number of workers writes the same, and what one process writes up to the order.
void CheckSame(const std::vector<std::string>& arguments) {
  const Shared plain = RunShared(arguments, 0);
  const Shared one = RunShared(arguments, 1);
  CAPTURE(one.result.err);
  REQUIRE(one.result.ExitCode() == 0);
  CHECK(Sorted(Lines(one.result.out)) == Sorted(Lines(plain.result.out)));
  for (const int workers : {1, 2, 4}) {
    CAPTURE(workers);
    Shared several = RunShared(arguments, workers);
    CHECK(several.result.ExitCode() == 0);
    CHECK(several.result.out == one.result.out);
    CHECK(several.account["adds_up"] == true);
    several.account.erase("health");  // "mor" is each worker's own
    nlohmann::json expected = plain.account;
    expected.erase("health");
    CHECK(several.account == expected);
  }
}

TEST_CASE("the records and the account do not depend on the number of workers") {
  const test::TemporaryFile file(BusyCapture(3000));
  CheckSame({file.path, "--format", "json"});
  CheckSame({file.path, "--format", "csv"});
  CheckSame({file.path, "--format", "json", "--where", "status=timeout"});
  CheckSame({file.path, "--format", "csv", "--mask-clients", "24,48"});
}

TEST_CASE("real traffic over IPv4 and IPv6, UDP and TCP, is the same with any number of workers") {
  CheckSame({"samples/dns.pcap", "--format", "json"});
  CheckSame({"samples/dns6.pcap", "--format", "json"});
  CheckSame({"samples/dns.pcap", "samples/dns6.pcap", "--format", "json"});
}

TEST_CASE("each worker unpacks a compressed capture for itself") {
  const test::TemporaryFile plain(BusyCapture(500)), packed(test::Gzip(BusyCapture(500)));
  CheckSame({packed.path, "--format", "json"});
  CHECK(RunShared({packed.path}, 2).result.out == RunShared({plain.path}, 2).result.out);
}

TEST_CASE("records of workers come by the packet that ended their exchange") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const Shared plain = RunShared({file.path}, 0);
  CHECK(RunShared({file.path}, 2).result.out == plain.result.out);
}

TEST_CASE("a record that is longer than what workers hand on at a time arrives whole") {
  CaptureForTests capture;
  auto response = test::Response(1).Compressed().Question("aa.bb", test::kTxt);
  for (int i = 0; i < 220; ++i) response.Answer("aa.bb", test::Txt(std::string(255, '\x01')));
  capture.Query(0, test::Query(1).Question("aa.bb", test::kTxt)).Response(kMillisecond, response);
  const test::TemporaryFile file(capture.Bytes());
  const Shared plain = RunShared({file.path}, 0);
  CHECK(plain.result.out.size() > 200'000);
  CHECK(RunShared({file.path}, 2).result.out == plain.result.out);
}

TEST_CASE("a capture that is cut off is told once, and what stands before comes from all workers") {
  std::string capture = BusyCapture(300);
  capture.resize(capture.size() - 5);
  const test::TemporaryFile file(capture);
  const Shared plain = RunShared({file.path, "-q"}, 0);
  const Shared two = RunShared({file.path, "-q"}, 2);
  CHECK(two.result.ExitCode() == kRuntimeError);
  CHECK(two.result.err == plain.result.err);
  CHECK(Sorted(Lines(two.result.out)) == Sorted(Lines(plain.result.out)));
  CHECK(two.account["input_problems"] == 1);
}

TEST_CASE("workers write one file") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult result =
      RunProgram({"read", file.path, "--workers", "2", "-o", file.path + ".json", "-C", "1"});
  CHECK(result.ExitCode() == kWrongUsage);
  CHECK(Lines(result.err)[0] == "dnspair: --workers: they write one file, and -C asks for several");
}

TEST_CASE("only one worker can read standard input") {
  const ChildResult one = RunProgram({"read", "-", "--workers", "1"}, SmallCapture().Bytes());
  CHECK(one.ExitCode() == 0);
  CHECK(JsonLines(one.out).size() == 4);
  const ChildResult two = RunProgram({"read", "-", "--workers", "2"}, SmallCapture().Bytes());
  CHECK(two.ExitCode() == kWrongUsage);
  CHECK(Lines(two.err)[0] == "dnspair: --workers: '-' can be read only once, so it has to be one worker");
}

TEST_CASE("a worker whose plug-in aborts has its last words, and the run ends with an error") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult result =
      RunProgram({"read", file.path, "-q", "--workers", "2", "--plugin", FAKE_PARSER, "--set", "do=abort"});
  CHECK(result.ExitCode() == kRuntimeError);
  const std::vector<std::string> lines = Lines(result.err);
  REQUIRE(lines.size() == 3);  // the first doubts the key "do"
  CHECK(lines[1] == "dnspair: aborted (SIGABRT); at packet 1, " + file.path + ":24");
  CHECK(lines[2].starts_with("dnspair: worker "));
  CHECK(lines[2].find(" of 2 was killed by signal 6 at packet 1 of the input, in " + file.path + ";") !=
        std::string::npos);
}

TEST_CASE("workers and the sandbox exclude each other") {
  const test::TemporaryFile output("precious");
  const ChildResult result =
      RunProgram({"read", "samples/dns.pcap", "--workers", "2", "--sandbox", "on", "-o", output.path});
  CHECK(result.ExitCode() == kWrongUsage);
  CHECK(Lines(result.err)[0] == "dnspair: --workers: the sandbox allows no new processes");
  CHECK(std::ifstream(output.path).peek() == 'p');
}

TEST_CASE("workers write no table") {
  const ChildResult result = RunProgram({"read", "samples/dns.pcap", "--format", "table", "--workers", "2"});
  CHECK(result.ExitCode() == kWrongUsage);
  CHECK(result.out == "");
}

// The process that was begun first by this one.
std::optional<pid_t> FirstChild(pid_t process) {
  const std::string id = std::to_string(process);
  std::ifstream children("/proc/" + id + "/task/" + id + "/children");
  pid_t child = 0;
  if (children >> child) return child;
  return {};
}

// The program, writing into a pipe that is full until it is read.
class Stalled {
 public:
  explicit Stalled(const std::vector<std::string>& arguments) {
    int out[2];
    int err[2];
    REQUIRE(pipe(out) == 0);
    REQUIRE(pipe(err) == 0);
    process = fork();
    if (process == 0) {
      dup2(out[1], STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      for (const int fd : {out[0], out[1], err[0], err[1]}) close(fd);
      ExecProgram(arguments);
    }
    close(out[1]);
    close(err[1]);
    records = out[0];
    messages = err[0];
    char first;
    REQUIRE(read(records, &first, 1) == 1);  // the workers have begun
  }
  ~Stalled() {
    close(records);
    close(messages);
  }

  void End() {
    written = "{" + All(records);
    said = All(messages);
    waitpid(process, &status, 0);
  }
  void CloseRecords() {
    close(records);
    records = -1;
    said = All(messages);
    waitpid(process, &status, 0);
  }
  int ExitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

  pid_t process;
  std::string written;
  std::string said;

 private:
  static std::string All(int fd) {
    std::string text;
    char bytes[65536];
    for (ssize_t got; (got = read(fd, bytes, sizeof bytes)) > 0;) text.append(bytes, static_cast<size_t>(got));
    return text;
  }

  int records;
  int messages;
  int status = 0;
};

constexpr int kMoreThanPipesHold = 12000;

TEST_CASE("a worker that is killed is reported with what it was reading, and the others' records stand") {
  const test::TemporaryFile file(BusyCapture(kMoreThanPipesHold));
  Stalled run({"read", file.path, "-q", "--workers", "2", "--format", "json"});
  const auto worker = FirstChild(run.process);
  if (!worker) {
    MESSAGE("skipped: the kernel does not tell a process's children");
    run.End();
    return;
  }
  kill(*worker, SIGKILL);
  run.End();
  CHECK(run.ExitCode() == kRuntimeError);
  const std::string line = Lines(run.said).at(0);
  CHECK(line.starts_with("dnspair: worker 1 of 2 was killed by signal 9 at packet "));
  CHECK(line.find(" of the input, in " + file.path + ";") != std::string::npos);
  // More than half of the exchanges are the other worker's, or had been sent.
  const auto records = JsonLines(run.written);
  CHECK(records.size() > kMoreThanPipesHold * 4 / 10);
  CHECK(records.size() < kMoreThanPipesHold);
}

TEST_CASE("workers end quietly when nobody reads their records any more") {
  const test::TemporaryFile file(BusyCapture(kMoreThanPipesHold));
  Stalled run({"read", file.path, "-q", "--workers", "2", "--format", "json"});
  run.CloseRecords();
  CHECK(run.ExitCode() == 0);
  CHECK(run.said == "");
}

TEST_CASE("SIGUSR1 ends no run with workers") {
  const test::TemporaryFile file(BusyCapture(kMoreThanPipesHold));
  Stalled run({"read", file.path, "-q", "--workers", "2", "--format", "json"});
  kill(run.process, SIGUSR1);
  run.End();
  CHECK(run.ExitCode() == 0);
  CHECK(JsonLines(run.written).size() > kMoreThanPipesHold);
}

TEST_CASE("an interrupted run with workers reports what was read, the open queries too") {
  const test::TemporaryFile file(BusyCapture(kMoreThanPipesHold)), account;
  Stalled run({"read", file.path, "-q", "--workers", "2", "--format", "json", "--account", account.path});
  kill(run.process, SIGINT);
  run.End();
  CHECK(run.ExitCode() == kInterruptedRun);
  CHECK(run.said == "");
  std::ifstream content(account.path);
  const auto json = nlohmann::json::parse(content);
  CHECK(json["interrupted"] == true);
  CHECK(json["adds_up"] == true);
  CHECK(json["packets"]["total"] < 2 * kMoreThanPipesHold);
  CHECK(json["exchanges"]["total"] == JsonLines(run.written).size());
}

}  // namespace
}  // namespace cli
