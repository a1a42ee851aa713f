#include "collector/cli/help_formatter.h"

#include <doctest/doctest.h>

namespace cli {
namespace {

TEST_CASE("text breaks at spaces and fills its lines") {
  CHECK(Wrapped("one two three", 7) == "one two\nthree");
  CHECK(Wrapped("one two three", 6) == "one\ntwo\nthree");
  CHECK(Wrapped("one two three", 80) == "one two three");
  CHECK(Wrapped("", 5) == "");
}

TEST_CASE("a word that is too long stands alone") { CHECK(Wrapped("a verylongword b", 5) == "a\nverylongword\nb"); }

}  // namespace
}  // namespace cli
