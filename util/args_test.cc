#include "util/args.h"

#include <doctest/doctest.h>

#include <cerrno>
#include <optional>

namespace {

using Args = std::map<std::string, std::string>;

Args With(const std::string& text) { return {{"key", text}}; }

bool Boolean(const std::string& text, bool default_value) {
  return get_parser_boolean_arg(With(text), "key", default_value);
}

int Integer(const std::string& text) { return get_parser_integer_arg(With(text), "key", 77); }

// What a reader stores for a text, or nothing when it refuses the text. A refusal must leave the result alone.
std::optional<uint32_t> Parsed(const char* text) {
  uint32_t value = 0xdead;
  if (parse_uint32(text, &value)) return value;
  CHECK(value == 0xdead);
  return {};
}

std::optional<uint32_t> Unsigned(const std::string& text) {
  uint32_t value = 0xdead;
  if (try_get_parser_uint32_arg(With(text), "key", value)) return value;
  CHECK(value == 0xdead);
  return {};
}

std::optional<int32_t> Signed(const std::string& text) {
  int32_t value = -12345;
  if (try_get_parser_int32_arg(With(text), "key", value)) return value;
  CHECK(value == -12345);
  return {};
}

}  // namespace

TEST_CASE("true, yes, 1 and on are true in any case") {
  for (const char* text : {"true", "TRUE", "tRuE", "yes", "Yes", "YES", "1", "on", "ON", "On"}) {
    CAPTURE(text);
    CHECK(Boolean(text, false));
  }
}

TEST_CASE("any other boolean text is false even where the default is true") {
  for (const char* text : {"false", "0", "no", "off", "", "2", "11", "tru", "truee", " true", "true ", "y", "o"}) {
    CAPTURE(text);
    CHECK_FALSE(Boolean(text, true));
    CHECK_FALSE(Boolean(text, false));
  }
}

TEST_CASE("an absent boolean is the default") {
  CHECK(get_parser_boolean_arg({}, "key", true));
  CHECK_FALSE(get_parser_boolean_arg({}, "key", false));
}

TEST_CASE("keys are matched whole and in their case") {
  const Args args = {{"Key", "1"}, {"ke", "1"}, {"keys", "1"}, {"other", "1"}};
  CHECK_FALSE(get_parser_boolean_arg(args, "key", false));
  CHECK(get_parser_integer_arg(args, "key", 77) == 77);
  CHECK(get_parser_uint32_arg(args, "key", 77) == 77);
  CHECK(get_parser_boolean_arg(args, "Key", false));
}

TEST_CASE("an integer is the digits its text starts with") {
  CHECK(Integer("42") == 42);
  CHECK(Integer("42abc") == 42);
  CHECK(Integer("0") == 0);
  CHECK(Integer("9.5") == 9);
  CHECK(Integer("010") == 10);
  CHECK(Integer("0x10") == 0);
}

TEST_CASE("an integer text that does not start with a digit gives the default") {
  for (const char* text : {"", "-5", "+5", " 5", "\t5", "abc", "/5", ":5", "\xb2"}) {
    CAPTURE(text);
    CHECK(Integer(text) == 77);
  }
}

TEST_CASE("an absent integer is the default") { CHECK(get_parser_integer_arg({}, "key", -3) == -3); }

TEST_CASE("an integer is cut to 32 bits without a range test") {
  CHECK(Integer("2147483647") == 2147483647);
  CHECK(Integer("2147483648") == -2147483647 - 1);
  CHECK(Integer("4294967297") == 1);
  CHECK(Integer("99999999999999999999") == -1);  // strtol stops at its own largest value
}

TEST_CASE("parse_uint32 reads decimals of 32 bits") {
  CHECK(Parsed("0") == 0u);
  CHECK(Parsed("42") == 42u);
  CHECK(Parsed("010") == 10u);
  CHECK(Parsed("4294967295") == 4294967295u);
}

TEST_CASE("parse_uint32 takes leading white space and a plus sign") {
  CHECK(Parsed(" 7") == 7u);
  CHECK(Parsed("\t\n 7") == 7u);
  CHECK(Parsed("+7") == 7u);
}

TEST_CASE("parse_uint32 reads an empty text as 0") { CHECK(Parsed("") == 0u); }

TEST_CASE("parse_uint32 refuses values above 32 bits and out of strtoul's range") {
  CHECK_FALSE(Parsed("4294967296"));
  CHECK_FALSE(Parsed("18446744073709551615"));
  CHECK_FALSE(Parsed("18446744073709551616"));
  CHECK_FALSE(Parsed("-99999999999999999999"));
}

TEST_CASE("parse_uint32 refuses a text that is not read to its end") {
  for (const char* text : {"12abc", "1.5", "7 ", "abc", " ", "+", "-", "0x10"}) {
    CAPTURE(text);
    CHECK_FALSE(Parsed(text));
  }
}

TEST_CASE("a minus sign wraps in 64 bits") {
  CHECK_FALSE(Parsed("-1"));
  CHECK(Parsed("-0") == 0u);
  CHECK(Parsed("-18446744073709551615") == 1u);
}

TEST_CASE("parse_uint32 is not misled by an old errno") {
  errno = ERANGE;
  CHECK(Parsed("5") == 5u);
}

TEST_CASE("an unsigned argument is read as parse_uint32 reads it") {
  CHECK(Unsigned("0") == 0u);
  CHECK(Unsigned("4294967295") == 4294967295u);
  CHECK(Unsigned(" 7") == 7u);
  CHECK(Unsigned("") == 0u);
  for (const char* text : {"4294967296", "-1", "12abc", "1.5"}) {
    CAPTURE(text);
    CHECK_FALSE(Unsigned(text));
  }
}

TEST_CASE("an absent unsigned argument is refused and leaves the result alone") {
  uint32_t value = 5;
  CHECK_FALSE(try_get_parser_uint32_arg({}, "key", value));
  CHECK(value == 5);
}

TEST_CASE("an unsigned argument with a default gives it for an absent key and an unusable text") {
  CHECK(get_parser_uint32_arg({}, "key", 65536) == 65536);
  CHECK(get_parser_uint32_arg(With("12abc"), "key", 65536) == 65536);
  CHECK(get_parser_uint32_arg(With("-1"), "key", 65536) == 65536);
  CHECK(get_parser_uint32_arg(With("12"), "key", 65536) == 12);
  CHECK(get_parser_uint32_arg(With(""), "key", 65536) == 0);
}

TEST_CASE("a signed argument reads the whole 32-bit range") {
  CHECK(Signed("0") == 0);
  CHECK(Signed("-2147483648") == -2147483647 - 1);
  CHECK(Signed("2147483647") == 2147483647);
  CHECK(Signed(" -7") == -7);
  CHECK(Signed("+7") == 7);
  CHECK(Signed("") == 0);
}

TEST_CASE("a signed argument out of range or not read to its end is refused") {
  for (const char* text : {"2147483648", "-2147483649", "9223372036854775807", "9223372036854775808",
                           "-9223372036854775809", "3x", "1.5", "7 ", "x", "-", " "}) {
    CAPTURE(text);
    CHECK_FALSE(Signed(text));
  }
}

TEST_CASE("a signed argument is not misled by an old errno") {
  errno = ERANGE;
  CHECK(Signed("5") == 5);
}

TEST_CASE("an absent signed argument is refused and leaves the result alone") {
  int32_t value = 5;
  CHECK_FALSE(try_get_parser_int32_arg({}, "key", value));
  CHECK(value == 5);
}
