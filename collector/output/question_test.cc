#include "collector/output/question.h"

#include <doctest/doctest.h>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

std::string Names(const plugin::Exchange& exchange, Style style = Style::kPlain) {
  char text[2000];
  return std::string(text, PutNames(text, exchange, style));
}
std::string Types(const plugin::Exchange& exchange) {
  char text[2000];
  return std::string(text, PutTypes(text, exchange));
}
std::string Classes(const plugin::Exchange& exchange) {
  char text[2000];
  return std::string(text, PutClasses(text, exchange));
}

TEST_CASE("a question's name, type and class are shown") {
  ExchangeForTests exchange;
  exchange.Ask(Question("www.example.com", 65, 3));
  CHECK(Names(exchange) == "www.example.com");
  CHECK(Types(exchange) == "HTTPS");
  CHECK(Classes(exchange) == "CH");
}

TEST_CASE("the root name is a dot") {
  ExchangeForTests exchange;
  exchange.Ask(Question("", 2));
  CHECK(Names(exchange) == ".");
  CHECK(Types(exchange) == "NS");
}

TEST_CASE("a dot inside a label is told from the dot between labels") {
  ExchangeForTests exchange;
  exchange.Ask(std::string("\3a.b\1c\0\0\1\0\1", 11));
  CHECK(Names(exchange) == "a\\.b.c");
  CHECK(Names(exchange, Style::kJson) == "a\\\\.b.c");
}

TEST_CASE("labels of any length are joined by dots") {
  for (size_t length = 1; length <= 63; ++length) {
    const std::string label(length, 'a');
    ExchangeForTests exchange;
    exchange.Ask(Question("x." + label + "." + label + ".y", 1));
    CHECK(Names(exchange) == "x." + label + "." + label + ".y");
  }
}

TEST_CASE("the letter case of a name stays") {
  ExchangeForTests exchange;
  exchange.Ask(Question("wWw.ExAmPlE", 1));
  CHECK(Names(exchange) == "wWw.ExAmPlE");
}

TEST_CASE("several questions are joined by a comma and a space") {
  ExchangeForTests exchange;
  exchange.Ask(Question("a.example", 1) + Question("", 123, 1) + Question("b.example", 28, 77));
  CHECK(Names(exchange) == "a.example, ., b.example");
  CHECK(Types(exchange) == "A, TYPE123, AAAA");
  CHECK(Classes(exchange) == "IN, IN, CLASS77");
}

TEST_CASE("names say when there were more questions than are kept") {
  ExchangeForTests exchange;
  exchange.question_cut = true;
  CHECK(Names(exchange) == "www.example.com, ...");
}

TEST_CASE("no question gives empty texts") {
  ExchangeForTests exchange;
  exchange.Ask("");
  CHECK(Names(exchange) == "");
  CHECK(Types(exchange) == "");
  CHECK(Classes(exchange) == "");
}

TEST_CASE("a question that is cut anywhere is left out") {
  const std::string whole = Question("www.example.com", 1);
  for (size_t length = 0; length < whole.size(); ++length) {
    QuestionReader reader(std::string_view(whole).substr(0, length));
    CHECK_FALSE(reader.Next());
  }
  QuestionReader reader(whole);
  CHECK(reader.Next());
  CHECK_FALSE(reader.Next());
}

TEST_CASE("questions never outgrow the room for them") {
  ExchangeForTests exchange;
  std::string many;
  for (int i = 0; i < 20; ++i) many += Question("", 65535, 65535);
  exchange.Ask(many + Question("\xff\xff\xff\xff", 65535, 65535));
  std::string text(exchange.question.size() * kQuestionGrowth * 2, '\0');
  char* end = PutNames(text.data(), exchange, Style::kJson);
  end = PutTypes(end, exchange);
  end = PutClasses(end, exchange);
  CHECK(static_cast<size_t>(end - text.data()) <= exchange.question.size() * kQuestionGrowth);
}

}  // namespace
}  // namespace output
