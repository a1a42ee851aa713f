#include <doctest/doctest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "tests/contract/include_rules.h"

namespace {

namespace fs = std::filesystem;

Include Quoted(const char* name) { return {name, true, 1}; }
Include Bracketed(const char* name) { return {name, false, 1}; }

bool Allowed(const char* file, const char* name) { return Complaint(file, Quoted(name)).empty(); }

// A tree of our own in the temporary folder, removed at the end.
struct TemporaryTree {
  TemporaryTree() { fs::create_directories(root); }
  TemporaryTree(const TemporaryTree&) = delete;
  TemporaryTree& operator=(const TemporaryTree&) = delete;
  ~TemporaryTree() {
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }

  void Write(const char* file, const std::string& text) const {
    fs::create_directories((root / file).parent_path());
    std::ofstream(root / file) << text;
  }

  fs::path root = fs::temp_directory_path() / ("dnspair-includes-" + std::to_string(getpid()));
};

}  // namespace

// CTest runs test programs in the root of the tree.
TEST_CASE("every include of the tree points the right way") {
  REQUIRE(fs::exists("CMakePresets.json"));
  CHECK(CountSources(".") >= 10);
  for (const std::string& complaint : CheckTree(".")) FAIL_CHECK(complaint);
}

TEST_CASE("a room may include itself and the rooms to its left") {
  CHECK(Allowed("util/args.cc", "util/args.h"));
  CHECK(Allowed("iovec/iovec.cc", "util/check.h"));
  CHECK(Allowed("dns-parser/names.cc", "iovec/iovec.h"));
  CHECK(Allowed("dns-parser/plugin.cc", "host/requests.h"));
  CHECK(Allowed("dns-parser/plugin.cc", "util/args.h"));
  CHECK(Allowed("collector/plugin/session.cc", "host/requests.h"));
  CHECK(Allowed("collector/cli/read.cc", "util/path.h"));
  CHECK(Allowed("collector/flow/table.cc", "collector/packet/address.h"));
  CHECK(Allowed("collector/output/json.cc", "collector/plugin/exchange.h"));
  CHECK(Allowed("collector/cli/top.cc", "collector/top/page.h"));
  CHECK(Allowed("collector/main.cc", "collector/cli/commands.h"));
}

TEST_CASE("an include against the direction is refused and names both rooms") {
  CHECK(Complaint("util/args.cc", Quoted("iovec/iovec.h")) == "util must not include iovec (\"iovec/iovec.h\")");
  CHECK_FALSE(Allowed("iovec/iovec.cc", "dns-parser/types.h"));
  CHECK_FALSE(Allowed("iovec/iovec.cc", "host/timestamp.h"));
  CHECK_FALSE(Allowed("dns-parser/names.cc", "collector/flow/flow.h"));
  CHECK_FALSE(Allowed("collector/capture/open.cc", "collector/packet/address.h"));
  CHECK_FALSE(Allowed("collector/packet/decoder.cc", "collector/flow/flow.h"));
  CHECK_FALSE(Allowed("collector/flow/table.cc", "collector/plugin/session.h"));
  CHECK_FALSE(Allowed("collector/plugin/session.cc", "collector/output/json.h"));
  CHECK_FALSE(Allowed("collector/output/json.cc", "collector/top/view.h"));
  CHECK_FALSE(Allowed("collector/top/page.cc", "collector/cli/read.h"));
}

TEST_CASE("the host interface includes nothing of ours") {
  CHECK_FALSE(Allowed("host/requests.cc", "util/check.h"));
  CHECK_FALSE(Allowed("host/requests.cc", "dns-parser/types.h"));
  CHECK(Allowed("host/requests.cc", "host/requests.h"));
}

TEST_CASE("the collector does not include the plug-in") {
  CHECK_FALSE(Allowed("collector/plugin/library.cc", "dns-parser/dns_parser.h"));
  CHECK_FALSE(Allowed("collector/packet/decoder.cc", "iovec/iovec.h"));
  CHECK_FALSE(Allowed("collector/main.cc", "dns-parser/dns_parser.h"));
}

TEST_CASE("a room of the collector that nobody ordered is refused") {
  CHECK(Complaint("collector/misc/a.cc", Quoted("util/args.h")) == "collector/misc is no known room");
}

TEST_CASE("only tests include test support") {
  CHECK(Allowed("dns-parser/names_test.cc", "tests/support/message.h"));
  CHECK_FALSE(Allowed("dns-parser/names.cc", "tests/support/message.h"));
  CHECK(Complaint("util/text_for_tests.h", Bracketed("doctest/doctest.h")).empty());
  CHECK(Complaint("util/testdata/texts.cc", Bracketed("doctest/doctest.h")).empty());
  CHECK(Complaint("util/args_test.cc", Bracketed("doctest/doctest.h")).empty());
  CHECK_FALSE(Complaint("util/args.cc", Bracketed("doctest/doctest.h")).empty());
}

TEST_CASE("a test keeps to the direction of its room") {
  CHECK_FALSE(Allowed("util/args_test.cc", "iovec/iovec.h"));
  CHECK_FALSE(Allowed("collector/flow/table_test.cc", "dns-parser/types.h"));
}

TEST_CASE("an include that is not written from the root is refused") {
  CHECK_FALSE(Allowed("util/args.cc", "args.h"));
  CHECK_FALSE(Allowed("util/args.cc", "../util/args.h"));
  CHECK_FALSE(Complaint("util/args.cc", Bracketed("util/args.h")).empty());
}

TEST_CASE("the plug-in uses no library but the run-time") {
  CHECK_FALSE(Complaint("dns-parser/dump.cc", Bracketed("fmt/format.h")).empty());
  CHECK_FALSE(Complaint("host/requests.h", Bracketed("nlohmann/json.hpp")).empty());
  CHECK(Complaint("dns-parser/dump.cc", Bracketed("string")).empty());
  CHECK(Complaint("collector/output/json.cc", Bracketed("fmt/format.h")).empty());
}

TEST_CASE("include lines are found in every spelling and with their line number") {
  const auto found = FindIncludes(
      "#pragma once\n"
      "#include <string>\n"
      "  #  include\t\"util/args.h\"  // why\n"
      "// #include \"a.h\"\n"
      "#define include\n"
      "#include \"last.h\"");
  REQUIRE(found.size() == 3);
  CHECK(found[0].name == "string");
  CHECK_FALSE(found[0].quoted);
  CHECK(found[0].line == 2);
  CHECK(found[1].name == "util/args.h");
  CHECK(found[1].quoted);
  CHECK(found[1].line == 3);
  CHECK(found[2].name == "last.h");
  CHECK(found[2].line == 6);
}

TEST_CASE("a wrong include in a tree is reported with file and line") {
  const TemporaryTree tree;
  tree.Write("iovec/iovec.h", "#pragma once\n");
  tree.Write("util/args.h", "#pragma once\n");
  tree.Write("util/args.cc", "#include \"util/args.h\"\n\n#include \"iovec/iovec.h\"\n");
  tree.Write("collector/flow/deep/table.h", "#include \"collector/output/json.h\"\n");
  tree.Write("util/notes.txt", "#include \"iovec/iovec.h\"\n");
  const auto complaints = CheckTree(tree.root);
  REQUIRE(complaints.size() == 2);
  CHECK(complaints[0] ==
        "collector/flow/deep/table.h:1: collector/flow must not include collector/output "
        "(\"collector/output/json.h\")");
  CHECK(complaints[1] == "util/args.cc:3: util must not include iovec (\"iovec/iovec.h\")");
  CHECK(CountSources(tree.root) == 4);
}

TEST_CASE("an include of a file that does not exist is reported") {
  const TemporaryTree tree;
  tree.Write("util/args.cc", "#include \"util/gone.h\"\n");
  const auto complaints = CheckTree(tree.root);
  REQUIRE(complaints.size() == 1);
  CHECK(complaints[0] == "util/args.cc:1: \"util/gone.h\" does not exist");
}
