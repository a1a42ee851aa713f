#include "collector/flow/plausible.h"

#include <doctest/doctest.h>

#include <string>

#include "tests/support/dns_builder.h"

using flow::Expected;
using namespace test;

namespace {

bool Plausible(const std::string& bytes, Expected expected = Expected::kEither) {
  return flow::IsPlausibleStart(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), expected);
}

Message Ask() { return Query(7).Question("aa.bb", kA); }
Message Reply() { return Response(7).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")); }

}  // namespace

TEST_CASE("queries and responses behind their lengths are plausible") {
  CHECK(Plausible(Ask().TcpWire()));
  CHECK(Plausible(Ask().Additional(Opt()).TcpWire()));
  CHECK(Plausible(Reply().TcpWire()));
  CHECK(Plausible(Response(7).Question("aa.bb", kA).Rcode(3).TcpWire()));
}

TEST_CASE("a message that goes on in later segments is plausible by its header") {
  CHECK(Plausible(Reply().TcpWire().substr(0, 14)));
  CHECK(Plausible(Reply().TcpWire().substr(0, 20)));
}

TEST_CASE("a message of a zone transfer without a question is plausible") {
  CHECK(Plausible(Response(7).Answer("aa.bb", A("192.0.2.1")).TcpWire()));
}

TEST_CASE("updates, notifications and incremental transfers are plausible") {
  CHECK(Plausible(Query(7).Opcode(5).Question("aa.bb", kSoa).Answer("aa.bb", A("192.0.2.1")).TcpWire()));
  CHECK(Plausible(Query(7).Opcode(4).Question("aa.bb", kSoa).Answer("aa.bb", Soa("ns.bb", "h.bb")).TcpWire()));
  CHECK(Plausible(Query(7).Question("aa.bb", kIxfr).Authority("aa.bb", Soa("ns.bb", "h.bb")).TcpWire()));
}

TEST_CASE("a direction that is known tells queries from responses") {
  CHECK(Plausible(Ask().TcpWire(), Expected::kQueries));
  CHECK_FALSE(Plausible(Ask().TcpWire(), Expected::kResponses));
  CHECK(Plausible(Reply().TcpWire(), Expected::kResponses));
  CHECK_FALSE(Plausible(Reply().TcpWire(), Expected::kQueries));
}

TEST_CASE("a message shorter than a header is not plausible") {
  CHECK_FALSE(Plausible(U16(11) + Query(7).Wire()));
  CHECK(Plausible(U16(12) + Response(7).Wire()));
  CHECK_FALSE(Plausible(U16(0) + Ask().TcpWire()));
}

TEST_CASE("an opcode above that of updates is not plausible") {
  CHECK(Plausible(Ask().Opcode(5).TcpWire()));
  CHECK_FALSE(Plausible(Ask().Opcode(6).TcpWire()));
}

TEST_CASE("the reserved bit is not plausible") { CHECK_FALSE(Plausible(Ask().Flags(0x0140).TcpWire())); }

TEST_CASE("a query with a response code is not plausible, a response with one is") {
  CHECK_FALSE(Plausible(Ask().Rcode(1).TcpWire()));
  CHECK(Plausible(Reply().Rcode(1).TcpWire()));
}

TEST_CASE("a query has exactly one question, a response at most one") {
  CHECK_FALSE(Plausible(Query(7).Question("aa.bb", kA).Question("aa.bb", kA).TcpWire()));
  CHECK_FALSE(Plausible(Query(7).Additional(Opt()).TcpWire()));
  CHECK_FALSE(Plausible(Response(7).Question("aa.bb", kA).Question("aa.bb", kA).TcpWire()));
}

TEST_CASE("a plain query with answers, or with two authority records, is not plausible") {
  CHECK_FALSE(Plausible(Ask().Answer("aa.bb", A("192.0.2.1")).TcpWire()));
  CHECK_FALSE(Plausible(Ask().Authority("aa.bb", Ns("ns.bb")).Authority("aa.bb", Ns("ns2.bb")).TcpWire()));
}

TEST_CASE("counts that cannot fit into the length are not plausible") {
  // A header, a question of 11 bytes, and room for exactly 16 records of nothing.
  const std::string padding(16 * 11 - 6, '\0');
  CHECK(Plausible(Response(7).Question("aa.bb", kA).Bytes(padding).AnswerCount(16).TcpWire()));
  CHECK_FALSE(Plausible(Response(7).Question("aa.bb", kA).Bytes(padding).AnswerCount(17).TcpWire()));
  CHECK_FALSE(Plausible(Response(7).Question("aa.bb", kA).Bytes(padding).AuthorityCount(17).TcpWire()));
  CHECK_FALSE(Plausible(Response(7).Question("aa.bb", kA).Bytes(padding).AdditionalCount(17).TcpWire()));
  CHECK_FALSE(Plausible(Response(7).Bytes("\1").QuestionCount(1).TcpWire()));
}

TEST_CASE("a question that begins with more than a label is not plausible") {
  CHECK(Plausible(Query(7).Question(std::string(63, 'a'), kA).TcpWire()));
  CHECK_FALSE(Plausible(Query(7).Question(RawName(std::string(1, '\x40') + "aaaa"), kA).TcpWire()));
  CHECK_FALSE(Plausible(Query(7).Question(Pointer(12), kA).TcpWire()));
}

TEST_CASE("what stands behind a whole message has to look like a message too, once its header is there") {
  CHECK(Plausible(Ask().TcpWire() + Ask().TcpWire()));
  CHECK(Plausible(Ask().TcpWire() + std::string(13, 'x')));
  CHECK_FALSE(Plausible(Ask().TcpWire() + std::string(14, 'x')));
}

TEST_CASE("a message seen two bytes too late is not plausible") {
  CHECK_FALSE(Plausible(Ask().Wire() + "xxxx"));
  CHECK_FALSE(Plausible(Reply().Wire(), Expected::kResponses));
}
