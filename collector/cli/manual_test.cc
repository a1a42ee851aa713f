#include "collector/cli/manual.h"

#include <doctest/doctest.h>

#include "collector/cli/commands.h"

// What the program puts into its manual; tests/manual has the pages read by programs that know the language.
namespace cli {
namespace {

bool Has(const std::string& page, const std::string& text) { return page.find(text) != std::string::npos; }

const Command& Read() { return AllCommands().front(); }

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

TEST_CASE("the program's page leads to those of its commands") {
  const std::string page = ManualPage(nullptr, "@commands@\n@see_also@\n");
  for (const Command& command : AllCommands()) {
    CHECK(Has(page, std::string(".It Cm ") + command.name + "\n"));
    CHECK(Has(page, std::string(".Xr dnspair-") + command.name + " 1 ,\n"));
  }
}

}  // namespace cli
