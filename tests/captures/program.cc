#include "tests/captures/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/support/death.h"
#include "tests/support/temporary_file.h"

namespace test {
namespace {

[[noreturn]] void ExecProgram(const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {DNSPAIR_PROGRAM, "read", "--quiet"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> raw;
  for (std::string& argument : all) raw.push_back(argument.data());
  raw.push_back(nullptr);
  execv(DNSPAIR_PROGRAM, raw.data());
  _exit(127);
}

// Somebody may still read from the pipe, and there is something to read.
bool IsUnread(int fd) {
  pollfd readers{fd, 0, 0};
  int unread = 0;
  return poll(&readers, 1, 0) == 0 && ioctl(fd, FIONREAD, &unread) == 0 && unread > 0;
}

void WriteAll(int fd, const std::string& input, size_t piece) {
  for (size_t at = 0; at < input.size();) {
    const ssize_t written = write(fd, input.data() + at, std::min(piece, input.size() - at));
    if (written <= 0) return;
    at += static_cast<size_t>(written);
    while (IsUnread(fd)) usleep(20);
  }
}

// Fills a pipe from a process of its own: the program's end of it may be closed at any time.
int PipeWith(const std::string& input, size_t piece) {
  int ends[2];
  if (pipe(ends) != 0) _exit(126);
  if (fork() != 0) {
    close(ends[1]);
    return ends[0];
  }
  close(ends[0]);
  WriteAll(ends[1], input, piece);
  _exit(0);
}

}  // namespace

std::vector<nlohmann::json> ReadRun::Records() const {
  std::vector<nlohmann::json> records;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) records.push_back(nlohmann::json::parse(line));
  return records;
}

ReadRun RunRead(const std::vector<std::string>& arguments, const std::string& input, size_t piece) {
  const TemporaryFile account;
  std::vector<std::string> all = {"--account", account.path};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const ChildResult child = RunInChild([&] {
    dup2(input.empty() ? open("/dev/null", O_RDONLY) : PipeWith(input, piece), STDIN_FILENO);
    ExecProgram(all);
  });
  ReadRun run{child.ExitCode(), child.out, child.err, nullptr};
  std::ifstream written(account.path);
  run.account = nlohmann::json::parse(written, nullptr, false);
  return run;
}

std::string WrongSums(const nlohmann::json& account) {
  if (!account.is_object()) return "there is no account";
  std::string wrong;
  for (const char* name : {"packets", "datagrams", "messages", "queries", "responses", "exchanges"}) {
    uint64_t parts = 0;
    for (const auto& [key, count] : account.at(name).items()) {
      if (key != "total" && key != "shown") parts += count.get<uint64_t>();
    }
    if (parts != account[name]["total"]) wrong += std::string(name) + " is not the sum of its parts. ";
  }
  if (account["queries"]["begun"] != account["exchanges"]["total"]) wrong += "exchanges are not what was begun. ";
  if (account["responses"]["answered"] != account["exchanges"]["answered"]) wrong += "answers differ. ";
  const uint64_t messages =
      account["queries"]["total"].get<uint64_t>() + account["responses"]["total"].get<uint64_t>();
  if (account["messages"]["total"] != messages) wrong += "messages are not queries and responses. ";
  if (account["adds_up"] != true) wrong += "the account itself says so. ";
  return wrong;
}

}  // namespace test
