#include "collector/cli/run.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <utility>

#include "collector/cli/program_for_tests.h"
#include "tests/support/compress.h"

// What a run does when all is well, and when it is not: exit codes, messages, files.
namespace cli {
namespace {

using test::ChildResult;
using test::kA;
using test::RunInChild;

TEST_CASE("records can go to a file") {
  const test::TemporaryFile file(SmallCapture().Bytes()), output("old");
  const ChildResult result = RunProgram({"read", file.path, "-o", output.path});
  CHECK(result.ExitCode() == 0);
  CHECK(result.out == "");
  CHECK(Content(output.path) == RunProgram({"read", file.path}).out);
}

TEST_CASE("a missing file is named, and the others are read") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult result = RunProgram({"read", "/nowhere/at.all", file.path});
  CHECK(result.ExitCode() == kRuntimeError);
  CHECK(JsonLines(result.out).size() == 4);
  CHECK(Lines(result.err)[0] == "dnspair: /nowhere/at.all: No such file or directory");
}

TEST_CASE("where nothing can be read one line says why") {
  CHECK(RunProgram({"read", "/nowhere/at.all"}).err == "dnspair: /nowhere/at.all: No such file or directory\n");
  CHECK(RunProgram({"summary", "/"}).err == "dnspair: /: Is a directory\n");
}

TEST_CASE("what stands before the damage in a file is delivered") {
  std::string capture = SmallCapture().Bytes();
  capture.resize(capture.size() - 5);
  const test::TemporaryFile file(capture);
  const ChildResult result = RunProgram({"read", file.path});
  CHECK(result.ExitCode() == kRuntimeError);
  CHECK(JsonLines(result.out).size() == 3);
  CHECK(Lines(result.err)[0].starts_with("dnspair: " + file.path + ":"));
}

TEST_CASE("a file that is no capture is an error and no crash") {
  const test::TemporaryFile file("certainly no capture");
  const ChildResult result = RunProgram({"read", file.path});
  CHECK(result.ExitCode() == kRuntimeError);
  CHECK(result.out == "");
  CHECK(Lines(result.err)[0].starts_with("dnspair: " + file.path));
}

TEST_CASE("a plug-in that is none is refused before anything else") {
  const test::TemporaryFile file(SmallCapture().Bytes()), output("precious");
  for (const char* plug_in : {"/nowhere/at.all", "/proc/self/exe"}) {
    const ChildResult result = RunProgram({"read", file.path, "-o", output.path, "--plugin", plug_in});
    CHECK(result.ExitCode() == kRuntimeError);
    CHECK(Lines(result.err).size() == 1);
    CHECK(result.err.starts_with("dnspair: "));
    CHECK(result.err.find(plug_in) != std::string::npos);
    CHECK(Content(output.path) == "precious");
  }
}

TEST_CASE("inputs of which nothing can be read leave an output file as it was") {
  const test::TemporaryFile text("no capture"), empty, output("precious");
  for (const std::vector<std::string>& inputs :
       {std::vector<std::string>{"/nowhere/at.all"}, {text.path}, {empty.path, "/nowhere"}}) {
    for (const bool with_worker : {false, true}) {
      std::vector<std::string> arguments = {"read", "-q", "--format", "csv", "-o", output.path};
      if (with_worker) arguments.insert(arguments.end(), {"--workers", "2"});
      arguments.insert(arguments.end(), inputs.begin(), inputs.end());
      CHECK(RunProgram(arguments).ExitCode() == kRuntimeError);
      CHECK(Content(output.path) == "precious");
    }
  }
}

TEST_CASE("an output file that is there holds the new records alone, be they none") {
  const test::TemporaryFile file(SmallCapture().Bytes()), none(CaptureForTests().Bytes());
  const test::TemporaryFile output(std::string(100'000, 'x'));
  CHECK(RunProgram({"read", "-q", file.path, "-o", output.path}).ExitCode() == 0);
  CHECK(JsonLines(Content(output.path)).size() == 4);
  CHECK(RunProgram({"read", "-q", none.path, "-o", output.path}).ExitCode() == 0);
  CHECK(Content(output.path) == "");
}

TEST_CASE("records and account in one file are refused, whether it is there or not") {
  const test::TemporaryFile file(SmallCapture().Bytes()), output("precious");
  const std::string link = output.path + ".link";
  REQUIRE(symlink(output.path.c_str(), link.c_str()) == 0);
  const std::string fresh = output.path + ".new";
  const std::vector<std::pair<std::string, std::string>> pairs = {
      {output.path, output.path}, {output.path, link}, {link, output.path}, {fresh, fresh}};
  for (const auto& [records, account] : pairs) {
    const ChildResult result = RunProgram({"read", file.path, "-o", records, "--account", account});
    CHECK(result.ExitCode() == kWrongUsage);
    CHECK(Lines(result.err)[0] == "dnspair: --account: '" + account + "' is where the records go");
  }
  CHECK(Content(output.path) == "precious");
  CHECK(access(fresh.c_str(), F_OK) != 0);
  unlink(link.c_str());
}

TEST_CASE("standard output that goes into a capture or into the account's file is refused") {
  const std::string capture = SmallCapture().Bytes();
  const test::TemporaryFile file(capture), other("precious");
  const auto into = [](const std::string& path, const std::vector<std::string>& arguments) {
    return test::RunInChild([&] {
      const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND);
      dup2(descriptor, STDOUT_FILENO);
      ExecProgram(arguments);
    });
  };
  const ChildResult appended = into(file.path, {"read", file.path});
  CHECK(appended.ExitCode() == kWrongUsage);
  CHECK(Lines(appended.err)[0] == "dnspair: standard output is one of the captures");
  CHECK(Content(file.path) == capture);
  CHECK(into(other.path, {"read", file.path, "--account", other.path}).ExitCode() == kWrongUsage);
  CHECK(Content(other.path) == "precious");
}

TEST_CASE("records of a named pipe come while it is open") {
  const test::TemporaryFile place;
  REQUIRE(unlink(place.path.c_str()) == 0);
  REQUIRE(mkfifo(place.path.c_str(), 0600) == 0);
  int out[2];
  REQUIRE(pipe2(out, O_CLOEXEC) == 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    ExecProgram({"read", "-q", place.path});
  }
  close(out[1]);
  const int in = open(place.path.c_str(), O_WRONLY | O_CLOEXEC);
  const std::string capture = SmallCapture().Bytes();
  REQUIRE(write(in, capture.data(), capture.size()) == static_cast<ssize_t>(capture.size()));
  char byte = 0;
  CHECK(read(out[0], &byte, 1) == 1);
  close(in);
  close(out[0]);
  int status = 0;
  waitpid(child, &status, 0);
}

TEST_CASE("a filter expression that is wrong is an error before any output") {
  const test::TemporaryFile file(SmallCapture().Bytes()), output("precious");
  const ChildResult result = RunProgram({"read", file.path, "-o", output.path, "--", "hosst", "192.0.2.1"});
  CHECK(result.ExitCode() == kWrongUsage);
  CHECK(result.err.find("hosst 192.0.2.1") != std::string::npos);
  CHECK(Content(output.path) == "precious");
}

TEST_CASE("an output file that is one of the captures is refused") {
  const std::string capture = SmallCapture().Bytes();
  const test::TemporaryFile file(capture);
  for (const char* option : {"--output", "--account"}) {
    const ChildResult result = RunProgram({"read", file.path, option, file.path});
    CHECK(result.ExitCode() == kWrongUsage);
    CHECK(Lines(result.err)[0] ==
          std::string("dnspair: ") + option + ": '" + file.path + "' is one of the captures");
  }
  CHECK(Content(file.path) == capture);
}

TEST_CASE("a full disk is an error with the file's name") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult records = RunProgram({"read", file.path, "-q", "-o", "/dev/full"});
  CHECK(records.ExitCode() == kRuntimeError);
  CHECK(records.err == "dnspair: /dev/full: No space left on device\n");
  const ChildResult account = RunProgram({"read", file.path, "-q", "--account", "/dev/full"});
  CHECK(account.ExitCode() == kRuntimeError);
  CHECK(account.err == "dnspair: /dev/full: No space left on device\n");
}

TEST_CASE("a closed standard output is an error, and no other file gets the records") {
  const test::TemporaryFile file(SmallCapture().Bytes()), account;
  const ChildResult result = RunInChild([&] {
    close(STDOUT_FILENO);
    ExecProgram({"read", file.path, "-q", "--account", account.path});
  });
  CHECK(result.ExitCode() == kRuntimeError);
  CHECK(result.err == "dnspair: standard output: Bad file descriptor\n");
  CHECK(nlohmann::json::parse(Content(account.path))["adds_up"] == true);
}

TEST_CASE("a closed pipe ends the run quietly") {
  CaptureForTests capture;
  for (uint16_t i = 0; i < 20000; ++i) {
    capture.Query(i * kMillisecond, test::Query(i).Question("www.example", kA));
    capture.Response(i * kMillisecond + 1, test::Response(i).Question("www.example", kA));
  }
  const test::TemporaryFile file(capture.Bytes());
  const ChildResult result = RunInChild([&] {
    int ends[2];
    if (pipe(ends) != 0) return;
    close(ends[0]);
    dup2(ends[1], STDOUT_FILENO);
    ExecProgram({"read", file.path, "-q"});
  });
  CHECK(result.ExitCode() == 0);
  CHECK(result.err == "");
}

TEST_CASE("the account is written as JSON and adds up") {
  const test::TemporaryFile file(SmallCapture().Bytes()), account;
  CHECK(RunProgram({"read", file.path, "--account", account.path, "--where", "rcode=NXDOMAIN"}).ExitCode() == 0);
  const auto json = nlohmann::json::parse(Content(account.path));
  CHECK(json["adds_up"] == true);
  CHECK(json["packets"]["total"] == 7);
  CHECK(json["exchanges"]["total"] == 4);
  CHECK(json["exchanges"]["shown"] == 1);
  CHECK(json["health"]["figures"]["rt"] == 1);
}

TEST_CASE("strict runs exit with 3 when anything was lost, others do not care") {
  CaptureForTests capture = SmallCapture();
  const test::TemporaryFile whole(capture.Bytes());
  CHECK(RunProgram({"read", whole.path, "--strict"}).ExitCode() == 0);
  capture.Query(10 * kSecond, test::Query(4).Question("the.id.is.open.already", kA));
  const test::TemporaryFile lossy(capture.Bytes());
  CHECK(RunProgram({"read", lossy.path}).ExitCode() == 0);
  const ChildResult strict = RunProgram({"read", lossy.path, "--strict"});
  CHECK(strict.ExitCode() == kSomethingLost);
  CHECK(strict.err.find("lost       1 superseded_queries\n") != std::string::npos);
}

TEST_CASE("a full table shows in the account") {
  CaptureForTests capture;
  for (uint16_t i = 0; i < 30; ++i) capture.Query(i, test::Query(i).Question("www.example", kA));
  const test::TemporaryFile file(capture.Bytes()), account;
  CHECK(RunProgram({"read", file.path, "--set", "max_open_requests=10", "--account", account.path}).ExitCode() ==
        0);
  const auto json = nlohmann::json::parse(Content(account.path));
  CHECK(json["queries"]["table_full"] == 20);
  CHECK(json["lost"]["table_full_queries"] == 20);
  CHECK(json["adds_up"] == true);
}

TEST_CASE("hidden clients are hidden from everything that is written") {
  CaptureForTests capture;
  const auto frame = [](bool query, const std::string& client) {
    const std::string bytes = query ? test::Query(1).Question("www.example", kA).Wire()
                                    : test::Response(1).Question("www.example", kA).Wire();
    return test::Packet()
        .Ethernet()
        .Ipv4(query ? client : "198.51.100.53", query ? "198.51.100.53" : client)
        .Udp(query ? 40000 : 53, query ? 53 : 40000)
        .Payload(test::ToBytes(bytes));
  };
  for (const bool query : {true, false}) capture.Frame(query ? 0 : 1, frame(query, "203.0.113.77"));
  capture.Frame(2, frame(true, "203.0.113.78"));
  const test::TemporaryFile file(capture.Bytes());
  for (const std::string format : {"table", "json", "csv", "ecs", "zeek"}) {
    const test::TemporaryFile account;
    const ChildResult result =
        RunProgram({"read", file.path, "--format", format, "--mask-clients", "24,48", "--account", account.path});
    CAPTURE(format);
    CHECK(result.ExitCode() == 0);
    CHECK(result.out.find("203.0.113.0") != std::string::npos);
    CHECK((result.out + result.err + Content(account.path)).find("203.0.113.7") == std::string::npos);
    CHECK(result.err.find("clients    hidden but for 24 bits of an IPv4 and 48 bits of an IPv6 address\n") !=
          std::string::npos);
    CHECK(nlohmann::json::parse(Content(account.path))["client_mask"]["ipv4_bits"] == 24);
  }
  for (const std::string command : {"summary", "report"}) {
    CAPTURE(command);
    const std::string out = RunProgram({command, file.path, "--mask-clients", "24,48"}).out;
    CHECK(out.find("203.0.113.0") != std::string::npos);
    CHECK(out.find("203.0.113.7") == std::string::npos);
  }
}

TEST_CASE("conditions tell nothing of a hidden client") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto shown = [&](const char* condition) {
    return Lines(RunProgram({"read", file.path, "--mask-clients", "24,48", "--where", condition}).out).size();
  };
  CHECK(shown("client_ip=192.0.2.1") == 0);
  CHECK(shown("client_ip=192.0.2.0") == 4);
}

TEST_CASE("a key that the plug-in may not know is warned about and passed on") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult result = RunProgram({"read", file.path, "-q", "--set", "colour=red"});
  CHECK(result.ExitCode() == 0);
  CHECK(result.err == "dnspair: warning: the plug-in may not know the key 'colour'; it is passed on\n");
}

TEST_CASE("a closed pipe ends a run that waits for more compressed input") {
  CaptureForTests capture;
  for (uint16_t i = 0; i < 20000; ++i) {
    capture.Query(2 * i, test::Query(i).Question("www.example", kA));
    capture.Response(2 * i + 1, test::Response(i).Question("www.example", kA));
  }
  const ChildResult result = RunInChild([&] {
    int input[2];
    int output[2];
    if (pipe(input) != 0 || pipe(output) != 0) return;
    close(output[0]);
    const pid_t child = fork();
    if (child == 0) {
      dup2(input[0], STDIN_FILENO);
      dup2(output[1], STDOUT_FILENO);
      close(input[1]);
      ExecProgram({"read", "-", "-q"});
    }
    close(input[0]);
    signal(SIGPIPE, SIG_IGN);
    const std::string packed = test::Gzip(capture.Bytes());
    [[maybe_unused]] const ssize_t written = write(input[1], packed.data(), packed.size() - 1000);
    int status = 0;
    waitpid(child, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
  });
  CHECK(result.ExitCode() == 0);
}

// Starts the program on a pipe that stays open, waits until it has written, and signals it.
struct Interrupted {
  explicit Interrupted(const std::vector<std::string>& arguments, const std::string& messages = "/dev/null") {
    int input[2];
    int output[2];
    REQUIRE(pipe(input) == 0);
    REQUIRE(pipe(output) == 0);
    const pid_t child = fork();
    if (child == 0) {
      dup2(input[0], STDIN_FILENO);
      dup2(output[1], STDOUT_FILENO);
      dup2(open(messages.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
      for (const int fd : {input[0], input[1], output[0], output[1]}) close(fd);
      ExecProgram(arguments);
    }
    close(input[0]);
    close(output[1]);
    const std::string capture = SmallCapture().Bytes();
    REQUIRE(write(input[1], capture.data(), capture.size()) == static_cast<ssize_t>(capture.size()));
    Read(output[0]);  // returns once the first records are out
    kill(child, SIGINT);
    while (Read(output[0])) {
    }
    waitpid(child, &status, 0);
    close(input[1]);
    close(output[0]);
  }
  bool Read(int fd) {
    char bytes[4096];
    const ssize_t got = read(fd, bytes, sizeof bytes);
    if (got > 0) out.append(bytes, static_cast<size_t>(got));
    return got > 0;
  }
  std::string out;
  int status = 0;
};

TEST_CASE("an interrupted run reports what was read, the open queries too") {
  const test::TemporaryFile account;
  const Interrupted run({"read", "-", "-q", "--account", account.path});
  REQUIRE(WIFEXITED(run.status));
  CHECK(WEXITSTATUS(run.status) == kInterruptedRun);
  CHECK(JsonLines(run.out).size() == 4);
  const auto json = nlohmann::json::parse(Content(account.path));
  CHECK(json["interrupted"] == true);
  CHECK(json["adds_up"] == true);
}

TEST_CASE("SIGUSR1 shows the account so far, and the run goes on") {
  const std::string capture = SmallCapture().Bytes();
  const test::TemporaryFile messages;
  int in[2];
  int out[2];
  REQUIRE(pipe2(in, O_CLOEXEC) == 0);
  REQUIRE(pipe2(out, O_CLOEXEC) == 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(open(messages.path.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    ExecProgram({"read", "-"});
  }
  close(in[0]);
  close(out[1]);
  REQUIRE(write(in[1], capture.data(), 400) == 400);
  char bytes[65536];
  REQUIRE(read(out[0], bytes, 1) == 1);
  kill(child, SIGUSR1);
  while (Content(messages.path).empty()) {  // the signal is seen with the next packets
    REQUIRE(write(in[1], capture.data() + 400, capture.size() - 400) > 0);
    usleep(10000);
  }
  close(in[1]);
  while (read(out[0], bytes, sizeof bytes) > 0) {
  }
  int status = 0;
  waitpid(child, &status, 0);
  REQUIRE(WIFEXITED(status));
  const std::string said = Content(messages.path);
  CHECK(said.starts_with("packets "));
  CHECK(said.find("packets ", 8) != std::string::npos);
  CHECK(said.find("WRONG") == std::string::npos);
}

TEST_CASE("the account of an interrupted run says that the input was not read to its end") {
  const test::TemporaryFile messages;
  const Interrupted run({"read", "-"}, messages.path);
  CHECK(WEXITSTATUS(run.status) == kInterruptedRun);
  CHECK(Content(messages.path).find("\ninput      not read to its end: the run was interrupted\n") !=
        std::string::npos);
}

}  // namespace
}  // namespace cli
