#include <doctest/doctest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "dns-parser/dns_header.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"
#include "tests/support/recording_host.h"

using namespace test;

namespace {

DnsHeader Decode(const std::string& message) {
  DnsHeader header{};
  CHECK(ReadHeader(View(message), &header));
  return header;
}

// The fields of bytes 2 and 3, in the order of the structure.
std::vector<unsigned> FlagFields(const DnsHeader& header) {
  return {header.recursion_desired, header.truncated, header.authoritative,  header.opcode,
          header.response,          header.rcode,     header.reserved_flags, header.recursion_available};
}

}  // namespace

TEST_CASE("the identifier and the counters are big-endian on the wire") {
  const DnsHeader header = Decode(Query(0x1234).Counts(0x0102, 0x0304, 0x0506, 0x0708).Wire());
  CHECK(header.qid == 0x1234);
  CHECK(header.num_questions == 0x0102);
  CHECK(header.num_answers == 0x0304);
  CHECK(header.num_authorities == 0x0506);
  CHECK(header.num_resources == 0x0708);
}

TEST_CASE("the identifier and the counters have no sign") {
  const DnsHeader header = Decode(Query(0xffff).Counts(0xfffe, 0xfffd, 0xfffc, 0xfffb).Wire());
  CHECK(header.qid == 0xffff);
  CHECK(header.num_questions == 0xfffe);
  CHECK(header.num_answers == 0xfffd);
  CHECK(header.num_authorities == 0xfffc);
  CHECK(header.num_resources == 0xfffb);
}

TEST_CASE("each flag bit shows in its field and in no other") {
  struct Row {
    unsigned wire;
    size_t field;
    unsigned value;
  };
  constexpr std::array kRows = {
      Row{0x8000, 4, 1},                                                           // response
      Row{0x4000, 3, 8}, Row{0x2000, 3, 4}, Row{0x1000, 3, 2}, Row{0x0800, 3, 1},  // opcode
      Row{0x0400, 2, 1},                                                           // authoritative
      Row{0x0200, 1, 1},                                                           // truncated
      Row{0x0100, 0, 1},                                                           // recursion desired
      Row{0x0080, 7, 1},                                                           // recursion available
      Row{0x0040, 6, 4}, Row{0x0020, 6, 2}, Row{0x0010, 6, 1},                     // reserved
      Row{0x0008, 5, 8}, Row{0x0004, 5, 4}, Row{0x0002, 5, 2}, Row{0x0001, 5, 1},  // rcode
  };
  for (const Row& row : kRows) {
    CAPTURE(row.wire);
    std::vector<unsigned> expected(8);
    expected[row.field] = row.value;
    CHECK(FlagFields(Decode(Query(0).Flags(row.wire).Wire())) == expected);
    expected = {1, 1, 1, 15, 1, 15, 7, 1};
    expected[row.field] -= row.value;
    CHECK(FlagFields(Decode(Query(0xffff).Flags(0xffff ^ row.wire).Counts(~0U, ~0U, ~0U, ~0U).Wire())) == expected);
  }
}

TEST_CASE("the third and fourth byte of the structure are those of the message") {
  for (unsigned flags = 0; flags <= 0xffff; flags += 251) {
    const std::string message = Query(0x5566).Flags(flags).Wire();
    const DnsHeader header = Decode(message);
    CHECK(std::memcmp(reinterpret_cast<const char*>(&header) + 2, message.data() + 2, 2) == 0);
  }
}

TEST_CASE("the header is twelve bytes, its fields in the order of the message") {
  DnsHeader header{};
  std::memcpy(&header, "\1\2\3\4\5\6\7\10\11\12\13\14", 12);
  CHECK(sizeof header == 12);
  CHECK(kHeaderSize == 12);
  CHECK(header.qid == ntohs(0x0102));
  CHECK(header.num_questions == ntohs(0x0506));
  CHECK(header.num_answers == ntohs(0x0708));
  CHECK(header.num_authorities == ntohs(0x090a));
  CHECK(header.num_resources == ntohs(0x0b0c));
}

TEST_CASE("the header is read from the start of the message, whatever follows") {
  const DnsHeader header = Decode(Query(7).Question("aa.bb", kA).Wire());
  CHECK(header.qid == 7);
  CHECK(header.num_questions == 1);
  CHECK(header.num_resources == 0);
}

TEST_CASE("no prefix of a header is a header") {
  const std::string message = Query(7).Wire();
  REQUIRE(message.size() == 12);
  for (size_t length = 0; length < message.size(); ++length) {
    CAPTURE(length);
    const std::string prefix = message.substr(0, length);
    const IOVec view = View(prefix);
    DnsHeader header{};
    CHECK_FALSE(ReadHeader(view, &header));
    CHECK_FALSE(view.ok);
  }
}

TEST_CASE("what was not captured of a longer message is no header") {
  const std::string message = Query(7).Question("aa.bb", kA).Wire();
  IOVec view(message.data(), 11, static_cast<int>(message.size()));
  view.underflow_mode = IOVec::FLAG;
  DnsHeader header{};
  CHECK_FALSE(ReadHeader(view, &header));
}

TEST_CASE("a header is not read through a view that has failed before") {
  const std::string message = Query(7).Wire();
  const IOVec view = View(message);
  view.ok = false;
  DnsHeader header{};
  CHECK_FALSE(ReadHeader(view, &header));
}

TEST_CASE("a short header in throwing mode throws") {
  const std::string message = Prefix(Query(7).Wire(), 11);
  IOVec view = View(message);
  view.underflow_mode = IOVec::THROW;
  DnsHeader header{};
  CHECK_THROWS_AS(ReadHeader(view, &header), const IOVec::UnderflowException&);
}
