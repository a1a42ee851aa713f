#include "collector/cli/manual.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "collector/cli/commands.h"
#include "collector/cli/options.h"
#include "collector/cli/program_for_tests.h"
#include "collector/output/columns.h"

// What the program puts into its manual; tests/manual has the pages read by programs that know the language.
namespace cli {
namespace {

bool Has(const std::string& page, const std::string& text) { return page.find(text) != std::string::npos; }

const Command& Read() { return AllCommands().front(); }

// The items of the lists in a section of the page of read, as "name" or "name Pq more".
std::vector<std::string> Items(const std::string& section) {
  std::istringstream lines(Content("docs/man/dnspair-read.1.in"));
  std::vector<std::string> items;
  bool here = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(".Sh ")) here = line == ".Sh " + section;
    if (here && line.starts_with(".It Cm ")) items.push_back(line.substr(7));
  }
  return items;
}

}  // namespace

TEST_CASE("pages are named as the commands of a program are") {
  CHECK(ManualName(nullptr) == "dnspair");
  CHECK(ManualName(&Read()) == "dnspair-read");
}

TEST_CASE("prose stays as it is") {
  CHECK(ManualPage(nullptr, ".Sh FILES\n@\nx @head@\n") == ".Sh FILES\n@\nx @head@\n");
}

TEST_CASE("a page begins with its name and what it is used like") {
  const std::string page = ManualPage(&Read(), "@head@\n");
  CHECK(Has(page, ".Dt DNSPAIR-READ 1\n"));
  CHECK(Has(page, ".Nd print one record for each DNS exchange in a capture\n"));
  CHECK(Has(page, ".Nm dnspair\n.Cm read\n.Op Ar options\n.Ar FILE ...\n"));
}

TEST_CASE("options are described in the words of the help") {
  const std::string page = ManualPage(&Read(), "@options@\n");
  CHECK(Has(page, ".It Fl o , Fl \\-output Ar \"PATH\"\nwrite there instead of to standard output\n"));
  CHECK(Has(page, ".It Fl \\-strict\nexit with 3 when anything was lost\n"));
  CHECK(Has(page, ".It Ar \"FILE\"\n"));
  CHECK(Has(page, "'qname~\\e.example$'"));  // a backslash is shown, not obeyed
}

TEST_CASE("examples can be copied from a page") {
  CHECK(Has(ManualPage(&Read(), "@examples@\n"), ".Dl \"dnspair read samples/dns.pcap\"\n"));
}

TEST_CASE("the page of read lists the columns of records, in their order") {
  std::vector<std::string> names;
  for (const output::Column& column : output::AllColumns()) names.emplace_back(column.name);
  CHECK(Items("COLUMNS") == names);
}

TEST_CASE("the page of read and the README explain the plug-in's keys, with one default") {
  const std::string readme = Content("README.md");
  const std::vector<std::string> items = Items("SETTINGS");
  CHECK(items.size() == PluginKeys().size());
  for (const std::string_view key : PluginKeys()) {
    const std::string head = std::string(key) + " Pq ";
    CAPTURE(head);
    const auto item = std::ranges::find_if(items, [&](const std::string& each) { return each.starts_with(head); });
    REQUIRE(item != items.end());
    CHECK(Has(readme, "\n| `" + std::string(key) + "` | " + item->substr(head.size()) + " | "));
  }
}

TEST_CASE("every figure of the health line is explained") {
  const test::TemporaryFile account("");
  REQUIRE(RunProgram({"read", "-q", "samples/dns.pcap", "--account", account.path}).ExitCode() == 0);
  const auto figures = nlohmann::json::parse(Content(account.path)).at("health").at("figures");
  CHECK(figures.size() == 8);
  const std::string document = Content("docs/records.md");
  for (const auto& figure : figures.items())
    CHECK_MESSAGE(Has(document, "\n| `" + figure.key() + "` | "), figure.key());
}

TEST_CASE("pages tell where the documents are installed") {
  const std::string page = ManualPage(&Read(), "@documents@\n");
  CHECK(page.starts_with(".Pa /"));
  CHECK(page.ends_with("/dnspair/docs\n"));
}

TEST_CASE("the program's page leads to those of its commands") {
  const std::string page = ManualPage(nullptr, "@commands@\n@see_also@\n");
  for (const Command& command : AllCommands()) {
    CHECK(Has(page, std::string(".It Cm ") + command.name + "\n"));
    CHECK(Has(page, std::string(".Xr dnspair-") + command.name + " 1 ,\n"));
  }
}

}  // namespace cli
