#include <doctest/doctest.h>

#include <map>
#include <string>

#include "tests/support/pairing.h"

using namespace test;

// The question section of a response: what is read of it, what is odd about it, and how it can end early.

namespace {

using Strings = std::map<std::string, std::string>;

const std::string kUnexpectedFormat =
    "dns-parser: unexpected question: qid=%u recursion=%u truncated=%u authoritative=%u opcode=%u response=%u "
    "rcode=%u rec.avail=%u #questions=%u[%s] #answers=%u #authorities=%u #resources=%u";

std::string Unexpected(const std::string& values) {
  return Logged(2, kUnexpectedFormat, "dns-parser: unexpected question: " + values);
}

// A parser with query 7 open, whose host has forgotten about it.
struct Asked : Pairing {
  explicit Asked(const Config& config = {}, int log_level = 4) : Pairing(config) {
    Request(AQuery(7));
    Forget();
    host.level = log_level;
  }
};

// An early end: the extended record with the header's code, without answers.
void CheckEndedEarly(const Asked& bench, int result_code) {
  REQUIRE(bench.host.records.size() == 1);
  CHECK(bench.host.Last().extended);
  CHECK(bench.host.Last().result_code == result_code);
  CHECK(bench.host.Last().num_errors == (result_code == 0 ? 0 : 1));
  CHECK(bench.host.Last().strings == Strings{{"Names", "aa.bb"}});
  CHECK(bench.host.mappings.empty());
  CHECK(bench.Open() == 0);
}

}  // namespace

TEST_CASE("a response with one named question raises no eyebrow") {
  Asked bench;
  CHECK(bench.Response(AResponse(7)) == 1);
  CHECK(Log(bench.host).empty());
}

TEST_CASE("a response without a question is used, with a warning") {
  Asked bench;
  CHECK(bench.Response(Response(7).Answer("aa.bb", A("192.0.2.1")).Wire()) == 1);
  CHECK(Log(bench.host) ==
        Unexpected("qid=7 recursion=1 truncated=0 authoritative=0 opcode=0 response=1 rcode=0 rec.avail=1 "
                   "#questions=0[] #answers=1 #authorities=0 #resources=0"));
  CHECK(bench.host.Last().strings.at("Response") == "[aa.bb => 192.0.2.1]");
  CHECK(bench.host.mappings.size() == 1);
  CHECK(bench.host.mappings.at(0).query_name == "");
}

TEST_CASE("a response with several questions is used, with a warning that shows the last name") {
  Asked bench;
  const std::string message =
      Response(7).Question("first", kA).Question("last", kA).Answer("aa.bb", A("192.0.2.1")).Wire();
  CHECK(bench.Response(message) == 1);
  CHECK(Log(bench.host) ==
        Unexpected("qid=7 recursion=1 truncated=0 authoritative=0 opcode=0 response=1 rcode=0 rec.avail=1 "
                   "#questions=2[last] #answers=1 #authorities=0 #resources=0"));
  REQUIRE(bench.host.mappings.size() == 1);
  CHECK(bench.host.mappings.at(0).query_name == "last");
}

TEST_CASE("a question about the root is used, with a warning") {
  Asked bench;
  CHECK(bench.Response(Response(7).Question(".", kNs).Answer("aa.bb", A("192.0.2.1")).Wire()) == 1);
  CHECK(Log(bench.host) ==
        Unexpected("qid=7 recursion=1 truncated=0 authoritative=0 opcode=0 response=1 rcode=0 rec.avail=1 "
                   "#questions=1[] #answers=1 #authorities=0 #resources=0"));
  CHECK(bench.host.mappings.size() == 1);
}

TEST_CASE("the warning shows every field of the header in its place") {
  Pairing bench;
  bench.Request(Query(0xfffe).Opcode(1).Question("aa.bb", kA).Wire());
  bench.Forget();
  const auto warned = [&](const Message& message) {
    bench.host.lines.clear();
    bench.Request(Query(0xfffe).Question("aa.bb", kA).Wire());
    bench.Response(message.Wire());
    return Log(bench.host);
  };
  CHECK(warned(Response(0xfffe).Flags(0x8000).Counts(0, 0, 3, 4)) ==
        Unexpected("qid=65534 recursion=0 truncated=0 authoritative=0 opcode=0 response=1 rcode=0 rec.avail=0 "
                   "#questions=0[] #answers=0 #authorities=3 #resources=4"));
  CHECK(warned(Response(0xfffe).Flags(0x8000).Rd()) ==
        Unexpected("qid=65534 recursion=1 truncated=0 authoritative=0 opcode=0 response=1 rcode=0 rec.avail=0 "
                   "#questions=0[] #answers=0 #authorities=0 #resources=0"));
  CHECK(warned(Response(0xfffe).Flags(0x8000).Tc()) ==
        Unexpected("qid=65534 recursion=0 truncated=1 authoritative=0 opcode=0 response=1 rcode=0 rec.avail=0 "
                   "#questions=0[] #answers=0 #authorities=0 #resources=0"));
  CHECK(warned(Response(0xfffe).Flags(0x8000).Aa()) ==
        Unexpected("qid=65534 recursion=0 truncated=0 authoritative=1 opcode=0 response=1 rcode=0 rec.avail=0 "
                   "#questions=0[] #answers=0 #authorities=0 #resources=0"));
  CHECK(warned(Response(0xfffe).Flags(0x8000).Opcode(1).Ra()) ==
        Unexpected("qid=65534 recursion=0 truncated=0 authoritative=0 opcode=1 response=1 rcode=0 rec.avail=1 "
                   "#questions=0[] #answers=0 #authorities=0 #resources=0"));
}

TEST_CASE("the warning is given at level 2 and not below") {
  Asked quiet({}, 1);
  CHECK(quiet.Response(Response(7).Wire()) == 1);
  CHECK(quiet.host.lines.empty());
  Asked bench({}, 2);
  CHECK(bench.Response(Response(7).Wire()) == 1);
  CHECK(bench.host.lines.size() == 1);
}

TEST_CASE("the warning comes before the host is asked about details and context") {
  Asked bench;
  bench.Response(Response(7).Wire());
  CHECK(Calls(bench.host) == "log details? context? details? end");
}

TEST_CASE("an error response is not warned about") {
  Asked bench;
  CHECK(bench.Response(Response(7).Rcode(3).Wire()) == 1);
  CHECK(Log(bench.host).empty());
  CHECK(bench.host.Last().result_code == 3);
}

TEST_CASE("what the response asks need not be what the query asked") {
  Asked bench;
  CHECK(bench.Response(Response(7).Question("cc", kAaaa, kChaos).Answer("cc", A("192.0.2.1")).Wire()) == 1);
  CHECK(bench.host.Last().pattern == "A - IPv4 address lookup");
  REQUIRE(bench.host.mappings.size() == 1);
  CHECK(bench.host.mappings.at(0).query_name == "cc");
}

TEST_CASE("a malformed question ends a whole response early") {
  for (const unsigned rcode : {0U, 2U}) {
    Asked bench;
    CHECK(bench.Response(Response(7).Rcode(rcode).QuestionCount(1).Bytes("\x80").Wire()) == 0);
    CheckEndedEarly(bench, static_cast<int>(rcode));
    CHECK(Log(bench.host) ==
          Dropped("GetName unknown length-high-bit mask: 0x%02x", "GetName unknown length-high-bit mask: 0x80"));
  }
}

TEST_CASE("a malformed question in a cut response is excused") {
  Asked bench;
  const std::string message = Response(7).QuestionCount(1).Bytes("\x80").Wire();
  CHECK(bench.ResponseCut(message, message.size(), 100) == 1);
  CheckEndedEarly(bench, 0);
}

TEST_CASE("a question that points into the header ends the response early") {
  Asked bench;
  CHECK(bench.Response(Response(7).Question(Pointer(0), kA).Wire()) == 0);
  CheckEndedEarly(bench, 0);
}

TEST_CASE("a question's name may follow sixteen pointers, and no more") {
  for (const int pointers : {16, 17}) {
    Asked bench;
    const std::string message = Response(7).Bytes(ChainedQuestion(pointers)).QuestionCount(1).Wire();
    CHECK(bench.Response(message) == (pointers == 16 ? 1 : 0));
  }
}

TEST_CASE("a question past the captured bytes ends the response early") {
  const std::string message = Response(7).Question("aa.bb", kA).Wire();
  for (size_t size = 12; size < message.size(); ++size) {
    CAPTURE(size);
    Asked whole;
    CHECK(whole.ResponseCut(message, size, size) == 0);
    CheckEndedEarly(whole, 0);
    Asked cut;
    CHECK(cut.ResponseCut(message, size, size + 1) == 1);
    CheckEndedEarly(cut, 0);
  }
}

TEST_CASE("a missing class is a missing field although nobody looks at classes") {
  Asked bench;
  const std::string message = Response(7).Question("aa.bb", kA).Wire();
  CHECK(bench.ResponseCut(message, message.size() - 2, message.size() - 2) == 0);
  CheckEndedEarly(bench, 0);
}

TEST_CASE("an early end asks once about details and never about the context") {
  Asked bench;
  bench.Response(Response(7).QuestionCount(1).Wire());
  CHECK(Calls(bench.host) == "log details? end");
}

TEST_CASE("an early end in an error response is still measured by the capture") {
  Asked whole;
  CHECK(whole.Response(Response(7).Rcode(5).QuestionCount(1).Wire()) == 0);
  CheckEndedEarly(whole, 5);
  Asked cut;
  const std::string message = Response(7).Rcode(5).QuestionCount(1).Wire();
  CHECK(cut.ResponseCut(message, message.size(), message.size() + 1) == 1);
  CheckEndedEarly(cut, 5);
}

TEST_CASE("a second question that is not there ends the response early") {
  Asked bench;
  CHECK(bench.Response(Response(7).Question("aa.bb", kA).QuestionCount(2).Wire()) == 0);
  CheckEndedEarly(bench, 0);
}

TEST_CASE("an early end tells a query that asked for DNSSEC of no signatures") {
  Asked bench(With("enable_dnssec", "1"));
  bench.Request(Query(8).Question("aa.bb", kA).Additional(Opt({.dnssec_ok = true})).Wire());
  bench.Response(Response(8).QuestionCount(1).Wire());
  CHECK(bench.host.Last().strings.at("NumRRSIGRecords") == "0");
}

TEST_CASE("answers are read from behind the last question") {
  Asked bench;
  const std::string message = Response(7)
                                  .Compressed()
                                  .Question("aa.bb", kA)
                                  .Question("xx.aa.bb", kTxt, kChaos)
                                  .Question("aa.bb", kIxfr)
                                  .Answer("xx.aa.bb", A("192.0.2.7"))
                                  .Wire();
  CHECK(bench.Response(message) == 1);
  CHECK(bench.host.Last().strings.at("Response") == "[xx.aa.bb => 192.0.2.7]");
}
