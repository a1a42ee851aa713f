#include "collector/capture/stream_input.h"

#include <doctest/doctest.h>

#include <memory>
#include <string>

#include "tests/support/captured.h"

namespace {

std::string Text(const capture::StreamInput& input) {
  const auto bytes = input.Bytes();
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

capture::StreamInput Over(const std::string& bytes, size_t piece) {
  return capture::StreamInput(std::make_unique<test::PiecewiseStream>(bytes, piece));
}

}  // namespace

TEST_CASE("a window over a stream keeps what it has not passed") {
  capture::StreamInput input = Over("abcdefgh", 3);
  CHECK(Text(input).empty());
  CHECK(input.More(1));
  CHECK(Text(input) == "abc");
  input.Advance(2);
  CHECK(Text(input) == "c");
  CHECK(input.More(2));
  CHECK(Text(input) == "cdef");
  CHECK(input.More(5));
  CHECK(Text(input) == "cdefgh");
  CHECK_FALSE(input.More(7));
  CHECK(Text(input) == "cdefgh");
}

TEST_CASE("passing over bytes does not move those at hand") {
  capture::StreamInput input = Over("abcdef", 6);
  REQUIRE(input.More(1));
  const uint8_t* first = input.Bytes().data();
  input.Advance(4);
  CHECK(input.Bytes().data() == first + 4);
  CHECK(*first == 'a');
}

TEST_CASE("a window holds what is asked for, however long") {
  for (const size_t size : {size_t{262'144}, size_t{262'145}, size_t{262'146}, size_t{1'000'000}}) {
    const std::string bytes(size, 'x');
    capture::StreamInput input = Over(bytes, SIZE_MAX);
    while (input.Bytes().size() < bytes.size()) REQUIRE(input.More(bytes.size()));
    CHECK(Text(input) == bytes);
  }
}

TEST_CASE("a window takes in no more than its buffer holds but for the byte behind") {
  capture::StreamInput input = Over(std::string(10'000'000, 'x'), SIZE_MAX);
  REQUIRE(input.More(1));
  CHECK(input.Bytes().size() == 262'144);
}
