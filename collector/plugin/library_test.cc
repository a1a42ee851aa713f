#include "collector/plugin/library.h"

#include <doctest/doctest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "collector/plugin/exports.h"

namespace plugin {
namespace {

// A directory of its own, the working directory while it lives.
class Workplace {
 public:
  Workplace() : before(std::filesystem::current_path()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "library_test.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    directory = pattern;
    std::filesystem::current_path(directory);
  }
  ~Workplace() {
    std::filesystem::current_path(before);
    std::filesystem::remove_all(directory);
  }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

 private:
  std::filesystem::path before;
  std::filesystem::path directory;
};

std::string ErrorOf(const std::string& path) {
  try {
    const Library library(path);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

class NoMappings : public MappingReceiver {
  void OnMapping(const char* /*query_name*/, const char* /*name*/, uint32_t /*ipv4*/) override {}
};

}  // namespace

TEST_CASE("a plug-in is loaded and makes parsers") {
  NoMappings mappings;
  const Exports exports(0, nullptr, &mappings);
  const Library library(FAKE_PARSER);
  CHECK(library.version() == 5);
  CHECK(library.path() == FAKE_PARSER);
  ITimedProtocolParser* parser = library.Create(0x1234, exports.table(), {{"health", "well"}});
  REQUIRE(parser != nullptr);
  CHECK(parser->host_handle == 0x1234);
  CHECK(parser->host_exports == exports.table());
  CHECK(std::string(parser->GetHealthEvent()) == "well");
  library.Destroy(parser);
}

TEST_CASE("a path without a slash is a file in the working directory") {
  const Workplace workplace;
  std::filesystem::copy_file(FAKE_PARSER, "here.so");
  CHECK(ErrorOf("here.so") == "no error");
  CHECK(ErrorOf("libc.so.6") == "libc.so.6: No such file or directory");
}

TEST_CASE("a missing file is named with the reason") {
  CHECK(ErrorOf("/nowhere/parser.so") == "/nowhere/parser.so: No such file or directory");
}

TEST_CASE("what is not a library is refused with the loader's reason, and the path is there once") {
  const Workplace workplace;
  std::ofstream("text.so") << std::string(4096, 'x');
  CHECK(ErrorOf("text.so") == "text.so: not a plug-in: invalid ELF header");
  std::ofstream("empty.so").close();
  CHECK(ErrorOf("./empty.so") == "./empty.so: not a plug-in: file too short");
}

TEST_CASE("a library that was cut off is refused before the loader touches what is missing") {
  const Workplace workplace;
  for (const size_t length : {size_t{64}, size_t{4096}, std::filesystem::file_size(FAKE_PARSER) - 1}) {
    std::filesystem::copy_file(FAKE_PARSER, "cut.so", std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file("cut.so", length);
    CHECK(ErrorOf("cut.so") == "cut.so: not a plug-in: the file is cut off");
  }
}

TEST_CASE("directories and pipes are refused and do not hang the loader") {
  const Workplace workplace;
  std::filesystem::create_directory("folder.so");
  CHECK(ErrorOf("folder.so") == "folder.so: not a plug-in: not a regular file");
  REQUIRE(mkfifo("pipe.so", 0600) == 0);
  CHECK(ErrorOf("pipe.so") == "pipe.so: not a plug-in: not a regular file");
}

TEST_CASE("a library without the entry points is refused by the name of the first that it lacks") {
  CHECK(ErrorOf(FAKE_NO_PLUGIN) ==
        std::string(FAKE_NO_PLUGIN) + ": not a parser plug-in: it has no get_api_version");
  CHECK(ErrorOf(FAKE_WITHOUT_DESTROY) ==
        std::string(FAKE_WITHOUT_DESTROY) + ": not a parser plug-in: it has no destroy_parser_default");
}

TEST_CASE("another interface version is refused with both numbers") {
  CHECK(ErrorOf(FAKE_OTHER_VERSION) ==
        std::string(FAKE_OTHER_VERSION) + ": plug-in interface version 6, but this program needs version 5");
}

TEST_CASE("what the parser's constructor throws comes through, and no parser is an error") {
  NoMappings mappings;
  const Exports exports(0, nullptr, &mappings);
  const Library library(FAKE_PARSER);
  CHECK_THROWS_WITH_AS(library.Create(0, exports.table(), {{"throw", "create"}}), "fake create",
                       std::runtime_error);
  const std::string none = std::string(FAKE_PARSER) + ": the plug-in made no parser";
  CHECK_THROWS_WITH_AS(library.Create(0, exports.table(), {{"no", "parser"}}), none.c_str(), std::runtime_error);
}

}  // namespace plugin
