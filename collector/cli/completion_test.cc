#include "collector/cli/completion.h"

#include <doctest/doctest.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "collector/cli/commands.h"
#include "collector/output/columns.h"

// What shells offer; tests/manual runs the shells themselves.
namespace cli {
namespace {

using Words = std::vector<std::string>;

Words Lines(const Words& words) {
  Options options;
  return Completions(*MakeApp(&options), words);
}

// Without descriptions.
Words Offered(const Words& words) {
  Words offered;
  for (const std::string& line : Lines(words)) offered.push_back(line.substr(0, line.find('\t')));
  return offered;
}

bool Offers(const Words& words, const std::string& text) {
  const Words offered = Offered(words);
  return std::find(offered.begin(), offered.end(), text) != offered.end();
}

}  // namespace

TEST_CASE("commands are offered with their summaries") {
  CHECK(Lines({"li"}) == Words{"live\tprint one record for each DNS exchange that is seen on interfaces"});
  CHECK(Offered({"--v"}) == Words{"--version"});
  CHECK(Offered({"help", "rea"}) == Words{"read"});
  CHECK(Offered({"help", "read", ""}).empty());
  CHECK(Offered({}) == Offered({""}));
  for (const Command& command : AllCommands()) CHECK(Offers({""}, command.name));
  CHECK(Offers({""}, "help"));
}

TEST_CASE("a command's options are offered, and no other command's") {
  CHECK(Offered({"live", "--inter"}) == Words{"--interface"});
  CHECK(Offered({"read", "--inter"}).empty());
  CHECK(Offers({"live", "-"}, "-i"));
  CHECK(Offered({"nonsense", "-"}).empty());
}

TEST_CASE("formats are those of the command") {
  CHECK(Offers({"read", "--format", ""}, "csv"));
  CHECK_FALSE(Offers({"summary", "--format", ""}, "csv"));
  CHECK(Offered({"read", "x.pcap", "--format=j"}) == Words{"--format=json"});
  CHECK(Offered({"read", "--strict=j"}).empty());
  CHECK(Offered({"read", "--nonsense=j"}).empty());
}

TEST_CASE("columns are offered behind those that are chosen") {
  CHECK(Offered({"read", "--columns", "qn"}) == Words{"qname", ":nospace"});
  CHECK(Offered({"read", "--columns", "qname,client_p"}) == Words{"qname,client_port", ":nospace"});
  CHECK(Offered({"read", "--columns", ""}).size() == output::AllColumns().size() + 1);
  CHECK(Offered({"read", "--where", "rco"}) == Words{"rcode=", ":nospace"});
}

TEST_CASE("interfaces, users and keys of the plug-in are offered") {
  CHECK(Offers({"live", "-i", ""}, "any"));
  CHECK(Offers({"live", "--interface", "l"}, "lo"));
  CHECK(Offers({"live", "-Z", "roo"}, "root"));
  CHECK(Offered({"read", "--set", "request"}) == Words{"request_timeout_s=", ":nospace"});
  CHECK(Offered({"live", "--snaplen", ""}).empty());
}

TEST_CASE("files are left to the shell") {
  CHECK(Offered({"read", ""}) == Words{":files"});
  CHECK(Offered({"read", "--strict", "x"}) == Words{":files"});
  CHECK(Offered({"read", "-o", "x"}) == Words{":files"});
  CHECK(Offered({"live", ""}).empty());
}

TEST_CASE("nothing is offered in a filter expression") {
  CHECK(Offered({"read", "x.pcap", "--", "-"}).empty());
  CHECK(Offers({"read", "x.pcap", "--"}, "--strict"));
}

}  // namespace cli
