// What the built library shows to the outside and what it takes from there.

#include <doctest/doctest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string Output(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  REQUIRE(pipe != nullptr);
  std::string text;
  std::array<char, 4096> chunk;
  while (const size_t n = std::fread(chunk.data(), 1, chunk.size(), pipe.get())) text.append(chunk.data(), n);
  return text;
}

// The names that exports.map lists.
std::set<std::string> Listed() {
  std::ifstream file(DNS_PARSER_EXPORTS);
  REQUIRE(file);
  std::set<std::string> names;
  for (std::string line; std::getline(file, line);) {
    std::smatch match;
    if (std::regex_match(line, match, std::regex(R"(\s*(\w+);)"))) names.insert(match[1]);
  }
  return names;
}

std::set<std::string> LastWords(const std::string& text) {
  std::set<std::string> names;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(line.rfind(' ') + 1));
  return names;
}

}  // namespace

TEST_CASE("the library exports exactly what its list names") {
  const std::set<std::string> exported = LastWords(Output("nm -D --defined-only " DNS_PARSER_LIBRARY));
  CHECK(exported.size() == 31);
  CHECK(exported == Listed());
}

TEST_CASE("the library needs the C and C++ run-time and nothing else") {
  const std::string dynamic = Output("readelf -dW " DNS_PARSER_LIBRARY);
  const std::set<std::string> allowed{"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"};
  const std::regex needed(R"(NEEDED\)\s+Shared library: \[([^\]]+)\])");
  int count = 0;
  for (std::sregex_iterator it(dynamic.begin(), dynamic.end(), needed), end; it != end; ++it, ++count) {
    if ((*it)[1].str().find("san.so") != std::string::npos) continue;  // a build under the sanitizers
    CHECK_MESSAGE(allowed.contains((*it)[1]), (*it)[1].str());
  }
  CHECK(count >= 2);
}

TEST_CASE("the library binds its own symbols to itself") {
  // No relocation names an exported symbol: a host that defines the same names changes nothing inside, and a
  // smashed stack in the library ends in the library's own __stack_chk_fail.
  const std::string relocations = Output("readelf -rW " DNS_PARSER_LIBRARY);
  std::set<std::string> named;
  std::istringstream words(relocations);
  for (std::string word; words >> word;) named.insert(word.substr(0, word.find('@')));
  REQUIRE(named.contains("strtoul"));  // it does name what it imports
  for (const std::string& name : Listed()) CHECK_MESSAGE(!named.contains(name), name);
}

TEST_CASE("the library is guarded against smashed stacks") {
  CHECK(Output("nm -D --defined-only " DNS_PARSER_LIBRARY).find(" __stack_chk_fail") != std::string::npos);
  const std::string code =
      Output("objdump -d --no-show-raw-insn " DNS_PARSER_LIBRARY " | grep -c '<__stack_chk_fail'");
  CHECK(std::stoi(code) > 0);
}
