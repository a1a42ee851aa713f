#include "collector/cli/last_words.h"

#include <doctest/doctest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

#include "collector/cli/program_for_tests.h"

using test::ChildResult;
using test::RunInChild;

namespace cli {
namespace {

// The words of a process that dies by this signal at a packet of these inputs.
ChildResult DieBy(int signal, const std::vector<std::string>& inputs, const capture::Frame* frame) {
  return RunInChild([&] {
    PrepareLastWords(&inputs);
    position = {17, frame};
    raise(signal);
  });
}

bool EndedBy(const ChildResult& child, int signal) {
  return WIFSIGNALED(child.status) && WTERMSIG(child.status) == signal;
}

TEST_CASE("a process that dies says at which packet of which file, and dies as it would have") {
  const capture::Frame frame{.offset = 4711, .source = 1};
  const ChildResult child = DieBy(SIGABRT, {"one.pcap", "two\x1b.pcap"}, &frame);
  CHECK(EndedBy(child, SIGABRT));
  CHECK(child.err == "dnspair: aborted (SIGABRT); at packet 17, two?.pcap:4711\n");
}

TEST_CASE("a process that dies between packets says behind which one") {
  CHECK(DieBy(SIGABRT, {"one.pcap"}, nullptr).err == "dnspair: aborted (SIGABRT); behind packet 17\n");
}

TEST_CASE("a live run that dies names no file") {
  const capture::Frame frame;
  const ChildResult child = DieBy(SIGSYS, {}, &frame);
  CHECK(EndedBy(child, SIGSYS));
  CHECK(child.err.find("sandbox") != std::string::npos);
  CHECK(child.err.ends_with("; at packet 17\n"));
}

TEST_CASE("a stack that overflows is reported, too") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult child = RunInChild([&] {
    setenv("ASAN_OPTIONS", "handle_segv=0:use_sigaltstack=0", 1);  // a sanitizer would tell it in its own words
    ExecProgram({"read", file.path, "-q", "--plugin", FAKE_PARSER, "--set", "do=overflow"});
  });
  CHECK(EndedBy(child, SIGSEGV));
  CHECK(child.err.ends_with("dnspair: crashed (SIGSEGV); at packet 1, " + file.path + ":24\n"));
}

TEST_CASE("a plug-in that aborts has the last word, with the packet it was at") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult child = RunProgram({"read", file.path, "--plugin", FAKE_PARSER, "--set", "do=abort"});
  CHECK(EndedBy(child, SIGABRT));
  CHECK(child.err.ends_with("dnspair: aborted (SIGABRT); at packet 1, " + file.path + ":24\n"));
}

}  // namespace
}  // namespace cli
