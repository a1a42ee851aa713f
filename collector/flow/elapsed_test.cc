#include "collector/flow/elapsed.h"

#include <doctest/doctest.h>

#include <limits>

using flow::HasElapsed;

TEST_CASE("a time has elapsed once more than the limit lies behind it") {
  CHECK_FALSE(HasElapsed(100, 110, 10));
  CHECK(HasElapsed(100, 111, 10));
}

TEST_CASE("a time further ahead than the limit has elapsed too, for the clock has stepped back") {
  CHECK_FALSE(HasElapsed(110, 100, 10));
  CHECK(HasElapsed(111, 100, 10));
}

TEST_CASE("times at both ends of the clock are apart without overflow") {
  constexpr int64_t kFirst = std::numeric_limits<int64_t>::min();
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
  CHECK(HasElapsed(kFirst, kLast, 10));
  CHECK(HasElapsed(kLast, kFirst, 10));
  CHECK_FALSE(HasElapsed(kFirst, kFirst + 1, 10));
}
