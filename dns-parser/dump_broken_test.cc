#include <doctest/doctest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "tests/support/death.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// Dumps of messages that cannot be read to their end: what is shown, and where the next section starts.

namespace {

constexpr uint16_t kHinfoAsTabled = 14;
const std::string kUnknownLabel = "GetName unknown length-high-bit mask: 0x40\n";

std::string RanOutText(int offset, size_t size) {
  return "GetName offset exceeds packet size: " + std::to_string(offset) + " > " + std::to_string(size) + "\n";
}

// What the dump of a message's bytes shows behind the header's line.
std::string DumpOf(const std::string& bytes, int level = 5) {
  const QuietBench bench(level);
  const IOVec view = View(bytes);
  DnsHeader header{};
  REQUIRE(ReadHeader(view, &header));
  bench.parser.DebugDump(header, view);
  const std::string shown = Shown(bench.host);
  return level < 5 ? shown : shown.substr(shown.find('\n') + 1);
}

// A field of a message in the order of reading: what it is, and the line that is shown once it has been read.
struct Field {
  enum class Kind { kName, kString, kNumber };
  Kind kind;
  int section;  // 0: questions
  int start;
  int end;
  int resume;  // where the next section starts when this cannot be read; -1: where the reader left the offset
  std::string line;
};

// A message whose fields are known, without compression: each add-function writes one down and the bytes with it.
class Rich {
 public:
  Rich() {
    Question("aa.bb", kA, "qtype=A(1)");
    Record(1, "cc", Cname("dd.ee"), "CNAME(5)", {{Field::Kind::kName, 7}}, "732    CNAME = { str='dd.ee' }\n");
    Record(1, "dd", A("192.0.2.1"), "A(1)", {{Field::Kind::kNumber, 4}}, "808    A = { addr=192.0.2.1 }\n");
    Record(1, "dd", Txt("hello", "unread"), "TXT(16)", {{Field::Kind::kString, 6}},
           "739    TXT = { str='hello' }\n");
    Record(1, "dd", Mx(3, "mx"), "MX(15)", {{Field::Kind::kNumber, 2}, {Field::Kind::kName, 4}},
           "755    MX = { preference=3, exchange='mx' }\n");
    Record(1, "dd", Rdata(kHinfoAsTabled, CharacterString("cpu") + CharacterString("os")), "HINFO(14)",
           {{Field::Kind::kString, 4}, {Field::Kind::kString, 3}}, "746    HINFO = { cpus='cpu' os='os' }\n");
    Record(2, "dd", Rdata(kHttps, "unread"), "UNKNOWN/65(65)", {}, "");
    Record(
        2, "dd", Soa("m", "r"), "SOA(6)",
        {{Field::Kind::kName, 3},
         {Field::Kind::kName, 3},
         {Field::Kind::kNumber, 4},
         {Field::Kind::kNumber, 4},
         {Field::Kind::kNumber, 4},
         {Field::Kind::kNumber, 4},
         {Field::Kind::kNumber, 4}},
        "801    SOA = { mname='m', rname='r', serial=1, refresh=7200, retry=3600, expire=86400, minimum=300 }\n");
    Record(2, "dd", Aaaa("2001:db8::1"), "AAAA(28)", {{Field::Kind::kNumber, 16}},
           "816    AAAA = { addr=2001:db8::1 }\n");
    Record(
        3, "dd", Srv(1, 2, 3, "t"), "SRV(33)",
        {{Field::Kind::kNumber, 2}, {Field::Kind::kNumber, 2}, {Field::Kind::kNumber, 2}, {Field::Kind::kName, 3}},
        "773    SRV = { priority=1, weight=2, port=3, target='t' }\n");
    Record(3, "ee", Ns("n"), "NS(2)", {{Field::Kind::kName, 3}}, "732    NS = { str='n' }\n");
    Record(3, "ff", Ptr("p"), "PTR(12)", {{Field::Kind::kName, 3}}, "732    PTR = { str='p' }\n");
  }

  Message message = Response(7);
  std::vector<Field> fields;

 private:
  struct Piece {
    Field::Kind kind;
    int size;
  };

  void Add(Field::Kind kind, int section, int size, int resume, const std::string& line = "") {
    fields.push_back({kind, section, at, at + size, resume, line});
    at += size;
  }

  void Question(const std::string& name, uint16_t type, const std::string& text) {
    const std::string start = std::to_string(at);
    message.Question(name, type);
    Add(Field::Kind::kName, 0, static_cast<int>(name.size()) + 2, -1);
    Add(Field::Kind::kNumber, 0, 2, -1);
    Add(Field::Kind::kNumber, 0, 2, -1,
        "546 question[0]@" + start + " = { name='" + name + "' " + text + " qclass=IN(1) }\n");
  }

  void Record(int section, const std::string& name, const Data& data, const std::string& type,
              const std::vector<Piece>& pieces, const std::string& line) {
    static constexpr std::array kSections = {"", "answer", "authority", "resource"};
    const std::string start = std::to_string(at);
    if (section == 1) message.Answer(name, data);
    if (section == 2) message.Authority(name, data);
    if (section == 3) message.Additional(name, data);
    Add(Field::Kind::kName, section, static_cast<int>(name.size()) + 2, -1);
    for (const int size : {2, 2, 4}) Add(Field::Kind::kNumber, section, size, at);
    const int data_start = at + 2;
    const int length = static_cast<int>(message.Here()) - data_start;
    const int index = section == last_section ? ++last_index : last_index = 0;
    last_section = section;
    Add(Field::Kind::kNumber, section, 2, at,
        "722 " + std::string(kSections.at(static_cast<size_t>(section))) + "[" + std::to_string(index) + "]@" +
            start + " = { name='" + name + "', type=" + type +
            " class=IN(1), ttl=300, rdlength=" + std::to_string(length) + " }\n");
    for (const Piece& piece : pieces) Add(piece.kind, section, piece.size, data_start);
    if (!pieces.empty()) fields.back().line = line;
    at = static_cast<int>(message.Here());
  }

  int at = 12;
  int last_section = 0;
  int last_index = 0;
};

// What a prefix shows: the lines of all fields before the first that is cut, what that one's reader says, and one
// line more for each section behind it, which reads a byte and gives up.
std::string ExpectedOf(const Rich& rich, const std::string& prefix) {
  const int size = static_cast<int>(prefix.size());
  std::string expected;
  for (const Field& field : rich.fields) {
    if (field.end <= size) {
      expected += field.line;
      continue;
    }
    const QuietBench bench(5);
    int offset = field.resume;
    if (field.kind == Field::Kind::kName) {
      const Decoded name = NameAt(bench, prefix, field.start);
      if (offset < 0) offset = name.offset;
    } else if (field.kind == Field::Kind::kString) {
      StringAt(bench, prefix, field.start);
    }
    expected += Shown(bench.host);
    if (field.section == 0) return expected;
    for (int section = field.section + 1; section <= 3; ++section) expected += RanOutText(++offset, prefix.size());
    return expected;
  }
  return expected;
}

}  // namespace

TEST_CASE("each prefix of a message is dumped as far as it goes") {
  const Rich rich;
  const std::string message = rich.message.Wire();
  for (size_t length = 12; length <= message.size(); ++length) {
    CAPTURE(length);
    const std::string prefix = Prefix(message, length);
    CHECK(DumpOf(prefix) == ExpectedOf(rich, prefix));
  }
}

TEST_CASE("each prefix of a message is read the same though nothing of it is shown") {
  const Rich rich;
  const std::string message = rich.message.Wire();
  for (size_t length = 12; length <= message.size(); ++length) {
    CAPTURE(length);
    const std::string prefix = Prefix(message, length);
    std::string complaints;
    const std::string expected = ExpectedOf(rich, prefix);
    for (size_t at = 0; at < expected.size(); at = expected.find('\n', at) + 1) {
      if (expected[at] == 'G') complaints += expected.substr(at, expected.find('\n', at) + 1 - at);
    }
    CHECK(DumpOf(prefix, 4) == complaints);
  }
}

TEST_CASE("a question that cannot be read ends the dump, records or not") {
  Message message = Response(7).Question("aa", kA).Question(RawName("\x41"), kA).Question("bb", kA);
  message.Answer("aa", A("192.0.2.1")).Authority("aa", A("192.0.2.1")).Additional(Opt());
  CHECK(DumpOf(message.Wire()) == "546 question[0]@12 = { name='aa' qtype=A(1) qclass=IN(1) }\n" + kUnknownLabel);
}

TEST_CASE("more questions announced than there are end the dump") {
  const std::string bytes = Response(7).Question("aa", kA).Counts(2, 1, 1, 1).Wire();
  CHECK(DumpOf(bytes) == "546 question[0]@12 = { name='aa' qtype=A(1) qclass=IN(1) }\n" + RanOutText(21, 20));
}

TEST_CASE("a failed read stays: each later section with a count reads one byte and gives up") {
  const std::string whole = Response(7).Answer("aa", A("192.0.2.1")).Counts(0, 2, 1, 3).Wire();
  const std::string record =
      "722 answer[0]@12 = { name='aa', type=A(1) class=IN(1), ttl=300, rdlength=4 }\n"
      "808    A = { addr=192.0.2.1 }\n";
  CHECK(DumpOf(whole) == record + RanOutText(31, 30) + RanOutText(32, 30) + RanOutText(33, 30));
  // Cut in the TTL, the later sections start there, and the bytes that are left do not help them.
  CHECK(DumpOf(Prefix(whole, 23)) == RanOutText(21, 23) + RanOutText(22, 23));
}

TEST_CASE("a section without a count is not tried behind a failed read") {
  const std::string bytes = Response(7).Counts(0, 1, 0, 1).Wire();
  CHECK(DumpOf(bytes) == RanOutText(13, 12) + RanOutText(14, 12));
}

TEST_CASE("the dump leaves the view's flag down") {
  const QuietBench bench(5);
  const std::string bytes = Response(7).Counts(0, 1, 0, 0).Wire();
  const IOVec view = View(bytes);
  DnsHeader header{};
  REQUIRE(ReadHeader(view, &header));
  bench.parser.DebugDump(header, view);
  CHECK_FALSE(view.ok);
}

TEST_CASE("the dump through a view that has failed before shows the header and gives up") {
  const QuietBench bench(5);
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1")).Wire();
  const IOVec view = View(bytes);
  DnsHeader header{};
  REQUIRE(ReadHeader(view, &header));
  view.ok = false;
  bench.parser.DebugDump(header, view);
  CHECK(bench.host.lines.size() == 2);
  CHECK(Shown(bench.host).ends_with("\n" + RanOutText(13, bytes.size())));
}

TEST_CASE("a malformed owner ends its section, and the next one is read from where the offset stands") {
  const std::string bytes = Response(7)
                                .Answer("aa", A("192.0.2.1"))
                                .Bytes("\x41")
                                .Authority("bb", Rdata(kDs))
                                .Additional("cc", Rdata(kDs))
                                .AnswerCount(3)
                                .Wire();
  CHECK(DumpOf(bytes) ==
        "722 answer[0]@12 = { name='aa', type=A(1) class=IN(1), ttl=300, rdlength=4 }\n"
        "808    A = { addr=192.0.2.1 }\n" +
            kUnknownLabel +
            "722 authority[0]@31 = { name='bb', type=DS(43) class=IN(1), ttl=300, rdlength=0 }\n"
            "722 resource[0]@45 = { name='cc', type=DS(43) class=IN(1), ttl=300, rdlength=0 }\n");
}

TEST_CASE("malformed data ends its section behind its record line, and the next one is read from the data") {
  // Ns and the like fail on the first byte of their data; the authority section then reads the whole data as a
  // name.
  const Name bad = RawName("\x41");
  struct Row {
    Data data;
    std::string type;
    int length;
  };
  const std::vector<Row> kRows = {{Ns(bad), "NS(2)", 1},
                                  {Cname(bad), "CNAME(5)", 1},
                                  {Ptr(bad), "PTR(12)", 1},
                                  {Mx(1, bad), "MX(15)", 3},
                                  {Soa(bad, "aa"), "SOA(6)", 25},
                                  {Soa("aa", bad), "SOA(6)", 25},
                                  {Srv(0, 0, 0, bad), "SRV(33)", 7}};
  for (const Row& row : kRows) {
    CAPTURE(row.type);
    const QuietBench bench(5);
    const std::string bytes = Response(7).Answer("aa", row.data).Answer("aa", A("192.0.2.1")).Wire();
    const IOVec view = View(bytes);
    int offset = 12;
    bench.parser.DumpRR(view, &offset, "answer", 2);
    CHECK(Shown(bench.host) == "722 answer[0]@12 = { name='aa', type=" + row.type +
                                   " class=IN(1), ttl=300, rdlength=" + std::to_string(row.length) + " }\n" +
                                   kUnknownLabel);
    CHECK(offset == 26);  // the first byte of the data
    CHECK(view.ok);
  }
}

TEST_CASE("malformed data ends its section even when no line is shown") {
  const QuietBench bench(4);
  const std::string bytes = Response(7).Answer("aa", Ns(RawName("\x41"))).Answer("aa", Rdata(kDs)).Wire();
  int offset = 12;
  bench.parser.DumpRR(View(bytes), &offset, "answer", 2);
  CHECK(Shown(bench.host) == kUnknownLabel);
  CHECK(offset == 26);
}

TEST_CASE("a section that runs out in a fixed field leaves the offset at that field") {
  const std::string whole = Response(7).Answer("aa", Rdata(kDs)).Wire();
  REQUIRE(whole.size() == 26);
  for (size_t length = 16; length < whole.size(); ++length) {
    CAPTURE(length);
    const QuietBench bench(5);
    const std::string prefix = Prefix(whole, length);
    int offset = 12;
    bench.parser.DumpRR(View(prefix), &offset, "answer", 1);
    CHECK(offset == (length < 18 ? 16 : length < 20 ? 18 : length < 24 ? 20 : 24));
    CHECK(Log(bench.host).empty());
  }
}

TEST_CASE("a section whose data runs out leaves the offset at the data") {
  for (const Data& data :
       {A("192.0.2.1"), Ns("bb"), Soa("bb", "cc"), Mx(1, "bb"), Txt("hello"), Aaaa("::1"), Srv(1, 2, 3, "bb"),
        Rdata(kHinfoAsTabled, CharacterString("c") + CharacterString("o"))}) {
    const std::string whole = Response(7).Answer("aa", data).Wire();
    for (size_t length = 26; length < whole.size(); ++length) {
      const QuietBench bench(5);
      const std::string prefix = Prefix(whole, length);
      const IOVec view = View(prefix);
      int offset = 12;
      bench.parser.DumpRR(view, &offset, "answer", 2);
      CHECK(offset == 26);
      CHECK_FALSE(view.ok);
      CHECK(bench.host.Texts(5).size() == 1);  // the record's line
    }
  }
}

TEST_CASE("a stated length past the end is found by the next record") {
  const std::string bytes = Response(7).Answer("aa", A("192.0.2.1").RdLength(1000)).AnswerCount(2).Wire();
  CHECK(DumpOf(bytes) ==
        "722 answer[0]@12 = { name='aa', type=A(1) class=IN(1), ttl=300, rdlength=1000 }\n"
        "808    A = { addr=192.0.2.1 }\n" +
            RanOutText(1027, 30));
}

TEST_CASE("in throwing mode what is cut off throws through the dump") {
  const QuietBench bench(5);
  const std::string bytes = Response(7).Counts(0, 1, 0, 0).Wire();
  IOVec view = View(bytes);
  view.underflow_mode = IOVec::THROW;
  DnsHeader header{};
  REQUIRE(ReadHeader(view, &header));
  CHECK_THROWS_AS(bench.parser.DebugDump(header, view), const IOVec::UnderflowException&);
  CHECK(bench.host.lines.size() == 1);
}

TEST_CASE("in aborting mode what is cut off is fatal to the dump") {
  const std::string bytes = Response(7).Counts(0, 1, 0, 0).Wire();
  CHECK(FatalLine([&] {
          const QuietBench bench(5);
          IOVec view = View(bytes);
          view.underflow_mode = IOVec::ABORT;
          int offset = 12;
          bench.parser.DumpRR(view, &offset, "answer", 1);
        }) == "{ERROR}-iovec.h:162: should not be reached\n");
}
