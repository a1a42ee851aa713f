#include <doctest/doctest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// The dump of a message: header, questions and records. What records carry is in dump_data_test.cc, what cannot be
// read in dump_broken_test.cc.

namespace {

void Dump(const Bench& bench, const Message& message) {
  const std::string bytes = message.Wire();
  const IOVec view = View(bytes);
  DnsHeader header{};
  REQUIRE(ReadHeader(view, &header));
  bench.parser.DebugDump(header, view);
}

// What a dump shows behind the header's line.
std::string DumpOf(const Message& message) {
  const QuietBench bench(5);
  Dump(bench, message);
  const std::string shown = Shown(bench.host);
  CHECK(shown.starts_with("525 qid="));
  return shown.substr(shown.find('\n') + 1);
}

std::string OptLine(const std::string& section, int index, int offset, const std::string& rest) {
  return "718 " + section + "[" + std::to_string(index) + "]@" + std::to_string(offset) + " = { " + rest + " }\n";
}

const std::string kHeaderFormat =
    "qid=%u recursion=%u truncated=%u authoritative=%u opcode=%u response=%u rcode=%u rec.avail=%u #questions=%u "
    "#answers=%u #authorities=%u #resources=%u";
const std::string kQuestionFormat = "question[%d]@%d = { name='%s' qtype=%s(%d) qclass=%s(%d) }";
const std::string kRecordFormat = "%s[%d]@%d = { name='%s', type=%s(%d) class=%s(%d), ttl=%u, rdlength=%d }";
const std::string kOptFormat =
    "%s[%d]@%d = { name='%s', type=%s(%d) udpsize=%d, rcode_high_bits=%02x, edns_version=%d, z=%04x, rdlength=%d }";

// A host whose debug switch flips, and one that loses interest. The callbacks carry no context.
bool next_answer = false;
bool FlippingSwitch(const std::string&) { return next_answer = !next_answer; }
int questions_left = 0;
RecordingHost* watched = nullptr;
bool SwitchThatLowersTheLevel(const std::string&) {
  if (--questions_left == 0) watched->level = 4;
  return true;
}

}  // namespace

TEST_CASE("a message without questions and records is dumped as its header") {
  const QuietBench bench(5);
  Dump(bench, Query(7));
  CHECK(Log(bench.host) == Traced(525, kHeaderFormat,
                                  "qid=7 recursion=1 truncated=0 authoritative=0 opcode=0 response=0 rcode=0 "
                                  "rec.avail=0 #questions=0 #answers=0 #authorities=0 #resources=0"));
}

TEST_CASE("each field of the header is dumped in its place") {
  DnsHeader header{};
  const std::string bytes = Query(7).Wire();
  const auto dumped = [&](auto set) {
    QuietBench quiet(5);
    header = {};
    set();
    quiet.parser.DebugDump(header, View(bytes));
    const std::string shown = Shown(quiet.host);
    return shown.substr(0, shown.find('\n'));
  };
  const std::string none = " opcode=0 response=0 rcode=0 rec.avail=0 #questions=0 #answers=0 #authorities=0 ";
  CHECK(dumped([&] { header.qid = 65535; }) ==
        "525 qid=65535 recursion=0 truncated=0 authoritative=0" + none + "#resources=0");
  CHECK(dumped([&] { header.recursion_desired = 1; }) ==
        "525 qid=0 recursion=1 truncated=0 authoritative=0" + none + "#resources=0");
  CHECK(dumped([&] { header.truncated = 1; }) ==
        "525 qid=0 recursion=0 truncated=1 authoritative=0" + none + "#resources=0");
  CHECK(dumped([&] { header.authoritative = 1; }) ==
        "525 qid=0 recursion=0 truncated=0 authoritative=1" + none + "#resources=0");
  CHECK(dumped([&] { header.reserved_flags = 7; }) ==
        "525 qid=0 recursion=0 truncated=0 authoritative=0" + none + "#resources=0");
  const std::string start = "525 qid=0 recursion=0 truncated=0 authoritative=0 ";
  const std::string end = "rec.avail=0 #questions=0 #answers=0 #authorities=0 #resources=0";
  CHECK(dumped([&] { header.opcode = 15; }) == start + "opcode=15 response=0 rcode=0 " + end);
  CHECK(dumped([&] { header.response = 1; }) == start + "opcode=0 response=1 rcode=0 " + end);
  CHECK(dumped([&] { header.rcode = 15; }) == start + "opcode=0 response=0 rcode=15 " + end);
  CHECK(dumped([&] { header.recursion_available = 1; }) ==
        start + "opcode=0 response=0 rcode=0 rec.avail=1 #questions=0 #answers=0 #authorities=0 #resources=0");
  const std::string flags = start + "opcode=0 response=0 rcode=0 rec.avail=0 ";
  CHECK(dumped([&] { header.num_questions = 65535; }) ==
        flags + "#questions=65535 #answers=0 #authorities=0 #resources=0");
  CHECK(dumped([&] { header.num_answers = 65535; }) ==
        flags + "#questions=0 #answers=65535 #authorities=0 #resources=0");
  CHECK(dumped([&] { header.num_authorities = 65535; }) ==
        flags + "#questions=0 #answers=0 #authorities=65535 #resources=0");
  CHECK(dumped([&] { header.num_resources = 65535; }) ==
        flags + "#questions=0 #answers=0 #authorities=0 #resources=65535");
}

TEST_CASE("the header is dumped as handed in, whatever the message says") {
  const QuietBench bench(5);
  const std::string bytes = Response(7).Question("aa.bb", kA).Wire();
  bench.parser.DebugDump(DnsHeader{}, View(bytes));
  CHECK(Shown(bench.host).starts_with("525 qid=0 "));
  CHECK(bench.host.lines.size() == 1);
}

TEST_CASE("a question is dumped with its offset, name, type and class") {
  const QuietBench bench(5);
  Dump(bench, Query(7).Question("aa.bb", kMx, kChaos));
  REQUIRE(bench.host.lines.size() == 2);
  const RecordingHost::Line& line = bench.host.lines[1];
  CHECK(LogLine(line.level, line.format, line.text) ==
        Traced(546, kQuestionFormat, "question[0]@12 = { name='aa.bb' qtype=MX(15) qclass=CH(3) }"));
}

TEST_CASE("each question is dumped, also a compressed one and one for the root") {
  CHECK(DumpOf(Query(7).Compressed().Question("aa.bb", kA).Question(".", kNs).Question("cc.aa.bb", kHttps, 255)) ==
        "546 question[0]@12 = { name='aa.bb' qtype=A(1) qclass=IN(1) }\n"
        "546 question[1]@23 = { name='' qtype=NS(2) qclass=IN(1) }\n"
        "546 question[2]@28 = { name='cc.aa.bb' qtype=UNKNOWN/65(65) qclass=*(255) }\n");
}

TEST_CASE("the name of a question or record may take sixteen pointers, and not seventeen") {
  // The chain lies behind the question and the record, and leads towards the end.
  const auto dump = [](int links) {
    Message message = Query(7);
    const unsigned chain = 12 + 6 + 12;
    message.Question(Pointer(chain), kA).Answer(Pointer(chain), Rdata(kDs));
    for (int i = 1; i < links; ++i) message.Bytes(Pointer(message.Here() + 2).Wire());
    return DumpOf(message.Bytes(Name("aa").Wire()));
  };
  CHECK(dump(16) ==
        "546 question[0]@12 = { name='aa' qtype=A(1) qclass=IN(1) }\n"
        "722 answer[0]@18 = { name='aa', type=DS(43) class=IN(1), ttl=300, rdlength=0 }\n");
  CHECK(dump(17) == "GetName recursion limit reached\n");
}

TEST_CASE("a question line shows an unknown type and an unknown class each with its own text") {
  CHECK(DumpOf(Query(7).Question("aa", 65535, 65534)) ==
        "546 question[0]@12 = { name='aa' qtype=UNKNOWN/65535(65535) qclass=UNKNOWN/65534(65534) }\n");
}

TEST_CASE("a record is dumped with its section, offset, name, type, class, TTL and length") {
  const QuietBench bench(5);
  Dump(bench, Response(7).Answer("aa.bb", Rdata(kDs, "abc"), 300, kChaos));
  REQUIRE(bench.host.lines.size() == 2);
  const RecordingHost::Line& line = bench.host.lines[1];
  CHECK(
      LogLine(line.level, line.format, line.text) ==
      Traced(722, kRecordFormat, "answer[0]@12 = { name='aa.bb', type=DS(43) class=CH(3), ttl=300, rdlength=3 }"));
}

TEST_CASE("a TTL has no sign, nor has a length") {
  CHECK(DumpOf(Response(7).Answer("aa", Rdata(kDs).RdLength(65535), 0xffffffff)) ==
        "722 answer[0]@12 = { name='aa', type=DS(43) class=IN(1), ttl=4294967295, rdlength=65535 }\n");
}

TEST_CASE("two unknown codes in a record line both show the type's text") {
  CHECK(
      DumpOf(Response(7).Answer("aa", Rdata(65280), 1, 4000)) ==
      "722 answer[0]@12 = { name='aa', type=UNKNOWN/65280(65280) class=UNKNOWN/65280(4000), ttl=1, rdlength=0 }\n");
}

TEST_CASE("one unknown code in a record line shows its own text") {
  CHECK(DumpOf(Response(7).Answer("aa", Rdata(65280), 1, kIn)) ==
        "722 answer[0]@12 = { name='aa', type=UNKNOWN/65280(65280) class=IN(1), ttl=1, rdlength=0 }\n");
  CHECK(DumpOf(Response(7).Answer("aa", Rdata(kDs), 1, 4000)) ==
        "722 answer[0]@12 = { name='aa', type=DS(43) class=UNKNOWN/4000(4000), ttl=1, rdlength=0 }\n");
}

TEST_CASE("the sections are dumped in order, each counted from 0") {
  const Message message = Response(7)
                              .Question("q", kA)
                              .Answer("a", Rdata(kDs))
                              .Answer("b", Rdata(kDs))
                              .Authority("c", Rdata(kDs))
                              .Authority("d", Rdata(kDs))
                              .Additional("e", Rdata(kDs))
                              .Additional("f", Rdata(kDs));
  const std::string rest = " type=DS(43) class=IN(1), ttl=300, rdlength=0 }\n";
  CHECK(DumpOf(message) ==
        "546 question[0]@12 = { name='q' qtype=A(1) qclass=IN(1) }\n"
        "722 answer[0]@19 = { name='a'," +
            rest + "722 answer[1]@32 = { name='b'," + rest + "722 authority[0]@45 = { name='c'," + rest +
            "722 authority[1]@58 = { name='d'," + rest + "722 resource[0]@71 = { name='e'," + rest +
            "722 resource[1]@84 = { name='f'," + rest);
}

TEST_CASE("an OPT record has a line of its own") {
  const QuietBench bench(5);
  Dump(bench, Response(7).Additional(".", Rdata(kOpt), 32768, 4096));
  REQUIRE(bench.host.lines.size() == 2);
  const RecordingHost::Line& line = bench.host.lines[1];
  CHECK(LogLine(line.level, line.format, line.text) ==
        Traced(718, kOptFormat,
               "resource[0]@12 = { name='', type=OPT(41) udpsize=4096, rcode_high_bits=00, edns_version=0, z=8000, "
               "rdlength=0 }"));
}

TEST_CASE("the parts of an OPT record's TTL are told apart") {
  CHECK(DumpOf(Response(7).Additional(".", Rdata(kOpt, "options"), 0xab01cdef, 65535)) ==
        OptLine("resource", 0, 12,
                "name='', type=OPT(41) udpsize=65535, rcode_high_bits=ab, edns_version=1, z=cdef, rdlength=7"));
  CHECK(DumpOf(Response(7).Additional(".", Rdata(kOpt), 0x05ff0001, 0)) ==
        OptLine("resource", 0, 12,
                "name='', type=OPT(41) udpsize=0, rcode_high_bits=05, edns_version=255, z=0001, rdlength=0"));
}

TEST_CASE("an OPT record is shown as one in any section and under any name") {
  const std::string rest = "udpsize=512, rcode_high_bits=00, edns_version=0, z=0000, rdlength=0";
  CHECK(DumpOf(Response(7).Answer("aa", Rdata(kOpt), 0, 512).Authority("bb", Rdata(kOpt), 0, 512)) ==
        OptLine("answer", 0, 12, "name='aa', type=OPT(41) " + rest) +
            OptLine("authority", 0, 26, "name='bb', type=OPT(41) " + rest));
}

TEST_CASE("a section is dumped from the offset handed in, which ends behind it") {
  const QuietBench bench(5);
  const std::string bytes = Response(7).Bytes("...").Answer("aa", A("192.0.2.1")).Answer("bb", Rdata(kDs)).Wire();
  int offset = 15;
  bench.parser.DumpRR(View(bytes), &offset, "some section", 2);
  CHECK(offset == static_cast<int>(bytes.size()));
  CHECK(Shown(bench.host) ==
        "722 some section[0]@15 = { name='aa', type=A(1) class=IN(1), ttl=300, rdlength=4 }\n"
        "808    A = { addr=192.0.2.1 }\n"
        "722 some section[1]@33 = { name='bb', type=DS(43) class=IN(1), ttl=300, rdlength=0 }\n");
}

TEST_CASE("a section of no records is not dumped") {
  for (const int count : {0, -1, -65536}) {
    const QuietBench bench(5);
    const std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Wire();
    int offset = 12;
    bench.parser.DumpRR(View(bytes), &offset, "answer", count);
    CHECK(offset == 12);
    CHECK(Log(bench.host).empty());
  }
}

TEST_CASE("the debug switch is asked for each line of the dump, by one file name") {
  const QuietBench bench(5);
  Dump(bench, Response(7).Question("q", kA).Answer("q", A("192.0.2.1")).Additional(Opt()));
  CHECK(bench.host.lines.size() == 5);
  CHECK(bench.host.debug_files == std::vector<std::string>(5, "dns-parser.cc"));
}

TEST_CASE("the debug switch is asked anew for each line of the dump") {
  QuietBench bench(5);
  bench.host.table.is_debug_enabled = FlippingSwitch;
  next_answer = false;
  Dump(bench, Response(7).Question("q", kA).Answer("q", A("192.0.2.1")).Additional(Opt()));
  CHECK(bench.host.lines.size() == 3);
  CHECK(Shown(bench.host).find("722 answer[0]@19") != std::string::npos);
  CHECK(Shown(bench.host).find("718 resource[0]@36") != std::string::npos);
}

TEST_CASE("the level is read anew for each line of the dump") {
  QuietBench bench(5);
  watched = &bench.host;
  questions_left = 2;
  bench.host.table.is_debug_enabled = SwitchThatLowersTheLevel;
  Dump(bench, Response(7).Question("q", kA).Answer("q", A("192.0.2.1")).Additional(Opt()));
  CHECK(bench.host.lines.size() == 2);
  CHECK(questions_left == 0);
}

TEST_CASE("a dump needs level 5 and the debug switch, which is asked after the level") {
  for (const int level : {-1, 4, 5, 6}) {
    for (const bool debug : {false, true}) {
      CAPTURE(level);
      QuietBench bench(level);
      bench.host.debug_enabled = debug;
      Dump(bench, Response(7).Question("q", kA).Answer("q", A("192.0.2.1")).Additional(Opt()));
      CHECK(bench.host.lines.size() == (level >= 5 && debug ? 5 : 0));
      CHECK(bench.host.debug_files.size() == (level >= 5 ? 5 : 0));
    }
  }
}

TEST_CASE("a dump asks nothing else of the host and moves no counter") {
  const QuietBench bench(5);
  Dump(bench, Response(7).Answer("aa", A("192.0.2.1")).Answer("4.3.2.1.in-addr.arpa", Ptr("cc")));
  CHECK(bench.host.calls == std::vector<std::string>(5, "log"));
  CHECK(bench.host.mappings.empty());
  CHECK(bench.parser.injected_mappings == 0);
  CHECK(bench.parser.open_queries.empty());
}
