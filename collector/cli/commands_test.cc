#include "collector/cli/commands.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>

#include "collector/cli/program_for_tests.h"
#include "collector/cli/run.h"
#include "collector/output/columns.h"

using test::ChildResult;

// The command line: what it refuses, and what it says of itself.
namespace cli {
namespace {

void CheckRefused(const std::vector<std::string>& arguments, const std::string& message, const std::string& help) {
  const ChildResult result = RunProgram(arguments);
  CHECK(result.ExitCode() == kWrongUsage);
  CHECK(result.out == "");
  CHECK(result.err == "dnspair: " + message + "\nTry '" + help + " --help'.\n");
}

TEST_CASE("wrong usage is one line, a hint and exit code 2") {
  CheckRefused({}, "no command given (one of read, live, summary, report, names)", "dnspair");
  CheckRefused({"frobnicate"}, "there is no command 'frobnicate' (only read, live, summary, report, names)",
               "dnspair");
  CheckRefused({"read"}, "FILE is required", "dnspair read");
  CheckRefused({"read", "x", "--colour"}, "there is no option '--colour'", "dnspair read");
  CheckRefused({"read", "x", "--format", "xml"}, "--format: xml not in {table,json,csv,ecs,zeek}", "dnspair read");
  CheckRefused({"summary", "x", "--format", "csv"}, "--format: csv not in {table,json}", "dnspair summary");
  CheckRefused({"read", "x", "--port", "0"}, "--port: Value 0 not in range 1 to 65535", "dnspair read");
  CheckRefused({"read", "x", "--set", "key"}, "--set: 'key' is not KEY=VALUE", "dnspair read");
  CheckRefused({"read", "x", "--set", "=value"}, "--set: '=value' is not KEY=VALUE", "dnspair read");
  CheckRefused({"read", "x", "--columns", "a"}, "--columns: " + output::UnknownColumn("a"), "dnspair read");
  CheckRefused({"read", "x", "--columns", "qname", "--format", "ecs"},
               "--columns: the format ecs has fields of its own", "dnspair read");
  CheckRefused({"read", "x", "--mask-clients", "24"},
               "--mask-clients: '24' is not a length for IPv4 and one for IPv6, such as 24,48", "dnspair read");
  CheckRefused({"read", "x", "--mask-clients", "24,48", "-v"},
               "--mask-clients: the plug-in's log (--verbose) would show them", "dnspair read");
  CheckRefused({"read", "x", "--where", "a=b"}, "--where: condition 'a=b': " + output::UnknownColumn("a"),
               "dnspair read");
  CheckRefused({"live"}, "--interface is required", "dnspair live");
  CheckRefused({"live", "-i", "lo", "--top", "--format", "json"},
               "--top shows a screen and no records; --format and --columns need a file for them: -o FILE",
               "dnspair live");
  CheckRefused({"names", "x", "--where", "a=b"}, "there is no option '--where'", "dnspair names");
}

TEST_CASE("an empty value is a mistake, whatever the option") {
  for (const char* option : {"--plugin", "--account", "-o", "--columns", "--mask-clients", "-C", "--where"}) {
    CAPTURE(option);
    const ChildResult result = RunProgram({"read", "x", option, ""});
    CHECK(result.ExitCode() == kWrongUsage);
    CHECK(result.err.find("an empty text is no value\n") != std::string::npos);
  }
  CHECK(RunProgram({"live", "-i", "lo", "-Z", ""}).ExitCode() == kWrongUsage);
  CHECK(RunProgram({"live", "-i", ""}).ExitCode() == kWrongUsage);
  CheckRefused({"read", ""}, "FILE: an empty text is no value", "dnspair read");
}

TEST_CASE("what is named twice and can be used once is refused") {
  CheckRefused({"live", "-i", "lo", "-i", "eth0", "-i", "lo"}, "--interface: 'lo' is named twice", "dnspair live");
  CheckRefused({"read", "-", "x", "-"}, "standard input can be read only once", "dnspair read");

  const test::TemporaryFile capture(SmallCapture().Bytes()), another(SmallCapture().Bytes());
  CHECK(RunProgram({"read", capture.path, another.path}).ExitCode() == 0);
  for (const char* command : {"read", "summary"}) {
    CheckRefused({command, capture.path, another.path, capture.path}, "'" + capture.path + "' is named twice",
                 std::string("dnspair ") + command);
  }
  const std::string linked = another.path + ".linked";
  std::filesystem::create_symlink(another.path, linked);
  CheckRefused({"read", another.path, linked}, "'" + linked + "' is named twice, as '" + another.path + "' too",
               "dnspair read");
  std::filesystem::remove(linked);
}

TEST_CASE("lists have a length from 1 to a million") {
  CheckRefused({"summary", "x", "--top", "-1"}, "--top: Value -1 not in range 1 to 1000000", "dnspair summary");
  CheckRefused({"summary", "x", "--top", "0"}, "--top: Value 0 not in range 1 to 1000000", "dnspair summary");
  CheckRefused({"report", "x", "--top", "99999999999"}, "--top: Value 99999999999 not in range 1 to 1000000",
               "dnspair report");
}

TEST_CASE("- is standard output for records, and no file for an account") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  CHECK(JsonLines(RunProgram({"read", "-q", file.path, "-o", "-"}).out).size() == 4);
  CheckRefused({"read", file.path, "--account", "-"}, "--account: an account goes into a file, and '-' is none",
               "dnspair read");
}

TEST_CASE("help that cannot be written is an error") {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--help"}, {"read", "--help"}, {"--version"}}) {
    const ChildResult result = test::RunInChild([&] {
      dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
      ExecProgram(arguments);
    });
    CHECK(result.ExitCode() == kRuntimeError);
    CHECK(result.err == "dnspair: standard output: No space left on device\n");
  }
}

TEST_CASE("a misspelt option is told rather than what is missing for want of it") {
  CheckRefused({"live", "--intreface", "eth0"}, "there is no option '--intreface'; did you mean '--interface'?",
               "dnspair live");
  CheckRefused({"read", "--hepl"}, "there is no option '--hepl'; did you mean '--help'?", "dnspair read");
}

TEST_CASE("a word that is nearly right is suggested") {
  CheckRefused({"raed"}, "there is no command 'raed'; did you mean 'read'?", "dnspair");
  CheckRefused({"help", "sumary"}, "there is no command 'sumary'; did you mean 'summary'?", "dnspair");
  CheckRefused({"hlep"}, "there is no command 'hlep'; did you mean 'help'?", "dnspair");
  CheckRefused({"read", "x", "--colums=qname"}, "there is no option '--colums'; did you mean '--columns'?",
               "dnspair read");
  CheckRefused({"--versoin"}, "there is no option '--versoin'; did you mean '--version'?", "dnspair");
  CheckRefused({"live", "eth0", "-i", "eth1"}, "the argument 'eth0' has no place here", "dnspair live");
}

TEST_CASE("help can be asked for in three ways") {
  CHECK(RunProgram({"help"}).out == RunProgram({"--help"}).out);
  CHECK(RunProgram({"help", "help"}).out == RunProgram({"--help"}).out);
  for (const Command& command : AllCommands()) {
    const ChildResult asked = RunProgram({"help", command.name});
    CHECK(asked.ExitCode() == 0);
    CHECK(asked.err == "");
    CHECK(asked.out == RunProgram({command.name, "--help"}).out);
    CHECK(asked.out == RunProgram({command.name, "-h"}).out);
  }
}

TEST_CASE("each command has help with an example of its own") {
  for (const Command& command : AllCommands()) {
    const ChildResult result = RunProgram({command.name, "--help"});
    CHECK(result.ExitCode() == 0);
    CHECK(result.err == "");
    CHECK(result.out.find(command.summary) != std::string::npos);
    CHECK(result.out.find(std::string("\n  dnspair ") + command.name + " ") != std::string::npos);
    CHECK(result.out.find("-o,--output PATH") != std::string::npos);
  }
  CHECK(RunProgram({"-h"}).out.find("names ") != std::string::npos);
}

TEST_CASE("help shows where the command, the options and a filter stand") {
  CHECK(Lines(RunProgram({"--help"}).out).at(1) == "Usage: dnspair COMMAND [OPTIONS]");
  CHECK(Lines(RunProgram({"read", "--help"}).out).at(1) == "Usage: dnspair read [OPTIONS] FILE... [-- FILTER]");
  CHECK(Lines(RunProgram({"live", "--help"}).out).at(1) == "Usage: dnspair live [OPTIONS] [-- FILTER]");
}

TEST_CASE("a number with bounds is described with those that it is held to") {
  struct Bounded {
    const char* command;
    const char* option;
    const char* bounds;
  };
  constexpr Bounded kBounded[] = {{"live", "--snaplen", "64 to 262144"},
                                  {"live", "--buffer", "1 to 1024"},
                                  {"live", "--rotate-seconds", "1 to 31536000"},
                                  {"read", "--workers", "1 to 64"},
                                  {"summary", "--top", "1 to 1000000"}};
  Options options;
  const std::unique_ptr<CLI::App> app = MakeApp(&options);
  for (const Bounded& each : kBounded) {
    CAPTURE(each.option);
    const CLI::Option* option = app->get_subcommand(each.command)->get_option(each.option);
    CHECK(option->get_description().find(each.bounds) != std::string::npos);
    CheckRefused({each.command, each.option, "0"},
                 std::string(each.option) + ": Value 0 not in range " + each.bounds,
                 std::string("dnspair ") + each.command);
  }
}

TEST_CASE("help fits a terminal of eighty columns up to the examples") {
  for (const std::string& line : Lines(RunProgram({"--help"}).out)) CHECK_MESSAGE(line.size() <= 80, line);
  for (const Command& command : AllCommands()) {
    for (const std::string& line : Lines(RunProgram({command.name, "--help"}).out)) {
      if (line == "Examples:") break;
      CHECK_MESSAGE(line.size() <= 80, line);
    }
  }
}

TEST_CASE("the version names program, interface and libpcap") {
  const auto lines = Lines(RunProgram({"--version"}).out);
  REQUIRE(lines.size() == 3);
  CHECK(lines[0].starts_with("dnspair "));
  CHECK(lines[1] == "plug-in interface 5");
  CHECK(lines[2].find("libpcap version") != std::string::npos);
}

TEST_CASE("options take one value each, so that files may follow them") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const ChildResult result = RunProgram(
      {"read", "-q", "--set", "request_timeout_s=5", "--where", "status=timeout", "--port", "53", file.path});
  CHECK(result.ExitCode() == 0);
  CHECK(Lines(result.out).size() == 1);
}

}  // namespace
}  // namespace cli
