#include <doctest/doctest.h>

#include "collector/cli/program_for_tests.h"

// dnspair names.
namespace cli {
namespace {

using test::A;
using test::ChildResult;
using test::kA;

TEST_CASE("mappings of names to addresses are listed once, with when they were seen") {
  CaptureForTests capture;
  for (uint16_t i = 0; i < 3; ++i) {
    capture.Query(i * kSecond, test::Query(i).Question("www.example", kA));
    capture.Response(i * kSecond + 1, test::Response(i)
                                          .Question("www.example", kA)
                                          .Answer("www.example", test::Cname("cdn.example"))
                                          .Answer("cdn.example", A("192.0.2.80")));
  }
  const test::TemporaryFile file(capture.Bytes());
  const ChildResult result = RunProgram({"names", file.path, "-q"});
  CHECK(result.ExitCode() == 0);
  CHECK(result.out == R"({"rrname":"cdn.example","rrtype":"A","rdata":"192.0.2.80","time_first":1700000000,)"
                      R"("time_last":1700000002,"count":3,"question":"www.example"})"
                      "\n");
  const auto table = Lines(RunProgram({"names", file.path, "-q", "--format", "table"}).out);
  REQUIRE(table.size() == 2);
  CHECK(table[1] == "cdn.example 192.0.2.80      2023-11-14 22:13:20 2023-11-14 22:13:22 3       www.example");
}

TEST_CASE("reverse look-ups are listed as such") {
  CaptureForTests capture;
  capture.Query(0, test::Query(1).Question("7.2.0.192.in-addr.arpa", test::kPtr));
  capture.Response(1, test::Response(1)
                          .Question("7.2.0.192.in-addr.arpa", test::kPtr)
                          .Answer("7.2.0.192.in-addr.arpa", test::Ptr("host.example")));
  const test::TemporaryFile file(capture.Bytes());
  const auto records = JsonLines(RunProgram({"names", file.path, "-q"}).out);
  REQUIRE(records.size() == 1);
  CHECK(records[0]["rrname"] == "7.2.0.192.in-addr.arpa");
  CHECK(records[0]["rrtype"] == "PTR");
  CHECK(records[0]["rdata"] == "host.example");
}

}  // namespace
}  // namespace cli
