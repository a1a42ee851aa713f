#include "collector/output/rotation.h"

#include <doctest/doctest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "tests/support/temporary_folder.h"

namespace output {
namespace {

using Files = std::map<std::string, std::string>;
using test::TemporaryFolder;

constexpr int64_t kSecond = 1000000000;

// The name that a file gets where `taken` is there already. As a part it has that name, too.
std::string NameBeside(const std::string& taken) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(std::filesystem::path(folder.At(taken)).parent_path());
  std::ofstream(folder.At(taken)) << "whole";
  Rotation rotation({.name = folder.At(taken)});
  const auto buffer = rotation.Begin(0);
  const auto other_name = [&] {
    Files files = folder.Files();
    CHECK(files.at(taken) == "whole");
    files.erase(taken);
    REQUIRE(files.size() == 1);
    return files.begin()->first;
  };
  const std::string part = other_name();
  rotation.Finish(buffer.get());
  CHECK(part == other_name() + ".part");
  return other_name();
}

TEST_CASE("a file is called a part until it is whole") {
  const TemporaryFolder folder;
  Rotation rotation({.name = folder.At("dns.json")});
  const auto buffer = rotation.Begin(0);
  buffer->Write("one\n");
  CHECK(folder.Files().count("dns.json.part") == 1);
  CHECK(folder.Files().count("dns.json") == 0);
  rotation.Finish(buffer.get());
  CHECK(folder.Files() == Files{{"dns.json", "one\n"}});
}

TEST_CASE("files that have their time end at its multiples and are called after that") {
  const TemporaryFolder folder;
  Rotation rotation({.name = folder.At("%Y-%H%M%S"), .seconds = 60});
  const auto buffer = rotation.Begin(130 * kSecond);
  buffer->Write("one\n");
  CHECK_FALSE(rotation.IsOver(180 * kSecond - 1));
  CHECK(rotation.IsOver(180 * kSecond));
  CHECK(rotation.Next(buffer.get(), 187 * kSecond));  // the timer was late
  buffer->Write("two\n");
  CHECK_FALSE(rotation.IsOver(240 * kSecond - 1));
  CHECK(rotation.IsOver(240 * kSecond));
  rotation.Finish(buffer.get());
  CHECK(folder.Files() == Files{{"1970-000210", "one\n"}, {"1970-000300", "two\n"}});
}

TEST_CASE("a file that is full before its time is followed by one called after the moment") {
  const TemporaryFolder folder;
  Rotation rotation({.name = folder.At("%H%M%S"), .bytes = 4, .seconds = 60});
  const auto buffer = rotation.Begin(120 * kSecond);
  buffer->Write("one");
  CHECK_FALSE(rotation.IsFull(*buffer));
  buffer->Write("\n");
  CHECK(rotation.IsFull(*buffer));
  CHECK(rotation.Next(buffer.get(), 150 * kSecond));
  CHECK_FALSE(rotation.IsFull(*buffer));
  CHECK(rotation.IsOver(180 * kSecond));
  rotation.Finish(buffer.get());
  CHECK(folder.Files() == Files{{"000200", "one\n"}, {"000230", ""}});
}

TEST_CASE("a file without an end is never full and never over") {
  const TemporaryFolder folder;
  Rotation rotation({.name = folder.At("dns")});
  const auto buffer = rotation.Begin(0);
  buffer->Write("one\n");
  CHECK_FALSE(rotation.IsFull(*buffer));
  CHECK_FALSE(rotation.IsOver(1000000 * kSecond));
}

TEST_CASE("the number of a file stands before its extension") {
  CHECK(NameBeside("dns.json") == "dns-1.json");
  CHECK(NameBeside("dns.json.gz") == "dns.json-1.gz");
  CHECK(NameBeside("dns") == "dns-1");
  CHECK(NameBeside(".dns") == ".dns-1");
  CHECK(NameBeside("d") == "d-1");
  CHECK(NameBeside("d.x") == "d-1.x");
  CHECK(NameBeside("a.folder/dns") == "a.folder/dns-1");
}

TEST_CASE("a name that is taken while the file is written is left alone") {
  const TemporaryFolder folder;
  Rotation rotation({.name = folder.At("dns.json")});
  const auto buffer = rotation.Begin(0);
  buffer->Write("one\n");
  std::ofstream(folder.At("dns.json")) << "of another";
  std::ofstream(folder.At("dns-1.json")) << "of a third";
  rotation.Finish(buffer.get());
  CHECK(buffer->Good());
  CHECK(folder.Files() == Files{{"dns.json", "of another"}, {"dns-1.json", "of a third"}, {"dns-2.json", "one\n"}});
}

TEST_CASE("a part of another run keeps its name") {
  const TemporaryFolder folder;
  std::ofstream(folder.At("dns.json.part")) << "of another";
  Rotation rotation({.name = folder.At("dns.json")});
  const auto buffer = rotation.Begin(0);
  rotation.Finish(buffer.get());
  CHECK(folder.Files() == Files{{"dns.json.part", "of another"}, {"dns-1.json", ""}});
}

TEST_CASE("a part that has gone is a problem with its name and the reason") {
  const TemporaryFolder folder;
  Rotation rotation({.name = folder.At("dns")});
  const auto buffer = rotation.Begin(0);
  std::filesystem::remove(folder.At("dns.part"));
  CHECK_FALSE(rotation.Next(buffer.get(), 0));
  CHECK(buffer->Problem() == folder.At("dns.part") + ": cannot be renamed: No such file or directory");
  CHECK(folder.Files().empty());
}

TEST_CASE("a folder that is not there is an error with the part's name") {
  Rotation rotation({.name = "/nowhere/dns"});
  CHECK_THROWS_WITH_AS(rotation.Begin(0), "/nowhere/dns.part: No such file or directory", std::runtime_error);
}

}  // namespace
}  // namespace output
