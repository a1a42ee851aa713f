#include <doctest/doctest.h>

#include <optional>
#include <string>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// Mappings of names to addresses, learned from A records and from PTR records below in-addr.arpa.

namespace {

using Mapping = RecordingHost::Mapping;
using Mappings = std::vector<Mapping>;

const std::string kInjected = "Injected dns mapping: q:%s name:%s ip:%d.%d.%d.%d";
const std::string kUnexpected = "DNS unexpected name '%s', str '%s'";
constexpr int kMappingLine = 612;
constexpr int kReverseMappingLine = 671;

// Walks all answers with mappings wanted, asked for "question".
int WalkAnswers(const Bench& bench, const std::vector<Record>& answers, bool inject = true) {
  Message message = Response(7);
  for (const Record& answer : answers) message.Answer(answer);
  const std::string bytes = message.Wire();
  std::string summary;
  return bench.parser.ParseResponse(&summary, nullptr, View(bytes), 12, static_cast<int>(answers.size()), inject,
                                    "question");
}

// The mappings made from one PTR record that names cc.dd, having checked that nothing is said in their absence.
Mappings ReverseOf(const Name& owner) {
  QuietBench bench(5);
  CHECK(WalkAnswers(bench, {{owner, Ptr("cc.dd")}}) == kDecoded);
  CHECK(bench.parser.injected_mappings == static_cast<int64_t>(bench.host.mappings.size()));
  CHECK(bench.host.lines.size() == bench.host.mappings.size());
  return bench.host.mappings;
}

// What the counter and the log showed when something was asked of the host. The host's callbacks carry no context.
struct Moment {
  int64_t injected = -1;
  size_t lines = 0;
};
Moment at_question;
const Bench* watched = nullptr;

bool AskedForDebug(const std::string&) {
  at_question = {watched->parser.injected_mappings, watched->host.lines.size()};
  return true;
}

// Checks on one answer that its mapping is handed over first, then counted, then logged.
void CheckOrder(const Record& answer) {
  QuietBench bench(5);
  watched = &bench;
  bench.host.table.is_debug_enabled = AskedForDebug;
  Moment at_mapping;
  bench.host.on_mapping = [&] { at_mapping = {bench.parser.injected_mappings, bench.host.lines.size()}; };
  CHECK(WalkAnswers(bench, {answer}) == kDecoded);
  CHECK(at_mapping.injected == 0);
  CHECK(at_mapping.lines == 0);
  CHECK(at_question.injected == 1);
  CHECK(at_question.lines == 0);
  CHECK(bench.host.calls == std::vector<std::string>{"inject", "log"});
}

}  // namespace

TEST_CASE("each A record is a mapping with the question's name") {
  QuietBench bench;
  CHECK(WalkAnswers(bench, {{"aa.bb", A("192.0.2.1")}, {"cc.dd", A("192.0.2.255")}}) == kDecoded);
  CHECK(bench.host.mappings == Mappings{{"question", "aa.bb", "192.0.2.1"}, {"question", "cc.dd", "192.0.2.255"}});
  CHECK(bench.parser.injected_mappings == 2);
}

TEST_CASE("the address behind an alias is mapped to its own owner and the question") {
  QuietBench bench;
  CHECK(WalkAnswers(bench, {{"aa.bb", Cname("cc.dd")}, {"cc.dd", A("192.0.2.7")}}) == kDecoded);
  CHECK(bench.host.mappings == Mappings{{"question", "cc.dd", "192.0.2.7"}});
}

TEST_CASE("a mapping is traced with the question, the name and the address") {
  QuietBench bench(5);
  WalkAnswers(bench, {{"aa.bb", A("192.0.2.1")}});
  CHECK(Log(bench.host) ==
        Traced(kMappingLine, kInjected, "Injected dns mapping: q:question name:aa.bb ip:192.0.2.1"));
  CHECK(bench.host.debug_files == std::vector<std::string>{"dns-parser.cc"});
}

TEST_CASE("the octets of a mapping are traced without a sign") {
  QuietBench bench(5);
  WalkAnswers(bench, {{"aa", A("255.254.129.128")}, {"128.129.254.255.in-addr.arpa", Ptr("cc")}});
  CHECK(Log(bench.host) ==
        Traced(kMappingLine, kInjected, "Injected dns mapping: q:question name:aa ip:255.254.129.128") +
            Traced(kReverseMappingLine, kInjected, "Injected dns mapping: q:question name:cc ip:255.254.129.128"));
}

TEST_CASE("without leave to inject there is no mapping, no count and no message") {
  QuietBench bench(5);
  const std::vector<Record> answers = {
      {"aa.bb", A("192.0.2.1")}, {"4.3.2.1.in-addr.arpa", Ptr("cc.dd")}, {"aa", Ptr("cc.dd")}};
  CHECK(WalkAnswers(bench, answers, false) == kDecoded);
  CHECK(bench.host.mappings.empty());
  CHECK(bench.parser.injected_mappings == 0);
  CHECK(Log(bench.host).empty());
  CHECK(bench.host.debug_files.empty());
}

TEST_CASE("other records are no mappings") {
  QuietBench bench;
  CHECK(WalkAnswers(bench, {{"aa", Cname("bb")},
                            {"aa", Mx(1, "bb")},
                            {"aa", Txt("192.0.2.1")},
                            {"aa", Aaaa("::ffff:192.0.2.1")},
                            {"4.3.2.1.in-addr.arpa", Cname("bb")},
                            {"aa", Rrsig(kA, "aa")}}) == kDecoded);
  CHECK(bench.host.mappings.empty());
}

TEST_CASE("a mapping is handed over, then counted, then logged") {
  CheckOrder({"aa.bb", A("192.0.2.1")});
  CheckOrder({"4.3.2.1.in-addr.arpa", Ptr("cc.dd")});
}

TEST_CASE("mappings are traced at level 5 with the debug switch on, and only then") {
  for (const int level : {1, 4, 5, 6}) {
    for (const bool debug : {false, true}) {
      QuietBench bench(level);
      bench.host.debug_enabled = debug;
      WalkAnswers(bench, {{"aa.bb", A("192.0.2.1")}, {"4.3.2.1.in-addr.arpa", Ptr("cc.dd")}});
      CHECK(bench.host.lines.size() == (level >= 5 && debug ? 2 : 0));
      CHECK(bench.host.debug_files.size() == (level >= 5 ? 2 : 0));  // asked after the level, for each
      CHECK(bench.parser.injected_mappings == 2);
    }
  }
}

TEST_CASE("a reverse answer is a mapping without a question, its octets turned round") {
  QuietBench bench(5);
  CHECK(WalkAnswers(bench, {{"4.3.2.1.in-addr.arpa", Ptr("cc.dd")}}) == kDecoded);
  CHECK(bench.host.mappings == Mappings{{std::nullopt, "cc.dd", "1.2.3.4"}});
  CHECK(bench.parser.injected_mappings == 1);
  CHECK(Log(bench.host) ==
        Traced(kReverseMappingLine, kInjected, "Injected dns mapping: q:question name:cc.dd ip:1.2.3.4"));
}

TEST_CASE("reverse owners of addresses are mappings, whatever the address") {
  CHECK(ReverseOf("1.2.0.192.in-addr.arpa") == Mappings{{std::nullopt, "cc.dd", "192.0.2.1"}});
  CHECK(ReverseOf("0.0.0.0.in-addr.arpa") == Mappings{{std::nullopt, "cc.dd", "0.0.0.0"}});
  CHECK(ReverseOf("255.255.255.255.in-addr.arpa") == Mappings{{std::nullopt, "cc.dd", "255.255.255.255"}});
}

TEST_CASE("reverse owners that are no address are no mapping, and nothing is said") {
  for (const char* owner :
       {"x.in-addr.arpa", "3.2.1.in-addr.arpa", "5.4.3.2.1.in-addr.arpa", "256.3.2.1.in-addr.arpa",
        "4.3.2.x.in-addr.arpa", "04.3.2.1.in-addr.arpa", "0/25.2.0.192.in-addr.arpa", "\\ 4.3.2.1.in-addr.arpa"}) {
    CAPTURE(owner);
    CHECK(ReverseOf(owner).empty());
  }
}

TEST_CASE("an owner that is nothing but the suffix is no mapping") {
  CHECK(ReverseOf("\\.in-addr.arpa").empty());  // thirteen characters: the dot is part of a label
}

TEST_CASE("the reverse suffix is looked for byte by byte on purpose") {
  for (const char* owner : {"4.3.2.1.IN-ADDR.ARPA", "4.3.2.1.in-addr.arpA", "4.3.2.1.In-addr.arpa",
                            "4.3.2.1.in-addr.arpa.aa", "4.3.2.1xin-addr.arpa", "4.3.2.1.ip6.arpa.arpa"}) {
    CAPTURE(owner);
    CHECK(ReverseOf(owner).empty());
  }
}

TEST_CASE("reverse owners of IPv6 addresses are ignored on purpose") {
  CHECK(ReverseOf("1.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa").empty());
}

TEST_CASE("a reverse owner that keeps a dot at its end is no mapping") {
  Name owner("4.3.2.1.in-addr.arpa");
  owner.ending = U16(0xc000 | (12 + 23 + 10));  // to the root that is the target
  QuietBench bench(5);
  CHECK(WalkAnswers(bench, {{owner, Ptr(".")}}) == kDecoded);
  CHECK(bench.host.mappings.empty());
  CHECK(Log(bench.host).empty());
}

TEST_CASE("a PTR owner of less than thirteen characters is unexpected, and the walk goes on") {
  for (const std::string owner : {"aa.bbbb.cccc", "aa.bbbb.ccc", "a", ""}) {
    CAPTURE(owner);
    REQUIRE(owner.size() < 13);
    QuietBench bench;
    CHECK(WalkAnswers(bench, {{owner, Ptr("cc.dd")}, {"aa", A("192.0.2.1")}}) == kDecoded);
    CHECK(Log(bench.host) == Logged(2, kUnexpected, "DNS unexpected name '" + owner + "', str 'cc.dd'"));
    CHECK(bench.host.mappings == Mappings{{"question", "aa", "192.0.2.1"}});
  }
}

TEST_CASE("a PTR owner of thirteen characters or more is not unexpected") {
  CHECK(ReverseOf("aa.bbbb.ccccc").empty());
  CHECK(ReverseOf("aa.bbbb.cccccc").empty());
}

TEST_CASE("an unexpected owner is told at level 2 and asks for no debug switch") {
  for (const int level : {-1, 0, 1, 2, 3, 5}) {
    CAPTURE(level);
    QuietBench bench(level);
    bench.host.debug_enabled = false;
    WalkAnswers(bench, {{"aa.bb", Ptr("cc.dd")}});
    CHECK(bench.host.Texts(2).size() == (level >= 2 ? 1 : 0));
    CHECK(bench.host.lines.size() == bench.host.Texts(2).size());
    CHECK(bench.host.debug_files.empty());
  }
}

TEST_CASE("a PTR record has its summary entry whatever becomes of the mapping") {
  const QuietBench bench;
  for (const char* owner : {"aa", "x.in-addr.arpa", "4.3.2.1.IN-ADDR.ARPA", "4.3.2.1.in-addr.arpa"}) {
    const std::string bytes = Response(7).Answer(owner, Ptr("cc.dd")).Wire();
    std::string summary;
    CHECK(bench.parser.ParseResponse(&summary, nullptr, View(bytes), 12, 1, true, "") == kDecoded);
    CHECK(summary == "PTR[" + std::string(owner) + " => cc.dd]");
  }
}

TEST_CASE("what is handed over ends at a zero byte in the name") {
  QuietBench bench(5);
  WalkAnswers(bench, {{"a\\000b", A("192.0.2.1")}, {"4.3.2.1.in-addr.arpa", Ptr("c\\000d")}});
  CHECK(bench.host.mappings == Mappings{{"question", "a", "192.0.2.1"}, {std::nullopt, "c", "1.2.3.4"}});
}

TEST_CASE("an empty question is handed over as an empty text, not as none") {
  QuietBench bench;
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Wire();
  CHECK(bench.parser.ParseResponse(nullptr, nullptr, View(bytes), 12, 1, true, "") == kDecoded);
  CHECK(bench.host.mappings == Mappings{{"", "aa", "192.0.2.1"}});
}
