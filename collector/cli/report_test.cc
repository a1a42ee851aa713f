#include <doctest/doctest.h>

#include <fstream>
#include <iterator>

#include "collector/cli/program_for_tests.h"

using test::ChildResult;

// dnspair report.
namespace cli {
namespace {

// The number that the page shows under a key of the summary.
std::string FigureOf(const std::string& page, const std::string& key) {
  const std::string before = "<data data-key=\"" + key + "\" value=\"";
  const size_t begin = page.find(before);
  if (begin == std::string::npos) return "none";
  return page.substr(begin + before.size(), page.find('"', begin + before.size()) - begin - before.size());
}

TEST_CASE("a page shows the summary's numbers") {
  const ChildResult result = RunProgram({"report", "samples/dns.pcap", "-q"});
  CHECK(result.ExitCode() == 0);
  CHECK(result.err == "");
  CHECK(result.out.starts_with("<!DOCTYPE html>\n"));
  CHECK(result.out.ends_with("</html>\n"));
  const auto summary =
      nlohmann::json::parse(RunProgram({"summary", "samples/dns.pcap", "-q", "--format", "json"}).out);
  for (const char* key : {"total", "answered", "failed", "timeout", "open"}) {
    CAPTURE(key);
    CHECK(FigureOf(result.out, key) == summary["exchanges"][key].dump());
  }
  for (const char* key : {"p50", "p95", "p99"}) {
    CAPTURE(key);
    CHECK(FigureOf(result.out, key) == summary["response_time_us"][key].dump());
  }
}

TEST_CASE("conditions and a title apply to pages") {
  const test::TemporaryFile file(SmallCapture().Bytes()), page;
  const ChildResult result = RunProgram(
      {"report", file.path, "-q", "--where", "status=timeout", "--title", "No <answers>", "-o", page.path});
  CHECK(result.ExitCode() == 0);
  CHECK(result.out == "");
  std::ifstream in(page.path);
  const std::string html{std::istreambuf_iterator<char>(in), {}};
  CHECK(html.find("<title>No &lt;answers&gt;</title>") != std::string::npos);
  CHECK(FigureOf(html, "total") == "1");
  CHECK(FigureOf(html, "timeout") == "1");
  const ChildResult answered = RunProgram({"report", file.path, "-q", "--where", "answers~192.0.2.80"});
  CHECK(FigureOf(answered.out, "total") == "1");
  CHECK(html.find("www.example") == std::string::npos);
}

TEST_CASE("a page says what was lost on the way to it") {
  CHECK(RunProgram({"report", "samples/dns.pcap", "-q"})
            .out.find("<p>Nothing was lost on the way to this page.</p>") != std::string::npos);
  std::string cut = SmallCapture().Bytes();
  cut.pop_back();
  const test::TemporaryFile file(cut);
  const ChildResult result = RunProgram({"report", file.path, "-q"});
  CHECK(result.ExitCode() == 1);
  CHECK(result.out.find("<p>Lost on the way to this page: inputs 1.</p>") != std::string::npos);
}

TEST_CASE("a page never overwrites its capture") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  CHECK(RunProgram({"report", file.path, "-o", file.path}).ExitCode() == 2);
  CHECK(RunProgram({"report", file.path, "-q"}).ExitCode() == 0);
}

}  // namespace
}  // namespace cli
