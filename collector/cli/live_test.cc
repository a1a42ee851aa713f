// dnspair live on a loopback interface of a network namespace of its own. That takes root: elsewhere these tests
// say that they were skipped.

#include <doctest/doctest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "collector/cli/program_for_tests.h"
#include "tests/support/loopback.h"

namespace cli {
namespace {

using std::chrono::milliseconds;
using test::ChildResult;
using test::Endpoint;
using test::InNetwork;
using test::MayEnterNetwork;
using test::WaitFor;

// A live run that writes records and messages to files.
class LiveRun {
 public:
  explicit LiveRun(std::vector<std::string> more = {}, const std::string& output = {}) : records(""), messages("") {
    std::vector<std::string> arguments{"live", "-i", "lo", "-o", output.empty() ? records.path : output};
    if (output.empty()) arguments.insert(arguments.end(), {"--format", "json"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    child = fork();
    if (child != 0) return;
    if (std::freopen(messages.path.c_str(), "w", stderr) == nullptr) _exit(99);
    ExecProgram(arguments);
  }
  ~LiveRun() {
    if (child > 0) Stop();
  }
  LiveRun(const LiveRun&) = delete;
  LiveRun& operator=(const LiveRun&) = delete;

  // Sends a query that nobody answers.
  void Ask(const test::Name& name) const { client.Send(server, test::Query(9).Question(name, test::kA)); }

  // Sends an exchange again and again until its record is there: nobody tells when an interface is being watched.
  bool Sees(const std::string& name, uint16_t type = test::kA) const {
    return WaitFor([&] {
      client.Send(server, test::Query(7).Question(test::Name(name), type));
      server.Send(client, test::Response(7).Question(test::Name(name), type));
      return Shows(name, "answered");
    });
  }
  bool Watches() const { return Sees("ready.example"); }

  std::vector<nlohmann::json> Records() const { return JsonLines(Content(records.path)); }
  std::string Messages() const { return Content(messages.path); }
  bool WaitToSay(const std::string& text) const {
    return WaitFor([&] { return Messages().find(text) != std::string::npos; });
  }
  bool Shows(const std::string& name, const std::string& status) const {
    for (const nlohmann::json& record : Records()) {
      if (record["qname"] == name && record["status"] == status) return true;
    }
    return false;
  }
  void Signal(int signal) const { kill(child, signal); }

  // Ends it; returns its exit code.
  int Stop(int signal = SIGTERM) {
    kill(child, signal);
    int status = 0;
    waitpid(child, &status, 0);
    child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  test::TemporaryFile records;

 private:
  test::TemporaryFile messages;
  Endpoint client{40000};
  Endpoint server{53};
  pid_t child;
};

const std::string kNoSecondInterface = "skipped: a second interface needs ip (scripts/setup wire) and veth";

void CheckUnlessSkipped(const std::string& wrong) {
  if (wrong == kNoSecondInterface) {
    MESSAGE(wrong);
    return;
  }
  CHECK(wrong == "");
}

test::Bytes QueryFrame(unsigned id, const test::Name& name) {
  return test::Packet()
      .Ethernet()
      .Ipv4("192.0.2.1", "192.0.2.53")
      .Udp(40000, 53)
      .Payload(test::ToBytes(test::Query(id).Question(name, test::kA).Wire()))
      .Frame();
}

}  // namespace

TEST_CASE("a live run reports an exchange within a second or so") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run;
          if (!run.Watches()) return "nothing was seen";
          if (!run.Sees("live.example", test::kAaaa)) return "the exchange was not seen";
          return run.Stop() == 0 ? "" : "SIGTERM is not its ordinary end";
        }) == "");
}

TEST_CASE("on a silent wire a query still times out") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run({"--set", "request_timeout_s=1"});
          if (!run.Watches()) return "nothing was seen";
          run.Ask("nobody.example");
          return WaitFor([&] { return run.Shows("nobody.example", "timeout"); }) ? "" : "it never timed out";
        }) == "");
}

TEST_CASE("a live run that is ended reports what is open") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run({"--set", "request_timeout_s=1000"});
          if (!run.Watches()) return "nothing was seen";
          run.Ask("open.example");
          std::this_thread::sleep_for(milliseconds(500));
          if (run.Stop(SIGINT) != 0) return "SIGINT is not its ordinary end";
          if (!run.Shows("open.example", "open")) return "the open query was not reported";
          return run.Messages().find("interface  lo: ") != std::string::npos ? "" : "no counters of the interface";
        }) == "");
}

TEST_CASE("a run whose interface goes down says so, and goes on when it is up again") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run;
          if (!run.Watches()) return "nothing was seen";
          test::SetLoopback(0);
          if (!run.WaitToSay("dnspair: lo: the interface is down; nothing is seen until it is up again\n"))
            return "nothing is said of an interface that is down";
          test::SetLoopback(IFF_UP | IFF_RUNNING);
          if (!run.WaitToSay("dnspair: lo: the interface is up again\n")) return "nothing is said of its return";
          if (!run.Sees("later.example")) return "nothing is seen any more";
          return run.Stop() == 0 ? "" : "SIGTERM is not its ordinary end";
        }) == "");
}

TEST_CASE("an interface that is removed is named at once, and the others are still watched") {
  if (!MayEnterNetwork()) return;
  CheckUnlessSkipped(InNetwork([]() -> std::string {
    if (!test::AddInterface("gone0")) return kNoSecondInterface;
    LiveRun run({"-i", "gone0"});
    if (!run.Watches()) return "nothing was seen";
    test::RemoveInterface("gone0");
    if (!run.WaitToSay("dnspair: gone0: ")) return "nothing is said of it";
    if (!run.Sees("later.example")) return "nothing is seen any more";
    if (run.Stop() != 1) return "nothing is said of it in the end";
    return run.Messages().find("lost       1 inputs\n") != std::string::npos ? "" : run.Messages();
  }));
}

TEST_CASE("what comes faster than a run can take is dropped, counted and told, and the run goes on") {
  if (!MayEnterNetwork()) return;
  CheckUnlessSkipped(InNetwork([]() -> std::string {
    if (!test::AddInterface("near0")) return kNoSecondInterface;
    const test::RawSocket far("near0far");
    const test::TemporaryFile account;
    LiveRun run({"-i", "near0", "--buffer", "1", "--account", account.path, "--set", "request_timeout_s=1000"});
    if (!run.Watches()) return "nothing was seen";
    // While nobody takes anything out of it, a buffer of a MiB holds less than this.
    constexpr int kFlood = 20000;
    run.Signal(SIGSTOP);
    const test::Bytes query = QueryFrame(7, "flood.example");
    for (int i = 0; i < kFlood; ++i) far.Send(query);
    run.Signal(SIGCONT);
    if (!run.Sees("after.example")) return "nothing is seen any more";
    if (run.Stop() != 0) return "SIGTERM is not its ordinary end";
    const auto json = nlohmann::json::parse(Content(account.path));
    if (json["adds_up"] != true) return "it does not add up";
    const auto& near = json["interfaces"]["near0"];
    const auto received = near["received"].get<int>();
    const auto dropped = near["dropped"].get<int>();
    if (received < kFlood) return "some were not even counted: " + near.dump();
    if (dropped < kFlood / 4) return "too few were dropped: " + near.dump();
    // But for what the kernel itself sends on a new interface.
    const int seen = json["queries"]["duplicates"].get<int>() + 1;
    if (std::abs(kFlood - dropped - seen) > 100) return "some were lost without a word: " + json.dump();
    return run.WaitToSay(" " + std::to_string(dropped) + " dropped by the kernel") ? "" : run.Messages();
  }));
}

TEST_CASE("an interface that is down from the start is named, with what helps") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          test::SetLoopback(0);
          const ChildResult result = RunProgram({"live", "-i", "lo"});
          return result.ExitCode() == 1 ? result.err : "no error";
        }) == "dnspair: lo: the interface is down; 'ip link set lo up' helps\n");
}

TEST_CASE("a run that is killed leaves whole lines") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run;
          if (!run.Watches()) return "nothing was seen";
          run.Stop(SIGKILL);
          return Content(run.records.path).ends_with("}\n") ? "" : "half a line";
        }) == "");
}

TEST_CASE("SIGUSR1 shows an account that adds up") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run({"--set", "request_timeout_s=1000"});
          if (!run.Watches()) return "nothing was seen";
          run.Ask("open.example");
          const auto tells = [&] {
            run.Signal(SIGUSR1);
            return run.Messages().find("1 waiting") != std::string::npos;
          };
          if (!WaitFor(tells)) return run.Messages();
          return run.Messages().find("WRONG") == std::string::npos ? "" : "it does not add up";
        }) == "");
}

TEST_CASE("SIGHUP opens a file again that was moved away") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run;
          if (!run.Watches()) return "nothing was seen";
          const std::string moved = run.records.path + ".1";
          std::rename(run.records.path.c_str(), moved.c_str());
          run.Signal(SIGHUP);
          if (!WaitFor([&] { return access(run.records.path.c_str(), F_OK) == 0; })) return "no new file";
          const bool later = run.Sees("later.example");
          const bool kept = Content(moved).find("ready.example") != std::string::npos;
          std::remove(moved.c_str());
          return later && kept ? "" : "records went to the wrong file";
        }) == "");
}

TEST_CASE("files end by the clock, on a silent wire too") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          const std::string folder = test::TemporaryFile("").path + ".d";
          mkdir(folder.c_str(), 0755);
          const auto files = [&] {
            std::vector<std::filesystem::path> found;
            for (const auto& entry : std::filesystem::directory_iterator(folder)) found.push_back(entry.path());
            std::sort(found.begin(), found.end());
            return found;
          };
          std::string wrong;
          {
            LiveRun run({"-G", "1", "--format", "csv"}, folder + "/dns-%s.csv");
            if (!WaitFor([&] { return files().size() >= 3; })) wrong = "no more files";
            run.Signal(SIGKILL);
          }
          const auto left = files();
          int parts = 0;
          for (const auto& file : left) {
            if (file.extension() == ".part") ++parts;
            if (file.extension() == ".csv" && !Content(file).starts_with("ts_us,")) wrong = "a file without header";
          }
          if (parts != 1) wrong = "not one file was being written";
          std::filesystem::remove_all(folder);
          return wrong;
        }) == "");
}

TEST_CASE("SIGHUP and the end of a run make files whole") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          const std::string name = test::TemporaryFile("").path;
          const std::string first = name + ".json";
          const std::string second = name + "-1.json";
          const auto is_there = [](const std::string& path) { return access(path.c_str(), F_OK) == 0; };
          std::string wrong;
          {
            LiveRun run({"-C", "100"}, first);
            if (!WaitFor([&] { return is_there(first + ".part"); })) wrong = "no file";
            run.Signal(SIGHUP);
            if (!WaitFor([&] { return is_there(first) && is_there(second + ".part"); })) wrong = "no second file";
            if (run.Stop() != 0) wrong = "it did not end well: " + run.Messages();
            if (!is_there(second) || is_there(second + ".part")) wrong = "the last file is not whole";
          }
          std::remove(second.c_str());
          std::remove(first.c_str());
          return wrong;
        }) == "");
}

TEST_CASE("a live run can give up its privileges before the first packet") {
  if (!MayEnterNetwork()) return;
  CHECK(InNetwork([]() -> std::string {
          LiveRun run({"-Z", "nobody"});
          return run.Watches() ? "" : "nothing was seen: " + run.Messages();
        }) == "");
}

TEST_CASE("an interface that is not there is named") {
  if (!MayEnterNetwork()) return;
  const ChildResult result = RunProgram({"live", "-i", "nowhere0"});
  CHECK(result.ExitCode() == 1);
  CHECK(result.err == "dnspair: nowhere0: there is no such interface; 'ip link' lists them\n");
}

TEST_CASE("a user that is not there is named") {
  if (!MayEnterNetwork()) return;
  const ChildResult result = RunProgram({"live", "-i", "lo", "-Z", "no-such-user"});
  CHECK(result.ExitCode() == 1);
  CHECK(result.err == "dnspair: -Z: there is no user 'no-such-user'\n");
}

}  // namespace cli
