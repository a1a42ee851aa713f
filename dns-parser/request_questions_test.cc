#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// The questions of a request, and the texts that are kept of them.

namespace {

std::string TypesOf(const Message& message) {
  Pairing bench;
  CHECK(bench.Request(message.Wire()));
  CHECK(Log(bench.host).empty());
  return bench.OnlyQuery().types;
}

std::string TypesOf(uint16_t type, uint16_t klass = kIn) {
  return TypesOf(Query(7).Question("aa.bb", type, klass));
}

std::string NamesOf(const Message& message) {
  Pairing bench;
  CHECK(bench.Request(message.Wire()));
  return bench.OnlyQuery().names;
}

// A request that was refused or accepted without being recorded.
void CheckUnrecorded(const Pairing& bench) {
  CHECK(bench.Open() == 0);
  CHECK(bench.host.records.empty());
  CHECK(bench.parser.next_request_id == 1);
  CHECK(bench.parser.max_open_queries_seen == 0);
}

}  // namespace

TEST_CASE("a type is kept as its name and description") {
  CHECK(TypesOf(kA) == "A - IPv4 address lookup");
  CHECK(TypesOf(kAaaa) == "AAAA - IPv6 address lookup");
  CHECK(TypesOf(kIxfr) == "IXFR - Incremental zone transfer");
}

TEST_CASE("a type without description is kept as its name") {
  CHECK(TypesOf(kAny) == "ANY");
  CHECK(TypesOf(kDs) == "DS");
}

TEST_CASE("a type that is not in the table is kept as its number") {
  CHECK(TypesOf(kHttps) == "UNKNOWN/65");
  CHECK(TypesOf(13) == "UNKNOWN/13");
  CHECK(TypesOf(0) == "UNKNOWN/0");
  CHECK(TypesOf(65535) == "UNKNOWN/65535");
}

TEST_CASE("the class stands before the type unless it is IN") {
  CHECK(TypesOf(kAaaa, kChaos) == "CH/AAAA - IPv6 address lookup");
  CHECK(TypesOf(kA, 255) == "*/A - IPv4 address lookup");
  CHECK(TypesOf(kA, 2) == "CS/A - IPv4 address lookup");
}

TEST_CASE("an unknown class is kept as its number, and does not spoil an unknown type's") {
  CHECK(TypesOf(kA, 0) == "UNKNOWN/0/A - IPv4 address lookup");
  CHECK(TypesOf(kHttps, 32769) == "UNKNOWN/32769/UNKNOWN/65");
}

TEST_CASE("a name is kept as it was decoded") {
  CHECK(NamesOf(Query(7).Question("aa.bb", kA)) == "aa.bb");
  CHECK(NamesOf(Query(7).Question("WwW.Example\\.oRg.", kA)) == "WwW.Example.oRg");
  CHECK(NamesOf(Query(7).Question("a\\000b.c", kA)) == std::string("a\0b.c", 5));
}

TEST_CASE("the name of the root is empty, and its query is recorded") {
  CHECK(NamesOf(Query(7).Question(".", kNs)).empty());
}

TEST_CASE("the types and names of several questions are joined") {
  const Message message = Query(7).Question("aa.bb", kA).Question("cc", kTxt, kChaos).Question("d.e", kHttps);
  CHECK(TypesOf(message) == "A - IPv4 address lookup, CH/TXT - Text record, UNKNOWN/65");
  CHECK(NamesOf(message) == "aa.bb, cc, d.e");
}

TEST_CASE("a root among several questions leaves its place empty, but never in front") {
  CHECK(NamesOf(Query(7).Question("aa", kA).Question(".", kA)) == "aa, ");
  CHECK(NamesOf(Query(7).Question(".", kA).Question("aa", kA)) == "aa");
  CHECK(NamesOf(Query(7).Question("aa", kA).Question(".", kA).Question("bb", kA)) == "aa, , bb");
}

TEST_CASE("a later question may point into an earlier one") {
  const Message message =
      Query(7).Compressed().Question("aa.bb", kA).Question("xx.aa.bb", kA).Question("aa.bb", kA);
  CHECK(NamesOf(message) == "aa.bb, xx.aa.bb, aa.bb");
}

TEST_CASE("a question's name may follow sixteen pointers, and no more") {
  for (const int pointers : {16, 17}) {
    Pairing bench;
    const std::string message = Query(7).Bytes(ChainedQuestion(pointers)).QuestionCount(1).Wire();
    CHECK(bench.Request(message) == (pointers == 16));
    CHECK(bench.Open() == (pointers == 16 ? 1 : 0));
  }
}

TEST_CASE("as many questions are read as the header counts, and no more") {
  CHECK(NamesOf(Query(7).Question("aa", kA).Question("bb", kA).QuestionCount(1)) == "aa");
}

TEST_CASE("many questions are all kept") {
  Message message = Query(7);
  std::string types;
  std::string names;
  for (int i = 0; i < 300; ++i) {
    message.Question("n" + std::to_string(i), kA);
    types += (i == 0 ? "" : ", ") + std::string("A - IPv4 address lookup");
    names += (i == 0 ? "n" : ", n") + std::to_string(i);
  }
  CHECK(TypesOf(message) == types);
  CHECK(NamesOf(message) == names);
}

TEST_CASE("a malformed question name is refused, however much was captured") {
  const std::string message = Query(7).QuestionCount(1).Bytes("\x80").Wire();
  Pairing bench;
  CHECK_FALSE(bench.Request(message));
  CHECK_FALSE(bench.RequestCut(message, message.size(), 100));
  CheckUnrecorded(bench);
  CHECK(bench.host.Texts(4) == std::vector<std::string>(2, "[dns]-GetName unknown length-high-bit mask: 0x80"));
}

TEST_CASE("a question name that points into the header is refused") {
  Pairing bench;
  CHECK_FALSE(bench.Request(Query(7).Question(Pointer(11), kA).Wire()));
  CheckUnrecorded(bench);
}

TEST_CASE("a malformed second question is refused") {
  Pairing bench;
  CHECK_FALSE(bench.Request(Query(7).Question("aa", kA).Bytes("\x40").QuestionCount(2).Wire()));
  CheckUnrecorded(bench);
}

TEST_CASE("a question past the captured bytes is refused when the message was whole") {
  const std::string message = AQuery(7);
  for (size_t size = 12; size < message.size(); ++size) {
    CAPTURE(size);
    Pairing bench;
    CHECK_FALSE(bench.RequestCut(message, size, size));
    CheckUnrecorded(bench);
    // Past the name nothing is said: the name decoder is the one that logs.
    CHECK(bench.host.lines.size() == (size < 19 ? 1 : 0));
  }
}

TEST_CASE("a question past the captured bytes is excused when the capture was cut") {
  const std::string message = AQuery(7);
  for (size_t size = 12; size < message.size(); ++size) {
    CAPTURE(size);
    Pairing bench;
    CHECK(bench.RequestCut(message, size, message.size()));
    CheckUnrecorded(bench);
    CHECK(bench.RequestCut(message, size, size + 1));
    CheckUnrecorded(bench);
  }
}

TEST_CASE("a counted question that is not there is refused in a whole message and excused in a cut one") {
  const std::string message = Query(7).Question("aa", kA).QuestionCount(2).Wire();
  Pairing bench;
  CHECK_FALSE(bench.Request(message));
  CHECK(bench.RequestCut(message, message.size(), message.size() + 1));
  CheckUnrecorded(bench);
  CHECK(Counters(bench.parser) == "mqd:2");
}

TEST_CASE("an unreadable question asks nothing of the host") {
  Pairing bench;
  bench.RequestCut(AQuery(7), 21, 21);
  CHECK(Calls(bench.host).empty());
}

TEST_CASE("a query whose questions have no text would be blank, which is said at level 2") {
  Pairing bench({}, 2);
  CHECK_FALSE(bench.parser.IsBlank("A - IPv4 address lookup", 1));
  CHECK(Log(bench.host).empty());
  CHECK(bench.parser.IsBlank("", 3));
  CHECK(Log(bench.host) == Logged(2, "qdcount=%d, but query is blank", "qdcount=3, but query is blank"));
  bench.host.level = 1;
  CHECK(bench.parser.IsBlank("", 3));
  CHECK(bench.host.lines.size() == 1);
}
