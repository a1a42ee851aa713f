#include <doctest/doctest.h>

#include "collector/cli/program_for_tests.h"

using test::ChildResult;

// dnspair summary.
namespace cli {
namespace {

TEST_CASE("a summary shows shares, results, servers, types and names") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult result = RunProgram({"summary", file.path, "-q"});
  CHECK(result.ExitCode() == 0);
  CHECK(result.err == "");
  const std::string& text = result.out;
  CHECK(text.starts_with("4 exchanges from 2023-11-14 22:13:20.000000 to 2023-11-14 22:13:29.000000 UTC\n"));
  for (const char* part : {"answered         2  66.7 %", "timed out        1  33.3 %", "open at the end  1\n",
                           "NXDOMAIN  1  33.3 %", "198.51.100.53", "AAAA", "silent.example", "192.0.2.1"}) {
    CHECK_MESSAGE(text.find(part) != std::string::npos, part);
  }
}

TEST_CASE("a summary as JSON groups by the plug-in's own keys") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto json = nlohmann::json::parse(RunProgram({"summary", file.path, "-q", "--format", "json"}).out);
  CHECK(json["exchanges"]["total"] == 4);
  CHECK(json["exchanges"]["open"] == 1);
  REQUIRE(json["groups"].size() == 3);
  CHECK(json["groups"][0]["ResultCode"] == -1);
  CHECK(json["groups"][1]["ResultCode"] == 0);
  CHECK(json["groups"][2]["ResultCode"] == 3);
  for (const auto& group : json["groups"]) CHECK(group["count"] == 1);
  CHECK(json["response_time_us"]["max"] == 200000);
}

TEST_CASE("conditions and the length of lists apply to summaries") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto json = nlohmann::json::parse(
      RunProgram({"summary", file.path, "-q", "--format", "json", "--top", "1", "--where", "status=answered"}).out);
  CHECK(json["exchanges"]["total"] == 2);
  CHECK(json["names"].size() == 1);
  CHECK(json["groups"].size() == 2);
}

TEST_CASE("a summary can be of answers that it does not show") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto json = nlohmann::json::parse(
      RunProgram({"summary", file.path, "-q", "--format", "json", "--where", "answers~192.0.2.80"}).out);
  CHECK(json["exchanges"]["total"] == 1);
  REQUIRE(json["names"].size() == 1);
  CHECK(json["names"][0]["qname"] == "www.example");
}

}  // namespace
}  // namespace cli
