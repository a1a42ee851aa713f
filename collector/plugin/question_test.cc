#include "collector/plugin/question.h"

#include <doctest/doctest.h>

#include <cstring>
#include <memory>
#include <string>

#include "tests/support/dns_builder.h"

namespace plugin {
namespace {

using test::kA;
using test::kAaaa;
using test::kChaos;
using test::kHttps;
using test::Name;
using test::Opt;
using test::Pointer;
using test::Query;
using test::RawName;
using test::Response;
using test::U16;
using test::U8;

// One question as it is kept.
std::string Wire(const Name& name, uint16_t type, uint16_t klass = test::kIn) {
  return name.Wire() + U16(type) + U16(klass);
}

struct Reading {
  // Reads the message in memory that ends where it ends.
  explicit Reading(const std::string& wire) : memory(new char[wire.size()]) {
    std::memcpy(memory.get(), wire.data(), wire.size());
    const std::string_view message(memory.get(), wire.size());
    readable = ReadHeader(message, &header);
    questions = reader.Read(message, header);
    rcode = ExtendedRcode(message, header, questions.end);
  }
  std::string Kept() const { return std::string(questions.bytes); }

  std::unique_ptr<char[]> memory;
  QuestionReader reader;
  Header header;
  bool readable = false;
  Questions questions;
  uint16_t rcode = 0;
};

bool Same(const test::Message& one, const test::Message& other) {
  const Reading first(one.Wire());
  const Reading second(other.Wire());
  return SameQuestions(first.questions, second.questions);
}

// A name of `labels` labels with 63 letters each.
std::string LongName(int labels) {
  std::string name;
  for (int i = 0; i < labels; ++i) name += std::string(63, 'x') + ".";
  return name;
}

}  // namespace

TEST_CASE("a header is read in network order") {
  const Reading reading(Query(0x1234).Flags(0x8583).Counts(0, 0x0203, 0x0405, 0x0607).Wire());
  REQUIRE(reading.readable);
  CHECK(reading.header.id == 0x1234);
  CHECK(reading.header.flags == 0x8583);
  CHECK(reading.header.questions == 0);
  CHECK(reading.header.answers == 0x0203);
  CHECK(reading.header.authorities == 0x0405);
  CHECK(reading.header.additionals == 0x0607);
}

TEST_CASE("a header that is not all there is none") {
  Header header;
  header.id = 9;
  CHECK_FALSE(ReadHeader(Query(1).Wire().substr(0, 11), &header));
  CHECK(header.id == 9);
}

TEST_CASE("the opcode is four bits of the flags") {
  for (unsigned opcode = 0; opcode < 16; ++opcode) {
    const Reading reading(Query(1).Flags(0x87ff).Opcode(opcode).Wire());
    CHECK(reading.header.Opcode() == static_cast<int>(opcode));
  }
}

TEST_CASE("one question without pointers is used where it stands") {
  const Reading reading(Query(7).Question("aa.bb", kA, kChaos).Additional(Opt()).Wire());
  CHECK(reading.Kept() == Wire("aa.bb", kA, kChaos));
  CHECK(reading.questions.bytes.data() == reading.memory.get() + kHeaderSize);
  CHECK(reading.questions.count == 1);
  CHECK(reading.questions.complete);
  CHECK(reading.questions.end == kHeaderSize + 11);
}

TEST_CASE("the root is a question like any other") {
  const Reading reading(Query(7).Question(".", kAaaa).Wire());
  CHECK(reading.Kept() == Wire(".", kAaaa));
  CHECK(reading.questions.complete);
}

TEST_CASE("several questions are kept one behind the other, without their pointers") {
  const Reading reading(
      Query(7).Compressed().Question("aa.bb", kA).Question("cc.aa.bb", kAaaa).Question("aa.bb", kHttps).Wire());
  CHECK(reading.Kept() == Wire("aa.bb", kA) + Wire("cc.aa.bb", kAaaa) + Wire("aa.bb", kHttps));
  CHECK(reading.questions.count == 3);
  CHECK(reading.questions.complete);
  CHECK(reading.questions.end == kHeaderSize + 11 + 9 + 6);
}

TEST_CASE("a pointer forward is followed") {
  const Reading reading(Query(7).Question(Pointer(21, "aa"), kA).Bytes(Name("bb").Wire()).Wire());
  CHECK(reading.Kept() == Wire("aa.bb", kA));
  CHECK(reading.questions.end == 21);
}

TEST_CASE("no question is complete and empty") {
  const Reading reading(Response(7).Wire());
  CHECK(reading.questions.complete);
  CHECK(reading.questions.count == 0);
  CHECK(reading.questions.bytes.empty());
  CHECK(reading.questions.end == kHeaderSize);
}

TEST_CASE("names may be longer than 255 bytes") {
  const Reading reading(Query(7).Question(LongName(10), kA).Wire());
  CHECK(reading.Kept() == Wire(LongName(10), kA));
  const Reading by_pointer(
      Query(7).Compressed().Question(LongName(10), kA).Question("a." + LongName(10), kA).Wire());
  CHECK(by_pointer.Kept() == Wire(LongName(10), kA) + Wire("a." + LongName(10), kA));
}

TEST_CASE("a pointer into the header or at itself is not followed") {
  for (const unsigned target : {0U, 11U, 12U}) {
    const Reading reading(Query(7).Question(Pointer(target), kA).Wire());
    CHECK(reading.questions.count == 0);
    CHECK_FALSE(reading.questions.complete);
    CHECK(reading.questions.end == kHeaderSize + 6);  // what follows can be found nevertheless
  }
}

TEST_CASE("two pointers at each other come to an end") {
  const Reading reading(Query(7).Question(Pointer(18), kA).Question(Pointer(12), kA).Wire());
  CHECK(reading.questions.count == 0);
  CHECK_FALSE(reading.questions.complete);
}

TEST_CASE("sixteen pointers in a name are followed and the seventeenth is not") {
  for (const unsigned pointers : {16U, 17U}) {
    test::Message message = Query(7).Question(Pointer(kHeaderSize + 6), kA);
    for (unsigned i = 1; i < pointers; ++i) message.Bytes(Pointer(message.Here() + 2).Wire());
    message.Bytes(Name("end").Wire());
    const Reading reading(message.Wire());
    CHECK(reading.questions.complete == (pointers == 16));
    CHECK(reading.Kept() == (pointers == 16 ? Wire("end", kA) : ""));
  }
}

TEST_CASE("a label of a type that is gone ends the section") {
  for (const std::string& bytes : {U8(0x40), U8(0x80), U8(2) + "aa" + U8(0x41)}) {
    const Reading reading(Query(7).Question(RawName(bytes), kA).Wire());
    CHECK(reading.questions.count == 0);
    CHECK_FALSE(reading.questions.complete);
    CHECK(reading.questions.end == 0);
  }
}

TEST_CASE("the questions before a broken one are kept") {
  const Reading reading(Query(7).Question("aa", kA).Question(RawName("\x80"), kA).Question("bb", kA).Wire());
  CHECK(reading.Kept() == Wire("aa", kA));
  CHECK(reading.questions.count == 1);
  CHECK_FALSE(reading.questions.complete);
  const Reading behind_pointer(Query(7).Question("aa", kA).Question(Pointer(2), kA).Question("bb", kA).Wire());
  CHECK(behind_pointer.Kept() == Wire("aa", kA));
  CHECK(behind_pointer.questions.count == 1);
}

TEST_CASE("64 questions are kept, and what follows the rest is still found") {
  test::Message message = Response(7);
  for (int i = 0; i < 64; ++i) message.Question("aa", kA);
  CHECK(Reading(message.Wire()).questions.complete);
  message.Question("aa", kA);
  const unsigned end = message.Here();
  const Reading reading(message.Additional(Opt({.extended_rcode = 1})).Wire());
  CHECK(reading.questions.count == 64);
  CHECK_FALSE(reading.questions.complete);
  CHECK(reading.questions.end == end);
  CHECK(reading.rcode == 16);
}

TEST_CASE("a small message cannot unfold to more than 64 KiB") {
  test::Message message = Query(7).Compressed().Question(LongName(200), kA);
  for (int i = 0; i < 10; ++i) message.Question(LongName(200), kA);
  const Reading reading(message.Wire());
  CHECK(reading.questions.count == 5);
  CHECK(reading.questions.bytes.size() <= kMaxQuestionBytes);
  CHECK_FALSE(reading.questions.complete);
}

TEST_CASE("exactly 64 KiB of questions are kept") {
  const std::string name = LongName(63) + std::string(58, 'x');  // 4092 bytes on the wire
  test::Message message = Query(7).Compressed();
  for (int i = 0; i < 15; ++i) message.Question(name, kA);
  const Reading fits(test::Message(message).Question(name, kA).Wire());
  CHECK(fits.questions.bytes.size() == kMaxQuestionBytes);
  CHECK(fits.questions.complete);
  const Reading too_long(test::Message(message).Question(name + "y", kA).Wire());
  CHECK(too_long.questions.count == 15);
  CHECK_FALSE(too_long.questions.complete);
}

TEST_CASE("a broken question section is not followed by records, whatever the header looks like") {
  // Read as a record, this header is an OPT with 1 for its upper bits of the response code.
  const Reading reading(test::Message(0, 0x2900).Question(RawName("\x80"), kA).AdditionalCount(1).Wire());
  CHECK(reading.questions.end == 0);
  CHECK(reading.rcode == 0);
}

TEST_CASE("every prefix of a section is read without a byte behind it, and only the whole is complete") {
  for (const bool compressed : {false, true}) {
    test::Message message = compressed ? Query(7).Compressed() : Query(7);
    const std::string wire = message.Question("aa.bb", kA).Question("cc.aa.bb", kAaaa).Wire();
    for (size_t length = 0; length < wire.size(); ++length) {
      const Reading reading(wire.substr(0, length));
      CHECK(reading.questions.complete == (length < kHeaderSize));  // no header: nothing is promised
      CHECK(reading.questions.count == (length < kHeaderSize + 11 ? 0 : 1));
    }
    CHECK(Reading(wire).questions.complete);
  }
  const std::string single = Query(7).Question("aa.bb", kA).Wire();
  for (size_t length = kHeaderSize; length < single.size(); ++length) {
    CHECK_FALSE(Reading(single.substr(0, length)).questions.complete);
    CHECK(Reading(single.substr(0, length)).questions.count == 0);
  }
}

TEST_CASE("questions are the same whatever the case of their letters") {
  CHECK(Same(Query(1).Question("www.example", kA), Response(2).Question("wWw.EXAMPLe", kA)));
  CHECK(Same(Query(1).Question("aZ.bb", kA).Question("c", kA), Query(1).Question("Az.bb", kA).Question("C", kA)));
  CHECK_FALSE(Same(Query(1).Question("www.example", kA), Query(1).Question("wwx.example", kA)));
}

TEST_CASE("only ASCII letters have a case") {
  CHECK_FALSE(Same(Query(1).Question("@", kA), Query(1).Question("`", kA)));
  CHECK_FALSE(Same(Query(1).Question("[", kA), Query(1).Question("{", kA)));
  CHECK_FALSE(Same(Query(1).Question("\\192", kA), Query(1).Question("\\224", kA)));
}

TEST_CASE("types and classes have no case: HTTPS is not type 97") {
  CHECK_FALSE(Same(Query(1).Question("aa", kHttps), Query(1).Question("aa", kHttps + 32)));
  CHECK_FALSE(Same(Query(1).Question("aa", kA, 65), Query(1).Question("aa", kA, 97)));
  CHECK_FALSE(Same(Query(1).Question("aA", kHttps), Query(1).Question("aa", kHttps + 32)));
}

TEST_CASE("the same letters under other labels are another name") {
  CHECK_FALSE(Same(Query(1).Question("aa.bb", kA), Query(1).Question("aa\\002bb", kA)));
}

TEST_CASE("a different number of questions is a difference") {
  CHECK_FALSE(Same(Query(1).Question("aa", kA), Query(1).Question("aa", kA).Question("aa", kA)));
  CHECK_FALSE(Same(Query(1).Question("aa", kA), Query(1)));
  CHECK(Same(Query(1), Query(2)));
}

TEST_CASE("where a section is not complete, the questions that both have are compared") {
  const std::string two = Query(1).Question("aa", kA).Question("bb", kA).Wire();
  const Reading cut(two.substr(0, two.size() - 1));
  const Reading one(Query(1).Question("AA", kA).Wire());
  const Reading other(Query(1).Question("cc", kA).Wire());
  CHECK(SameQuestions(cut.questions, one.questions));
  CHECK(SameQuestions(cut.questions, Reading(two).questions));
  CHECK_FALSE(SameQuestions(cut.questions, other.questions));
  CHECK(SameQuestions(Reading(two.substr(0, 14)).questions, other.questions));
}

TEST_CASE("without OPT the response code is the header's") {
  CHECK(Reading(Response(7).Rcode(3).Question("aa", kA).Wire()).rcode == 3);
  CHECK(Reading(Response(7).Rcode(15).Question("aa", kA).Additional("aa", test::A("192.0.2.1")).Wire()).rcode ==
        15);
}

TEST_CASE("OPT extends the response code by eight upper bits") {
  const auto rcode = [](unsigned low, uint8_t high) {
    return Reading(Response(7).Rcode(low).Question("aa", kA).Additional(Opt({.extended_rcode = high})).Wire())
        .rcode;
  };
  CHECK(rcode(0, 1) == 16);
  CHECK(rcode(7, 1) == 23);
  CHECK(rcode(15, 255) == 4095);
  CHECK(rcode(3, 0) == 3);
}

TEST_CASE("OPT is found behind all other records") {
  const test::Message message = Response(7)
                                    .Compressed()
                                    .Question("aa.bb", kA)
                                    .Answer("aa.bb", test::Cname("cc.bb"))
                                    .Answer("cc.bb", test::A("192.0.2.1"))
                                    .Authority("bb", test::Ns("ns.bb"))
                                    .Additional("ns.bb", test::A("192.0.2.2"))
                                    .Additional(Opt({.extended_rcode = 1, .options = "123456"}));
  CHECK(Reading(message.Wire()).rcode == 16);
  test::Message more = message;
  more.Additional(Opt({.extended_rcode = 2}));
  CHECK(Reading(more.Wire()).rcode == 16);
}

TEST_CASE("OPT counts in the additional section only") {
  test::Record record = Opt({.extended_rcode = 1});
  CHECK(Reading(Response(7).Question("aa", kA).Answer(record).Wire()).rcode == 0);
  CHECK(Reading(Response(7).Question("aa", kA).Authority(record).Additional("aa", test::A("192.0.2.1")).Wire())
            .rcode == 0);
}

TEST_CASE("OPT is found in a response without questions") {
  CHECK(Reading(Response(7).Additional(Opt({.extended_rcode = 1})).Wire()).rcode == 16);
}

TEST_CASE("every prefix of a response has a response code, and OPT counts as soon as its fixed fields are there") {
  const std::string options = "12345678";
  const std::string wire = Response(7)
                               .Rcode(2)
                               .Compressed()
                               .Question("aa.bb", kA)
                               .Answer("aa.bb", test::A("192.0.2.1"))
                               .Additional(Opt({.extended_rcode = 1, .options = options}))
                               .Wire();
  for (size_t length = kHeaderSize; length <= wire.size(); ++length) {
    const Reading reading(wire.substr(0, length));
    CHECK(reading.rcode == (length < wire.size() - options.size() ? 2 : 18));
  }
}

TEST_CASE("lies in counts and lengths end the search for OPT") {
  CHECK(
      Reading(
          Response(7).Rcode(1).Question("aa", kA).AnswerCount(65535).Additional(Opt({.extended_rcode = 1})).Wire())
          .rcode == 1);
  const auto long_data = test::A("192.0.2.1").RdLength(65535);
  CHECK(Reading(Response(7)
                    .Rcode(1)
                    .Question("aa", kA)
                    .Answer("aa", long_data)
                    .Additional(Opt({.extended_rcode = 1}))
                    .Wire())
            .rcode == 1);
  CHECK(Reading(Response(7).Rcode(1).Question(RawName("\x80"), kA).Additional(Opt({.extended_rcode = 1})).Wire())
            .rcode == 1);
}

}  // namespace plugin
