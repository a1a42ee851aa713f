#include "collector/cli/suggestion.h"

#include <doctest/doctest.h>

namespace cli {
namespace {

const std::vector<std::string> kCommands = {"read", "live", "summary", "names"};

TEST_CASE("a slip of the fingers is one mistake") {
  CHECK(TypingMistakes("read", "read") == 0);
  CHECK(TypingMistakes("raed", "read") == 1);
  CHECK(TypingMistakes("rad", "read") == 1);
  CHECK(TypingMistakes("reead", "read") == 1);
  CHECK(TypingMistakes("resd", "read") == 1);
  CHECK(TypingMistakes("", "read") == 4);
  CHECK(TypingMistakes("sumary", "names") == 5);
}

TEST_CASE("the nearest word is suggested") {
  CHECK(Suggestion("raed", kCommands) == "read");
  CHECK(Suggestion("lvie", kCommands) == "live");
  CHECK(Suggestion("sumery", kCommands) == "summary");
}

TEST_CASE("the beginning of one word only is enough") {
  CHECK(Suggestion("sum", kCommands) == "summary");
  CHECK(Suggestion("na", kCommands) == "names");
  CHECK(Suggestion("", kCommands) == "");
  CHECK(Suggestion("wh", {"where", "which"}) == "");
}

TEST_CASE("what is like nothing gets no suggestion") {
  CHECK(Suggestion("x", kCommands) == "");
  CHECK(Suggestion("frobnicate", kCommands) == "");
}

}  // namespace
}  // namespace cli
