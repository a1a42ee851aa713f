#include "collector/cli/rotate.h"

#include <doctest/doctest.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <map>

#include "collector/cli/program_for_tests.h"
#include "collector/cli/usage_error.h"
#include "tests/support/temporary_folder.h"

namespace cli {
namespace {

using test::ChildResult;
using test::kA;
using test::RunInChild;
using Folder = test::TemporaryFolder;

std::string ManyExchanges(uint16_t count) {
  CaptureForTests capture;
  for (uint16_t i = 0; i < count; ++i) {
    capture.Query(2 * i, test::Query(i).Question("www.example", kA));
    capture.Response(2 * i + 1, test::Response(i).Question("www.example", kA));
  }
  return capture.Bytes();
}

TEST_CASE("sizes are millions of bytes, or have a unit") {
  CHECK(ParseFileSize("10") == 10000000);
  CHECK(ParseFileSize("10k") == 10240);
  CHECK(ParseFileSize("3M") == 3145728);
  CHECK(ParseFileSize("2G") == 2147483648);
  for (const char* wrong : {"", "0", "-1", "10KB", "K", "1.5M", "99999999999999"}) {
    CAPTURE(wrong);
    CHECK_THROWS_AS(ParseFileSize(wrong), UsageError);
  }
}

TEST_CASE("files that need a name are refused without one") {
  const ChildResult result = RunProgram({"read", "x", "-C", "1"});
  CHECK(result.ExitCode() == 2);
  CHECK(Lines(result.err)[0] == "dnspair: -C and -G end files: say with -o how they are called");
}

TEST_CASE("what is no file cannot be followed by another") {
  const ChildResult result = RunProgram({"read", "x", "-C", "1", "-o", "/dev/null"});
  CHECK(result.ExitCode() == 2);
  CHECK(Lines(result.err)[0] == "dnspair: -C and -G: '/dev/null' is not the name of a file");
}

TEST_CASE("files of a size hold together what one file would") {
  const test::TemporaryFile capture(ManyExchanges(200));
  const Folder folder;
  CHECK(RunProgram({"read", "-q", capture.path, "-o", folder.At("dns.json"), "-C", "16k"}).ExitCode() == 0);
  const auto files = folder.Files();
  REQUIRE(files.size() > 3);
  std::string together = files.at("dns.json");
  for (size_t i = 1; i < files.size(); ++i) together += files.at("dns-" + std::to_string(i) + ".json");
  CHECK(together == RunProgram({"read", "-q", capture.path}).out);
  for (const auto& [name, content] : files) {
    CHECK(content.size() < 16384 + 1024);
    CHECK(content.ends_with("}\n"));
  }
}

TEST_CASE("each file has the header and the end of its format") {
  const test::TemporaryFile capture(ManyExchanges(200));
  const Folder csv, zeek;
  CHECK(RunProgram({"read", "-q", capture.path, "-o", csv.At("dns"), "--format", "csv", "-C", "16k"}).ExitCode() ==
        0);
  CHECK(RunProgram({"read", "-q", capture.path, "-o", zeek.At("dns.log"), "--format", "zeek", "-C", "8k"})
            .ExitCode() == 0);
  CHECK(csv.Files().size() > 1);
  for (const auto& [name, content] : csv.Files()) CHECK(content.starts_with("ts_us,"));
  CHECK(zeek.Files().size() > 1);
  for (const auto& [name, content] : zeek.Files()) {
    CHECK(content.starts_with("#separator "));
    CHECK(Lines(content).back().starts_with("#close\t"));
  }
}

TEST_CASE("no file that is there is touched") {
  const test::TemporaryFile capture(SmallCapture().Bytes());
  const Folder folder;
  std::ofstream(folder.At("dns.json")) << "whole";
  std::ofstream(folder.At("dns-1.json.part")) << "of a run that was killed";
  CHECK(RunProgram({"read", "-q", capture.path, "-o", folder.At("dns.json"), "-C", "1"}).ExitCode() == 0);
  const auto files = folder.Files();
  CHECK(files.size() == 3);
  CHECK(files.at("dns.json") == "whole");
  CHECK(files.at("dns-1.json.part") == "of a run that was killed");
  CHECK(Lines(files.at("dns-2.json")).size() == 4);
}

TEST_CASE("a name may hold the time") {
  const test::TemporaryFile capture(SmallCapture().Bytes());
  const Folder folder;
  CHECK(RunProgram({"read", "-q", capture.path, "-o", folder.At("dns-%Y-100%%.json"), "-C", "1"}).ExitCode() == 0);
  const auto files = folder.Files();
  REQUIRE(files.size() == 1);
  CHECK(files.begin()->first.starts_with("dns-20"));
  CHECK(files.begin()->first.ends_with("-100%.json"));
}

TEST_CASE("a folder that is not there is an error with the file's name") {
  const test::TemporaryFile capture(SmallCapture().Bytes());
  const ChildResult result = RunProgram({"read", "-q", capture.path, "-o", "/nowhere/dns.json", "-C", "1"});
  CHECK(result.ExitCode() == 1);
  CHECK(result.err == "dnspair: /nowhere/dns.json.part: No such file or directory\n");
}

TEST_CASE("a file that can grow no more keeps whole lines under the name of a part") {
  const test::TemporaryFile capture(ManyExchanges(1000));
  const Folder folder;
  const ChildResult result = RunInChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100000, 100000};
    setrlimit(RLIMIT_FSIZE, &limit);
    ExecProgram({"read", "-q", capture.path, "-o", folder.At("dns.json"), "-C", "1"});
  });
  CHECK(result.ExitCode() == 1);
  CHECK(result.err == "dnspair: " + folder.At("dns.json.part") + ": File too large\n");
  const auto files = folder.Files();
  REQUIRE(files.count("dns.json.part") == 1);
  CHECK(files.at("dns.json.part").size() > 90000);
  CHECK(files.at("dns.json.part").ends_with("}\n"));
}

}  // namespace
}  // namespace cli
