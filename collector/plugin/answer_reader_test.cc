#include "collector/plugin/answer_reader.h"

#include <doctest/doctest.h>

#include "tests/support/dns_builder.h"

namespace plugin {
namespace {

using test::A;
using test::kA;

constexpr size_t kRecords = 12 + 13 + 4;  // behind the header and the question www.example

std::string TwoAnswers() {
  return test::Response(7)
      .Question("www.example", kA)
      .Answer("www.example", A("192.0.2.80"))
      .Answer("www.example", A("192.0.2.81"))
      .Wire();
}

int Count(const std::string& message) {
  AnswerReader answer(message, kRecords);
  int count = 0;
  while (answer.Next()) ++count;
  return count;
}

TEST_CASE("each answer has its name, type, class, TTL and data") {
  const std::string message = TwoAnswers();
  AnswerReader answer(message, kRecords);
  REQUIRE(answer.Next());
  CHECK(answer.name() == "\3www\7example");
  CHECK(answer.type() == kA);
  CHECK(answer.number_of_class() == 1);
  CHECK(answer.data() == std::string("\xc0\x00\x02\x50", 4));
  REQUIRE(answer.Next());
  CHECK(answer.data() == std::string("\xc0\x00\x02\x51", 4));
  CHECK_FALSE(answer.Next());
  CHECK_FALSE(answer.Next());
}

TEST_CASE("answers end where the message is cut") {
  const std::string message = TwoAnswers();
  const size_t one = (message.size() - kRecords) / 2;
  for (size_t length = 0; length <= message.size(); ++length) {
    const int whole = length < kRecords ? 0 : static_cast<int>((length - kRecords) / one);
    CHECK(Count(message.substr(0, length)) == whole);
  }
}

TEST_CASE("records of other sections are no answers") {
  CHECK(Count(test::Response(7)
                  .Question("www.example", kA)
                  .Answer("www.example", A("192.0.2.80"))
                  .Additional("www.example", A("192.0.2.81"))
                  .Wire()) == 1);
}

TEST_CASE("a name that points at itself ends the answers") {
  std::string message = TwoAnswers().substr(0, kRecords);
  message += std::string("\xc0") + static_cast<char>(kRecords) + std::string("\0\1\0\1\0\0\0\0\0\0", 10);
  CHECK(Count(message) == 0);
}

TEST_CASE("where the records start nobody knows, there are none") {
  const std::string message = TwoAnswers();
  AnswerReader answer(message, 0);
  CHECK_FALSE(answer.Next());
}

TEST_CASE("a name in the data has to end there") {
  // An MX record whose data is said to end before its name does.
  std::string message = TwoAnswers().substr(0, kRecords);
  message += std::string("\0\0\x0f\0\1\0\0\0\0\0\4\0\1\2mx\0", 17);
  AnswerReader answer(message, kRecords);
  REQUIRE(answer.Next());
  std::string labels;
  size_t at = 2;
  CHECK_FALSE(answer.ReadName(&at, &labels));
}

}  // namespace
}  // namespace plugin
