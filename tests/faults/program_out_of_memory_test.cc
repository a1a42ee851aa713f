#include <doctest/doctest.h>

#include <cstdlib>
#include <string>

#include "collector/cli/program_for_tests.h"

// The whole program, with one allocation that fails: at every place while it starts, and here and there later.

namespace {

// A run whose allocation of this number fails.
ChildResult RunFailing(const std::string& capture, long allocation) {
  return RunInChild([&] {
    setenv("LD_PRELOAD", FAILING_NEW, 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=1", 1);
    setenv("FAIL_ALLOCATION", std::to_string(allocation).c_str(), 1);
    cli::ExecProgram({"read", "-q", "--format", "json", capture});
  });
}

void CheckRuns(const std::string& capture, long every) {
  const ChildResult whole = RunFailing(capture, 0);
  REQUIRE(whole.ExitCode() == 0);
  REQUIRE(!whole.out.empty());
  long failures = 0;
  for (long nth = 1;; nth += every) {
    CAPTURE(nth);
    const ChildResult run = RunFailing(capture, nth);
    if (run.ExitCode() == 0) {
      CHECK(run.out == whole.out);
      if (nth > 100000) break;
      continue;
    }
    ++failures;
    CHECK(run.ExitCode() == 1);
    CHECK(run.err == "dnspair: out of memory\n");
    CHECK(whole.out.starts_with(run.out));
    CHECK((run.out.empty() || run.out.back() == '\n'));
  }
  CHECK(failures > 10);
}

}  // namespace

TEST_CASE("a run that runs out of memory says so, exits with 1 and leaves whole lines") {
  CheckRuns("samples/dns.pcap", 1);
}
