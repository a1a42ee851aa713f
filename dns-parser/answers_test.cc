#include <doctest/doctest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// The walk over the answers and the summary it writes. Mappings are in answers_mappings_test.cc, answers that
// cannot be read in answers_broken_test.cc.

namespace {

// What a walk left behind.
struct Walk {
  int result = -1;
  std::string summary;
  int rrsigs = 0;
};

// Walks the answers of a message whose question has the name `question`, without mappings.
Walk WalkAnswers(const Bench& bench, const Message& message, int count, int from = 12,
                 const std::string& summary = "") {
  const std::string bytes = message.Wire();
  Walk walk{.summary = summary};
  walk.result =
      bench.parser.ParseResponse(&walk.summary, &walk.rrsigs, View(bytes), from, count, false, "question");
  return walk;
}

std::string SummaryOf(const std::vector<Record>& answers) {
  const QuietBench bench;
  Message message = Response(7);
  for (const Record& answer : answers) message.Answer(answer);
  const Walk walk = WalkAnswers(bench, message, static_cast<int>(answers.size()));
  CHECK(walk.result == kDecoded);
  return walk.summary;
}

const std::string kReceivedAaaa = "Received AAAA response for: %s";

// A record of each kind that has an entry, and the entry.
struct Entry {
  Data data;
  std::string text;
  bool separated;
};
std::vector<Entry> Entries() {
  return {{A("192.0.2.1"), "[aa.bb => 192.0.2.1]", true}, {Cname("cc.dd"), "CNAME[aa.bb => cc.dd]", true},
          {Ptr("cc.dd"), "PTR[aa.bb => cc.dd]", true},    {Mx(10, "cc.dd"), "MX[aa.bb => cc.dd]", true},
          {Txt("hello"), "TXT[aa.bb => hello]", false},   {Aaaa("2001:db8::1"), "[aa.bb => 2001:db8::1]", false}};
}

}  // namespace

TEST_CASE("each kind of answer has its entry in the summary") {
  for (const Entry& entry : Entries()) CHECK(SummaryOf({{"aa.bb", entry.data}}) == entry.text);
}

TEST_CASE("A, CNAME, PTR and MX entries are separated from what stands before them") {
  for (const Entry& entry : Entries()) {
    if (!entry.separated) continue;
    CHECK(SummaryOf({{"ee", A("192.0.2.9")}, {"aa.bb", entry.data}}) == "[ee => 192.0.2.9], " + entry.text);
  }
}

TEST_CASE("a TXT entry has no separator on purpose") {
  CHECK(SummaryOf({{"aa.bb", A("192.0.2.1")}, {"aa.bb", Txt("hello")}}) ==
        "[aa.bb => 192.0.2.1]TXT[aa.bb => hello]");
}

TEST_CASE("an AAAA entry has no separator on purpose") {
  CHECK(SummaryOf({{"aa", Aaaa("2001:db8::1")}, {"aa", Aaaa("2001:db8::2")}}) ==
        "[aa => 2001:db8::1][aa => 2001:db8::2]");
}

TEST_CASE("the entry behind a TXT or AAAA entry is separated") {
  CHECK(SummaryOf({{"aa", Txt("t")}, {"aa", A("192.0.2.1")}, {"aa", Aaaa("::1")}, {"aa", Cname("bb")}}) ==
        "TXT[aa => t], [aa => 192.0.2.1][aa => ::1], CNAME[aa => bb]");
}

TEST_CASE("two addresses are two entries") {
  CHECK(SummaryOf({{"aa.bb", A("192.0.2.1")}, {"aa.bb", A("192.0.2.2")}}) ==
        "[aa.bb => 192.0.2.1], [aa.bb => 192.0.2.2]");
}

TEST_CASE("an address is shown octet by octet, without a sign") {
  CHECK(SummaryOf({{"aa", A("255.128.0.1")}}) == "[aa => 255.128.0.1]");
  CHECK(SummaryOf({{"aa", A("255.255.255.255")}}) == "[aa => 255.255.255.255]");
}

TEST_CASE("the summary is appended to what stands there, with a separator") {
  const QuietBench bench;
  const Message message = Response(7).Answer("aa", A("192.0.2.1"));
  CHECK(WalkAnswers(bench, message, 1, 12, "before").summary == "before, [aa => 192.0.2.1]");
}

TEST_CASE("names in the summary are decoded as everywhere, compressed ones too") {
  const QuietBench bench;
  const Message message = Response(7)
                              .Compressed()
                              .Question("aa.bb", kMx)
                              .Answer("aa.bb", Mx(10, "mx.aa.bb"))
                              .Answer("Mail.aa.bb", Cname("x\\.y.bb"));
  CHECK(WalkAnswers(bench, message, 2, 23).summary == "MX[aa.bb => mx.aa.bb], CNAME[Mail.aa.bb => x.y.bb]");
}

TEST_CASE("every name of an answer may take sixteen pointers, and not seventeen") {
  const QuietBench bench;
  const auto walk = [&](const Name& owner, const Data& data) {
    Message message = PointerChain(16);
    const int start = static_cast<int>(message.Here());
    return WalkAnswers(bench, message.Answer(owner, data), 1, start);
  };
  CHECK(walk(Link(16), A("192.0.2.1")).summary == "[aa => 192.0.2.1]");
  CHECK(walk(Link(17), A("192.0.2.1")).result == kMalformed);
  CHECK(walk("bb", Cname(Link(16))).summary == "CNAME[bb => aa]");
  CHECK(walk("bb", Cname(Link(17))).result == kMalformed);
  CHECK(walk("bb", Ptr(Link(16))).summary == "PTR[bb => aa]");
  CHECK(walk("bb", Ptr(Link(17))).result == kMalformed);
  CHECK(walk("bb", Mx(1, Link(16))).summary == "MX[bb => aa]");
  CHECK(walk("bb", Mx(1, Link(17))).result == kMalformed);
}

TEST_CASE("an owner or target with a pointer to the root keeps the dot") {
  CHECK(SummaryOf({{".", Cname(Pointer(12, "aa"))}, {Pointer(12, "bb"), A("192.0.2.1")}}) ==
        "CNAME[ => aa.], [bb. => 192.0.2.1]");
}

TEST_CASE("zero bytes stay in the summary") {
  CHECK(SummaryOf({{"a\\000b", Txt(std::string("c\0d", 3))}}) == std::string("TXT[a\0b => c\0d]", 15));
}

TEST_CASE("the preference of an MX record is skipped, whatever it is") {
  CHECK(SummaryOf({{"aa", Mx(0xffff, "cc")}, {"aa", Mx(0, "dd")}}) == "MX[aa => cc], MX[aa => dd]");
}

TEST_CASE("only the first string of a TXT record is shown") {
  CHECK(SummaryOf({{"aa", Txt("one", "two")}, {"aa", Txt("")}}) == "TXT[aa => one]TXT[aa => ]");
}

TEST_CASE("signatures are counted and have no entry") {
  const QuietBench bench;
  const Message message = Response(7)
                              .Answer("aa", A("192.0.2.1"))
                              .Answer("aa", Rrsig(kA, "aa"))
                              .Answer("aa", Rdata(kRrsig))
                              .Answer("aa", A("192.0.2.2"));
  const std::string bytes = message.Wire();
  std::string summary;
  int rrsigs = 40;
  CHECK(bench.parser.ParseResponse(&summary, &rrsigs, View(bytes), 12, 4, false, "") == kDecoded);
  CHECK(rrsigs == 42);
  CHECK(summary == "[aa => 192.0.2.1], [aa => 192.0.2.2]");
}

TEST_CASE("other types are skipped, and the walk goes on") {
  constexpr std::array<unsigned, 7> kRead = {1, 5, 12, 15, 16, 28, 46};
  for (unsigned type = 0; type < 600; ++type) {
    if (std::ranges::find(kRead, type) != kRead.end()) continue;
    CAPTURE(type);
    QuietBench bench(5);
    const Message message =
        Response(7).Answer("aa", Rdata(static_cast<uint16_t>(type), "\x41\x41")).Answer("aa", A("192.0.2.1"));
    const Walk walk = WalkAnswers(bench, message, 2);
    CHECK(walk.result == kDecoded);
    CHECK(walk.summary == "[aa => 192.0.2.1]");
    CHECK(walk.rrsigs == 0);
    CHECK(Log(bench.host).empty());
  }
}

TEST_CASE("records of another class than IN are skipped, whatever their type") {
  for (const int other : {0, 2, 3, 4, 254, 255, 0x0100, 0x0101, 0x8001}) {
    const auto klass = static_cast<uint16_t>(other);
    CAPTURE(klass);
    QuietBench bench(5);
    Message message = Response(7);
    for (const uint16_t type : {kA, kCname, kPtr, kMx, kTxt, kAaaa, kRrsig}) {
      message.Answer("4.3.2.1.in-addr.arpa", Rdata(type, "\x41"), 300, klass);
    }
    message.Answer("aa", A("192.0.2.1"));
    const std::string bytes = message.Wire();
    std::string summary;
    int rrsigs = 0;
    CHECK(bench.parser.ParseResponse(&summary, &rrsigs, View(bytes), 12, 7, true, "") == kDecoded);
    CHECK(summary.empty());
    CHECK(rrsigs == 0);
    CHECK(bench.host.mappings.empty());
    CHECK(Log(bench.host).empty());
    CHECK(bench.parser.ParseResponse(&summary, &rrsigs, View(bytes), 12, 8, false, "") == kDecoded);
    CHECK(summary == "[aa => 192.0.2.1]");
  }
}

TEST_CASE("the time to live means nothing here") {
  for (const uint32_t ttl : {0U, 0x00010001U, 0xffffffffU}) {
    CHECK(SummaryOf({{"aa", A("192.0.2.1"), ttl}}) == "[aa => 192.0.2.1]");
  }
}

TEST_CASE("the walk goes by the stated length of a record, longer than what was read") {
  const QuietBench bench;
  for (const Entry& entry : Entries()) {
    CAPTURE(entry.text);
    Data data = entry.data;
    data.Add(std::string("trailer that no reader takes"));
    const Walk walk = WalkAnswers(bench, Response(7).Answer("aa.bb", data).Answer("ee", A("192.0.2.9")), 2);
    CHECK(walk.result == kDecoded);
    CHECK(walk.summary == entry.text + ", [ee => 192.0.2.9]");
  }
}

TEST_CASE("the walk goes by the stated length of a record, shorter than what was read") {
  // Records without data: their readers read the start of the next record instead, which is then read as well.
  struct Row {
    uint16_t type;
    std::string text;
  };
  const std::vector<Row> kRows = {{kA, "[aa => 1.120.1.121]"}, {kCname, "CNAME[aa => x.y]"},
                                  {kPtr, "PTR[aa => x.y]"},    {kMx, "MX[aa => y]"},
                                  {kTxt, "TXT[aa => x]"},      {kAaaa, "[aa => 178:179::100:100:1:2c00:4c0]"}};
  for (const Row& row : kRows) {
    CHECK(SummaryOf({{"aa", Rdata(row.type)}, {"x.y", A("192.0.2.9")}}) == row.text + ", [x.y => 192.0.2.9]");
  }
}

TEST_CASE("an A record that says ten bytes moves the walk ten bytes on") {
  const QuietBench bench;
  const Message message =
      Response(7).Answer("aa", A("192.0.2.1").Add(std::string("sixmor"))).Answer("aa", A("192.0.2.2"));
  const Walk walk = WalkAnswers(bench, message, 2);
  CHECK(walk.result == kDecoded);
  CHECK(walk.summary == "[aa => 192.0.2.1], [aa => 192.0.2.2]");
}

TEST_CASE("a record may be 65535 bytes long") {
  const QuietBench bench;
  const Message message =
      Response(7).Answer("aa", Rdata(65280, std::string(65535, 'x'))).Answer("aa", A("192.0.2.1"));
  CHECK(WalkAnswers(bench, message, 2).summary == "[aa => 192.0.2.1]");
}

TEST_CASE("the walk starts where it is told and reads as many records as it is told") {
  const QuietBench bench;
  const Message message = Response(7)
                              .Question("aa", kA)
                              .Answer("aa", A("192.0.2.1"))
                              .Answer("aa", A("192.0.2.2"))
                              .Answer("aa", A("192.0.2.3"));
  CHECK(WalkAnswers(bench, message, 1, 20).summary == "[aa => 192.0.2.1]");
  CHECK(WalkAnswers(bench, message, 2, 20).summary == "[aa => 192.0.2.1], [aa => 192.0.2.2]");
  CHECK(WalkAnswers(bench, message, 1, 38).summary == "[aa => 192.0.2.2]");
}

TEST_CASE("no records are read when none are asked for") {
  for (const int count : {0, -1, -1000}) {
    QuietBench bench(5);
    const Walk walk = WalkAnswers(bench, Response(7).Bytes("\x41"), count);
    CHECK(walk.result == kDecoded);
    CHECK(walk.summary.empty());
    CHECK(Log(bench.host).empty());
    CHECK(WalkAnswers(bench, Response(7), count, 5000).result == kDecoded);
  }
}

TEST_CASE("reading no records through a view that has failed before has run out") {
  const QuietBench bench;
  const std::string bytes = Response(7).Wire();
  const IOVec view = View(bytes);
  view.ok = false;
  for (const int count : {0, -1}) {
    CHECK(bench.parser.ParseResponse(nullptr, nullptr, view, 12, count, false, "") == kRanOut);
  }
}

TEST_CASE("without a summary everything else still happens") {
  QuietBench bench(5);
  Message message = Response(7);
  for (const Entry& entry : Entries()) message.Answer("aa.bb", entry.data);
  message.Answer("4.3.2.1.in-addr.arpa", Ptr("cc.dd")).Answer("aa.bb", Rrsig(kA, "aa"));
  const std::string bytes = message.Wire();
  int rrsigs = 0;
  CHECK(bench.parser.ParseResponse(nullptr, &rrsigs, View(bytes), 12, 8, true, "question") == kDecoded);
  CHECK(rrsigs == 1);
  CHECK(bench.host.mappings.size() == 2);
  CHECK(bench.parser.injected_mappings == 2);
  CHECK(bench.host.lines.size() == 4);  // two mappings, a short owner of a PTR record, an AAAA record
}

TEST_CASE("without a summary what cannot be read still ends the walk") {
  const QuietBench bench;
  for (const Data& data : {A("192.0.2.1"), Cname("cc"), Ptr("cc"), Mx(1, "cc"), Txt("hello"), Aaaa("::1")}) {
    std::string bytes = Response(7).Answer("aa", data).Wire();
    bytes.pop_back();
    CHECK(bench.parser.ParseResponse(nullptr, nullptr, View(bytes), 12, 1, true, "") == kRanOut);
  }
}

TEST_CASE("without a counter signatures are skipped") {
  const QuietBench bench;
  const std::string bytes = Response(7).Answer("aa", Rrsig(kA, "aa")).Answer("aa", A("192.0.2.1")).Wire();
  std::string summary;
  CHECK(bench.parser.ParseResponse(&summary, nullptr, View(bytes), 12, 2, false, "") == kDecoded);
  CHECK(summary == "[aa => 192.0.2.1]");
}

TEST_CASE("an AAAA record is traced with its owner, summary or not") {
  const std::string bytes = Response(7).Answer("aa.bb", Aaaa("::1")).Wire();
  std::string summary;
  for (std::string* wanted : {&summary, static_cast<std::string*>(nullptr)}) {
    QuietBench bench(5);
    CHECK(bench.parser.ParseResponse(wanted, nullptr, View(bytes), 12, 1, true, "question") == kDecoded);
    CHECK(Log(bench.host) == Traced(640, kReceivedAaaa, "Received AAAA response for: aa.bb"));
    CHECK(bench.host.debug_files == std::vector<std::string>{"dns-parser.cc"});
    CHECK(bench.host.mappings.empty());
  }
}

TEST_CASE("an AAAA record is traced at level 5 with the debug switch on, and only then") {
  const Message message = Response(7).Answer("aa.bb", Aaaa("::1"));
  for (const int level : {3, 4, 5, 6}) {
    for (const bool debug : {false, true}) {
      QuietBench bench(level);
      bench.host.debug_enabled = debug;
      WalkAnswers(bench, message, 1);
      CHECK(bench.host.lines.size() == (level >= 5 && debug ? 1 : 0));
      CHECK(bench.host.debug_files.size() == (level >= 5 ? 1 : 0));  // asked after the level
    }
  }
}

TEST_CASE("nothing but an AAAA record is traced when there are no mappings") {
  QuietBench bench(5);
  Message message = Response(7);
  for (const Entry& entry : Entries()) {
    if (entry.data.type != kAaaa) message.Answer("aa.bb", entry.data);
  }
  WalkAnswers(bench, message, 5);
  CHECK(Log(bench.host).empty());
  CHECK(bench.host.debug_files.empty());
}
