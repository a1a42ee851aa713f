#include <doctest/doctest.h>

#include <cstdlib>
#include <string>

#include "collector/cli/program_for_tests.h"

using test::ChildResult;
using test::RunInChild;

// The whole program, with one allocation that fails, here and there from its start to its end.

namespace {

// A run whose allocation of this number fails, 0 for none.
ChildResult RunFailing(long allocation) {
  return RunInChild([&] {
    setenv("LD_PRELOAD", FAILING_NEW, 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
    setenv("FAIL_ALLOCATION", std::to_string(allocation).c_str(), 1);
    cli::ExecProgram({"read", "-q", "--format", "json", "samples/dns.pcap"});
  });
}

// Libraries allocate while they are loaded; nobody can catch what fails there. The program's own work comes after.
long FirstOfTheProgram() {
  long first = 1;
  while (RunFailing(first).Aborted()) first += 10;
  return first;
}

}  // namespace

TEST_CASE("a run that runs out of memory says so, exits with 1 and leaves whole lines") {
  const ChildResult whole = RunFailing(0);
  REQUIRE(whole.ExitCode() == 0);
  const long first = FirstOfTheProgram();
  CHECK(first < 100);
  int failures = 0;
  for (long nth = first;; nth += 37) {
    CAPTURE(nth);
    const ChildResult run = RunFailing(nth);
    if (run.ExitCode() == 0) break;
    ++failures;
    CHECK(run.ExitCode() == 1);
    CHECK(run.err == "dnspair: out of memory\n");
    CHECK(whole.out.starts_with(run.out));
    CHECK((run.out.empty() || run.out.back() == '\n'));
  }
  CHECK(failures > 20);
}
