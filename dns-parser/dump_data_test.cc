#include <doctest/doctest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "dns-parser/dns_parser.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"

using namespace test;

// The dump's lines for what records carry.

namespace {

constexpr uint16_t kHinfoAsTabled = 14;

// Dumps one answer of the owner aa and yields its data line, or nothing. The record line is checked on the way.
std::string DataLineOf(const Data& data, uint16_t klass = kIn) {
  QuietBench bench(5);
  const std::string bytes = Response(7).Answer("aa", data, 300, klass).Wire();
  int offset = 12;
  const IOVec view = View(bytes);
  bench.parser.DumpRR(view, &offset, "answer", 1);
  CHECK(view.ok);
  CHECK(offset == static_cast<int>(bytes.size()));
  REQUIRE(bench.host.lines.size() >= 1);
  CHECK(bench.host.lines[0].text.find("]-[dns]-answer[0]@12 = { name='aa', ") != std::string::npos);
  bench.host.lines.erase(bench.host.lines.begin());
  return Log(bench.host);
}

// The same without the format.
std::string DataTextOf(const Data& data) {
  QuietBench bench(5);
  const std::string bytes = Response(7).Answer("aa", data).Wire();
  int offset = 12;
  bench.parser.DumpRR(View(bytes), &offset, "answer", 1);
  const std::string shown = Shown(bench.host);
  return shown.substr(shown.find('\n') + 1);
}

Data SoaOf(const std::array<uint32_t, 5>& values) {
  Data data = Data(kSoa).Add(Name("ns.aa")).Add(Name("mail.aa"));
  for (const uint32_t value : values) data.Add(U32(value));
  return data;
}

const std::string kSoaFormat =
    "   SOA = { mname='%s', rname='%s', serial=%d, refresh=%d, retry=%d, expire=%d, minimum=%d }";

// One of each kind of data that has a line, and the line's number and start.
struct Kind {
  Data data;
  std::string start;
};
std::vector<Kind> Kinds() {
  return {{A("192.0.2.1"), "808    A = {"},
          {Ns("bb"), "732    NS = {"},
          {Cname("bb"), "732    CNAME = {"},
          {Soa("bb", "cc"), "801    SOA = {"},
          {Ptr("bb"), "732    PTR = {"},
          {Rdata(kHinfoAsTabled, CharacterString("c") + CharacterString("o")), "746    HINFO = {"},
          {Mx(1, "bb"), "755    MX = {"},
          {Txt("t"), "739    TXT = {"},
          {Aaaa("::1"), "816    AAAA = {"},
          {Srv(1, 2, 3, "bb"), "773    SRV = {"}};
}

}  // namespace

TEST_CASE("an A record's address is dumped octet by octet") {
  const std::string format = "   A = { addr=%d.%d.%d.%d }";
  CHECK(DataLineOf(A("192.0.2.1")) == Traced(808, format, "   A = { addr=192.0.2.1 }"));
  CHECK(DataLineOf(A("1.128.254.255")) == Traced(808, format, "   A = { addr=1.128.254.255 }"));
}

TEST_CASE("the name in NS, CNAME and PTR records is dumped under the type's name") {
  const std::string format = "   %s = { str='%s' }";
  CHECK(DataLineOf(Ns("ns.bb")) == Traced(732, format, "   NS = { str='ns.bb' }"));
  CHECK(DataLineOf(Cname("cc.dd")) == Traced(732, format, "   CNAME = { str='cc.dd' }"));
  CHECK(DataLineOf(Ptr(".")) == Traced(732, format, "   PTR = { str='' }"));
}

TEST_CASE("an SOA record's names and values are dumped in order") {
  CHECK(DataLineOf(SoaOf({1, 2, 3, 4, 5})) ==
        Traced(801, kSoaFormat,
               "   SOA = { mname='ns.aa', rname='mail.aa', serial=1, refresh=2, retry=3, expire=4, minimum=5 }"));
}

TEST_CASE("an SOA record's values are big-endian") {
  CHECK(DataLineOf(SoaOf({0x01020304, 0x7fffffff, 256, 65536, 0})) ==
        Traced(801, kSoaFormat,
               "   SOA = { mname='ns.aa', rname='mail.aa', serial=16909060, refresh=2147483647, retry=256, "
               "expire=65536, minimum=0 }"));
}

TEST_CASE("an SOA record's values are shown signed on purpose") {
  CHECK(DataLineOf(SoaOf({0x80000000, 0xffffffff, 0xfffffffe, 0xfffffffd, 0xfffffffc})) ==
        Traced(801, kSoaFormat,
               "   SOA = { mname='ns.aa', rname='mail.aa', serial=-2147483648, refresh=-1, retry=-2, expire=-3, "
               "minimum=-4 }"));
}

TEST_CASE("a record of type 14 is dumped as HINFO, with two strings") {
  CHECK(DataLineOf(Rdata(kHinfoAsTabled, CharacterString("cpu") + CharacterString("os"))) ==
        Traced(746, "   HINFO = { cpus='%s' os='%s' }", "   HINFO = { cpus='cpu' os='os' }"));
}

TEST_CASE("14 prints HINFO and 13 prints UNKNOWN/13 on purpose, in the dump as well") {
  const QuietBench bench(5);
  const std::string strings = CharacterString("cpu") + CharacterString("os");
  const std::string bytes = Response(7).Answer("aa", Rdata(14, strings)).Answer("aa", Rdata(13, strings)).Wire();
  int offset = 12;
  bench.parser.DumpRR(View(bytes), &offset, "answer", 2);
  CHECK(Shown(bench.host) ==
        "722 answer[0]@12 = { name='aa', type=HINFO(14) class=IN(1), ttl=300, rdlength=7 }\n"
        "746    HINFO = { cpus='cpu' os='os' }\n"
        "722 answer[1]@33 = { name='aa', type=UNKNOWN/13(13) class=IN(1), ttl=300, rdlength=7 }\n");
}

TEST_CASE("an MX record's preference and exchange are dumped") {
  const std::string format = "   MX = { preference=%d, exchange='%s' }";
  CHECK(DataLineOf(Mx(10, "mx.bb")) == Traced(755, format, "   MX = { preference=10, exchange='mx.bb' }"));
  CHECK(DataLineOf(Mx(0xfffe, ".")) == Traced(755, format, "   MX = { preference=65534, exchange='' }"));
}

TEST_CASE("the first string of a TXT record is dumped") {
  CHECK(DataLineOf(Txt("hello", "unseen")) == Traced(739, "   %s = { str='%s' }", "   TXT = { str='hello' }"));
  CHECK(DataLineOf(Txt("")) == Traced(739, "   %s = { str='%s' }", "   TXT = { str='' }"));
}

TEST_CASE("an AAAA record's address is dumped as everywhere") {
  const std::string format = "   AAAA = { addr=%s }";
  CHECK(DataLineOf(Aaaa("2001:db8::1")) == Traced(816, format, "   AAAA = { addr=2001:db8::1 }"));
  CHECK(DataLineOf(Aaaa("::")) == Traced(816, format, "   AAAA = { addr=::0 }"));
  CHECK(DataLineOf(Aaaa("2001:db8::")) == Traced(816, format, "   AAAA = { addr=2001:db8: }"));
}

TEST_CASE("an SRV record's priority, weight, port and target are dumped") {
  const std::string format = "   SRV = { priority=%d, weight=%d, port=%d, target='%s' }";
  CHECK(DataLineOf(Srv(1, 2, 853, "dns.bb")) ==
        Traced(773, format, "   SRV = { priority=1, weight=2, port=853, target='dns.bb' }"));
  CHECK(DataLineOf(Srv(65533, 65534, 65535, ".")) ==
        Traced(773, format, "   SRV = { priority=65533, weight=65534, port=65535, target='' }"));
}

TEST_CASE("other types have no data line") {
  std::vector<unsigned> with_line;
  for (const Kind& kind : Kinds()) with_line.push_back(kind.data.type);
  for (unsigned type = 0; type < 600; ++type) {
    if (std::ranges::find(with_line, type) != with_line.end()) continue;
    CAPTURE(type);
    CHECK(DataLineOf(Rdata(static_cast<uint16_t>(type), "\x41\x41\x41\x41\x41\x41\x41\x41")).empty());
  }
}

TEST_CASE("data is dumped whatever the record's class") {
  CHECK_FALSE(DataLineOf(A("192.0.2.1"), kChaos).empty());
  CHECK_FALSE(DataLineOf(Txt("hello"), 254).empty());
}

TEST_CASE("names in data may be compressed") {
  const QuietBench bench(5);
  const std::string bytes = Response(7)
                                .Compressed()
                                .Answer("aa.bb", Soa("ns.aa.bb", "mail.aa.bb"))
                                .Answer("aa.bb", Srv(0, 0, 53, "ns.aa.bb"))
                                .Wire();
  int offset = 12;
  bench.parser.DumpRR(View(bytes), &offset, "answer", 2);
  CHECK(offset == static_cast<int>(bytes.size()));
  const std::string shown = Shown(bench.host);
  CHECK(shown.find("mname='ns.aa.bb', rname='mail.aa.bb', serial=1,") != std::string::npos);
  CHECK(shown.find("port=53, target='ns.aa.bb' }") != std::string::npos);
}

TEST_CASE("every name in data may take sixteen pointers, and not seventeen") {
  const auto lines = [](const Data& data) {
    const QuietBench bench(5);
    Message message = PointerChain(16);
    int offset = static_cast<int>(message.Here());
    const std::string bytes = message.Answer("bb", data).Wire();
    bench.parser.DumpRR(View(bytes), &offset, "answer", 1);
    return bench.host.Texts(5).size();  // the record's, and the data's if it could be read
  };
  for (const unsigned links : {16U, 17U}) {
    CAPTURE(links);
    const size_t expected = links == 16 ? 2 : 1;
    const Name name = Link(links);
    for (const Data& data :
         {Ns(name), Cname(name), Ptr(name), Mx(1, name), Srv(1, 2, 3, name), Soa(name, "bb"), Soa("bb", name)}) {
      CHECK(lines(data) == expected);
    }
  }
}

TEST_CASE("each kind of data has its line, and the dump goes on by the stated length when there is more") {
  for (const Kind& kind : Kinds()) {
    CAPTURE(kind.start);
    Data data = kind.data;
    data.Add(std::string("trailer that is not read"));
    const std::string text = DataTextOf(data);
    CHECK(text.starts_with(kind.start));
    CHECK(std::count(text.begin(), text.end(), '\n') == 1);
    const QuietBench bench(5);
    const std::string bytes = Response(7).Answer("aa", data).Answer("ee", Rdata(kDs)).Wire();
    int offset = 12;
    bench.parser.DumpRR(View(bytes), &offset, "answer", 2);
    CHECK(offset == static_cast<int>(bytes.size()));
    CHECK(Shown(bench.host).find("answer[1]@" + std::to_string(bytes.size() - 14) + " = { name='ee',") !=
          std::string::npos);
  }
}

TEST_CASE("the dump goes on by the stated length when less was stated than read") {
  // Without data, a record's data is read from the next record, which is then dumped as well.
  const std::string next =
      "722 answer[1]@26 = { name='x.y', type=A(1) class=IN(1), ttl=300, rdlength=4 }\n"
      "808    A = { addr=192.0.2.9 }\n";
  struct Row {
    uint16_t type;
    std::string text;
  };
  const std::vector<Row> kRows = {{kA, "808    A = { addr=1.120.1.121 }\n"},
                                  {kCname, "732    CNAME = { str='x.y' }\n"},
                                  {kMx, "755    MX = { preference=376, exchange='y' }\n"},
                                  {kTxt, "739    TXT = { str='x' }\n"},
                                  {kHinfoAsTabled, "746    HINFO = { cpus='x' os='y' }\n"},
                                  {kAaaa, "816    AAAA = { addr=178:179::100:100:1:2c00:4c0 }\n"}};
  for (const Row& row : kRows) {
    CAPTURE(row.type);
    const QuietBench bench(5);
    const std::string bytes = Response(7).Answer("aa", Rdata(row.type)).Answer("x.y", A("192.0.2.9")).Wire();
    int offset = 12;
    bench.parser.DumpRR(View(bytes), &offset, "answer", 2);
    const std::string shown = Shown(bench.host);
    CHECK(shown.substr(shown.find('\n') + 1) == row.text + next);
  }
}
