#include "util/check.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "tests/support/death.h"

using test::ChildResult;
using test::FatalLine;
using test::kTimestampLength;
using test::RunInChild;
using test::StartsWithTimestamp;

namespace {

int64_t NowMicroseconds() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

// The microseconds since the epoch that a time stamp names when it is read as UTC.
int64_t ReadTimestamp(const std::string& text) {
  tm parts{};
  int microseconds = -1;
  const int fields = sscanf(text.c_str(), "%d-%d-%d %d:%d:%d.%6d-", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
                            &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &microseconds);
  REQUIRE(fields == 7);
  parts.tm_year -= 1900;
  parts.tm_mon -= 1;
  return int64_t{timegm(&parts)} * 1000000 + microseconds;
}

// A socket pair keeps the bounds between writes: each write is one message.
class WriteRecorder {
 public:
  WriteRecorder() { REQUIRE(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) == 0); }
  ~WriteRecorder() {
    close(ends[0]);
    close(ends[1]);
  }
  int Fd() const { return ends[1]; }
  std::vector<std::string> Writes() const {
    std::vector<std::string> writes;
    char message[2048];
    for (;;) {
      const ssize_t got = recv(ends[0], message, sizeof message, 0);
      if (got < 0) return writes;
      writes.emplace_back(message, static_cast<size_t>(got));
    }
  }

 private:
  int ends[2];
};

// A fatal line "{ERROR}-f:1: failed condition: <condition>\n" of `size` characters.
std::string ConditionForLine(size_t size) {
  const std::string around = "{ERROR}-f:1: failed condition: \n";
  return std::string(size - around.size(), 'c');
}

}  // namespace

TEST_CASE("the time stamp is 27 characters, hyphen included, without a newline") {
  const ChildResult child = RunInChild([] { g_print_timestamp(STDOUT_FILENO); });
  CHECK(child.out.size() == 27);
  CHECK(StartsWithTimestamp(child.out));
}

TEST_CASE("the time stamp goes to the descriptor it was given, in one write") {
  const WriteRecorder recorder;
  const ChildResult child = RunInChild([&recorder] { g_print_timestamp(recorder.Fd()); });
  CHECK(child.out.empty());
  CHECK(child.err.empty());
  const std::vector<std::string> writes = recorder.Writes();
  REQUIRE(writes.size() == 1);
  CHECK(StartsWithTimestamp(writes[0]));
}

TEST_CASE("the time stamp is the current local time to the microsecond") {
  const int64_t before = NowMicroseconds();
  const ChildResult child = RunInChild([] {
    // 5 h 30 min ahead of UTC. The child has one thread. NOLINTNEXTLINE(concurrency-mt-unsafe)
    setenv("TZ", "EAST-05:30", 1);
    tzset();
    g_print_timestamp(STDOUT_FILENO);
  });
  const int64_t after = NowMicroseconds();
  const int64_t shown = ReadTimestamp(child.out) - int64_t{19800} * 1000000;
  CHECK(shown >= before);
  CHECK(shown <= after);
}

TEST_CASE("the microseconds of a time stamp always have six digits") {
  const ChildResult child = RunInChild([] {
    usleep(static_cast<useconds_t>(1000000 - NowMicroseconds() % 1000000));  // until a second begins
    g_print_timestamp(STDOUT_FILENO);
  });
  CHECK(StartsWithTimestamp(child.out));
}

TEST_CASE("a time stamp that cannot be written is ignored") {
  const ChildResult child = RunInChild([] { g_print_timestamp(-1); });
  CHECK(child.ExitCode() == 0);
  CHECK(child.err.empty());
}

TEST_CASE("a failed condition is one line with file, line and condition, and aborts") {
  CHECK(FatalLine([] { check_failed("some.cc", 12, "a < b"); }) == "{ERROR}-some.cc:12: failed condition: a < b\n");
}

TEST_CASE("the string utilities' failed condition has no prefix") {
  CHECK(FatalLine([] { check_failed_unprefixed("some.cc", 12, "a < b"); }) ==
        "some.cc:12: failed condition: a < b\n");
}

TEST_CASE("an unreachable branch is one line with file and line, and aborts") {
  CHECK(FatalLine([] { not_reached("some.cc", 34); }) == "{ERROR}-some.cc:34: should not be reached\n");
}

TEST_CASE("a check that holds does nothing, one that does not names its site") {
  const CheckSite site{"site.h", 56, "holds"};
  const ChildResult child = RunInChild([&site] { check(true, site); });
  CHECK(child.ExitCode() == 0);
  CHECK(child.err.empty());
  CHECK(FatalLine([&site] { check(false, site); }) == "{ERROR}-site.h:56: failed condition: holds\n");
}

TEST_CASE("a fatal line is one write behind the time stamp's") {
  const WriteRecorder recorder;
  const ChildResult child = RunInChild([&recorder] {
    dup2(recorder.Fd(), STDERR_FILENO);
    check_failed("some.cc", 12, "a < b");
  });
  CHECK(child.Aborted());
  const std::vector<std::string> writes = recorder.Writes();
  REQUIRE(writes.size() == 2);
  CHECK(StartsWithTimestamp(writes[0]));
  CHECK(writes[0].size() == kTimestampLength);
  CHECK(writes[1] == "{ERROR}-some.cc:12: failed condition: a < b\n");
}

TEST_CASE("a fatal line is formatted into the shared buffer") {
  const ChildResult child = RunInChild([] {
    signal(SIGABRT, [](int) {
      [[maybe_unused]] const ssize_t written =
          write(STDOUT_FILENO, _fprintf_output_buffer, strnlen(_fprintf_output_buffer, 512));
    });
    not_reached("some.cc", 34);
  });
  CHECK(child.out == "{ERROR}-some.cc:34: should not be reached\n");
}

TEST_CASE("a fatal line of 511 characters is written whole") {
  const std::string condition = ConditionForLine(511);
  CHECK(FatalLine([&condition] { check_failed("f", 1, condition.c_str()); }) ==
        "{ERROR}-f:1: failed condition: " + condition + "\n");
}

TEST_CASE("a fatal line of 512 characters is cut to 511 that end in three dots") {
  const std::string condition = ConditionForLine(512);
  const std::string line = FatalLine([&condition] { check_failed("f", 1, condition.c_str()); });
  CHECK(line.size() == 511);
  CHECK(line == ("{ERROR}-f:1: failed condition: " + condition).substr(0, 508) + "...");
}

TEST_CASE("unprefixed and unreachable lines are cut in the same way") {
  const std::string file(600, 'f');
  CHECK(FatalLine([&file] { check_failed_unprefixed(file.c_str(), 1, "c"); }) == std::string(508, 'f') + "...");
  CHECK(FatalLine([&file] { not_reached(file.c_str(), 1); }) == "{ERROR}-" + std::string(500, 'f') + "...");
}

TEST_CASE("a formatter's failure aborts without a line") {
  const ChildResult child = RunInChild([] {
    snprintf(_fprintf_output_buffer, sizeof _fprintf_output_buffer, "left over");
    abort_with_line(-1);
  });
  CHECK(child.Aborted());
  CHECK(child.err.empty());
}
