#include "util/strings.h"

#include <doctest/doctest.h>

#include <cstdlib>
#include <cstring>

#include "tests/support/death.h"

using test::FatalLine;

namespace {

using Texts = std::vector<std::string>;

// A two-byte, a three-byte and a four-byte character.
const std::string kTwo = "\xc3\xa9";
const std::string kThree = "\xe2\x82\xac";
const std::string kFour = "\xf0\x9f\x98\x80";
const std::string kStray = "\x80";  // a continuation byte that continues nothing

}  // namespace

TEST_CASE("hex_to_int knows the digits of both cases and nothing else") {
  const std::string lower = "0123456789abcdef";
  const std::string upper = "0123456789ABCDEF";
  for (int value = 0; value < 16; ++value) {
    CHECK(hex_to_int(lower[static_cast<size_t>(value)]) == value);
    CHECK(hex_to_int(upper[static_cast<size_t>(value)]) == value);
  }
  for (int byte = 0; byte < 256; ++byte) {
    const char digit = static_cast<char>(byte);
    const bool known = digit != '\0' && (strchr(lower.c_str(), digit) || strchr(upper.c_str(), digit));
    CAPTURE(byte);
    CHECK((hex_to_int(digit) == -1) == !known);
  }
}

TEST_CASE("string_printf formats like printf") {
  CHECK(string_printf("%s=%d", "port", 53) == "port=53");
  CHECK(string_printf("plain").size() == 5);
}

TEST_CASE("string_printf cuts to 1023 bytes without a word") {
  const std::string long_text(2000, 'x');
  CHECK(string_printf("%s", long_text.substr(0, 1023).c_str()) == std::string(1023, 'x'));
  CHECK(string_printf("%s", long_text.substr(0, 1024).c_str()) == std::string(1023, 'x'));
  CHECK(string_printf("%s", long_text.c_str()) == std::string(1023, 'x'));
}

TEST_CASE("string_printf returns the text up to its first NUL") { CHECK(string_printf("a%cb", '\0') == "a"); }

TEST_CASE("extract_utf8 copies the range as it is and ends it with a NUL") {
  const char bytes[] = {'a', '\xff', '\0', 'b', 'c'};
  char* copy = extract_utf8(bytes, bytes + 4);
  REQUIRE(copy != nullptr);
  CHECK(copy != bytes);
  CHECK(memcmp(copy, "a\xff\0b", 5) == 0);
  free(copy);
}

TEST_CASE("extract_utf8 of an empty range is an empty text") {
  const char bytes[] = {'a'};
  char* copy = extract_utf8(bytes, bytes);
  REQUIRE(copy != nullptr);
  CHECK(copy[0] == '\0');
  free(copy);
}

TEST_CASE("extract_utf8 is null when there is no memory") {
  // The range is not read: its length alone is more than there can be.
  const char* begin = nullptr;
  const char* end = reinterpret_cast<const char*>(uintptr_t{1} << 62);
  CHECK(extract_utf8(begin, end) == nullptr);
}

TEST_CASE("truncate_utf8 keeps a length that splits nothing") {
  CHECK(truncate_utf8("abcdef", 3) == 3);
  CHECK(truncate_utf8("abc" + kTwo, 3) == 3);  // the character starts at the cut
  CHECK(truncate_utf8("abc" + kTwo + "d", 5) == 5);
}

TEST_CASE("truncate_utf8 cuts before a character it would split") {
  CHECK(truncate_utf8("abc" + kTwo, 4) == 3);
  CHECK(truncate_utf8("abc" + kThree, 4) == 3);
  CHECK(truncate_utf8("abc" + kThree, 5) == 3);
  CHECK(truncate_utf8("abc" + kFour, 4) == 3);
  CHECK(truncate_utf8("abc" + kFour, 5) == 3);
  CHECK(truncate_utf8("abc" + kFour, 6) == 3);
}

TEST_CASE("truncate_utf8 cuts a first character to nothing") {
  CHECK(truncate_utf8(kTwo, 1) == 0);
  CHECK(truncate_utf8(kFour, 3) == 0);
}

TEST_CASE("truncate_utf8 to length 0 is 0 whatever stands there") {
  CHECK(truncate_utf8("a", 0) == 0);
  CHECK(truncate_utf8(kStray, 0) == 0);
}

TEST_CASE("truncate_utf8 takes any byte from 0xc0 as the start of a character") {
  CHECK(truncate_utf8("ab\xc0\x80", 3) == 2);
  CHECK(truncate_utf8("ab\xff\x80", 3) == 2);
}

TEST_CASE("truncate_utf8 keeps the length when stray continuation bytes follow ASCII") {
  CHECK(truncate_utf8("ab" + kStray, 2) == 2);
  CHECK(truncate_utf8("ab" + kStray + kStray + kStray, 4) == 4);
}

TEST_CASE("truncate_utf8 keeps the length when it reaches the start on continuation bytes") {
  CHECK(truncate_utf8(kStray + kStray, 1) == 1);
  CHECK(truncate_utf8(kStray + kStray + kStray + kStray, 3) == 3);
}

TEST_CASE("truncate_utf8 looks back four bytes and no further") {
  const std::string three = kStray + kStray + kStray;
  CHECK(truncate_utf8("ab\xf0" + three + kStray, 6) == 2);           // the lead byte is the fourth back
  CHECK(truncate_utf8("ab\xf0" + three + kStray + kStray, 7) == 7);  // and here the fifth
  CHECK(truncate_utf8(three + kStray + kStray + kStray + kStray, 6) == 6);
}

TEST_CASE("truncate_utf8 is fatal unless the string is longer than the length") {
  const std::string line = "util.cc:300: failed condition: str.length() > len\n";
  CHECK(FatalLine([] { truncate_utf8("abc", 3); }) == line);
  CHECK(FatalLine([] { truncate_utf8("abc", 4); }) == line);
  CHECK(FatalLine([] { truncate_utf8("", 0); }) == line);
}

TEST_CASE("string_trim strips the set from both ends and leaves the middle") {
  CHECK(string_trim("  x  ", " ") == "x");
  CHECK(string_trim("x ", " ") == "x");
  CHECK(string_trim(" x", " ") == "x");
  CHECK(string_trim(" a b ", " ") == "a b");
  CHECK(string_trim("\t a\t", " \t") == "a");
  CHECK(string_trim("\t a", " ") == "\t a");
}

TEST_CASE("string_trim returns a string with nothing to strip whole") {
  CHECK(string_trim("abc", " ") == "abc");
  CHECK(string_trim(" abc ", "") == " abc ");
  CHECK(string_trim(std::string("a\0b", 3), " ") == std::string("a\0b", 3));
}

TEST_CASE("string_trim of nothing but the set is empty") {
  CHECK(string_trim("    ", " ").empty());
  CHECK(string_trim("", " ").empty());
}

TEST_CASE("string_split of an empty text has no elements") {
  CHECK(string_split("", ",", false, 0).empty());
  CHECK(string_split("", ",", true, 0).empty());
  CHECK(string_split("", ",", false, 1).empty());
  CHECK(string_split(std::string(), ",", false, 0).empty());
}

TEST_CASE("string_split cuts at each byte of the set") {
  CHECK(string_split("a,b,c", ",", false, 0) == Texts{"a", "b", "c"});
  CHECK(string_split("a,b;c", ",;", false, 0) == Texts{"a", "b", "c"});
  CHECK(string_split("a,;b", ",;", false, 0) == Texts{"a", "", "b"});
  CHECK(string_split("abc", ",", false, 0) == Texts{"abc"});
  CHECK(string_split("a,b", "", false, 0) == Texts{"a,b"});
}

TEST_CASE("string_split keeps empty elements unless they are skipped") {
  CHECK(string_split(",a,,b", ",", false, 0) == Texts{"", "a", "", "b"});
  CHECK(string_split(",a,,b", ",", true, 0) == Texts{"a", "b"});
}

TEST_CASE("a text that ends in a separator ends in an empty element unless those are skipped") {
  CHECK(string_split("a,b,", ",", false, 0) == Texts{"a", "b", ""});
  CHECK(string_split("a,b,", ",", true, 0) == Texts{"a", "b"});
  CHECK(string_split(",", ",", false, 0) == Texts{"", ""});
  CHECK(string_split(",", ",", true, 0).empty());
  CHECK(string_split(",,", ",", true, 0).empty());
}

TEST_CASE("the last element within the limit is the whole rest") {
  CHECK(string_split("a,b,c", ",", false, 2) == Texts{"a", "b,c"});
  CHECK(string_split("a,b,c", ",", false, 1) == Texts{"a,b,c"});
  CHECK(string_split("a,b,c", ",", false, 3) == Texts{"a", "b", "c"});
  CHECK(string_split("a,b,c", ",", false, 4) == Texts{"a", "b", "c"});
  CHECK(string_split("a,b,", ",", false, 2) == Texts{"a", "b,"});
}

TEST_CASE("skipped elements do not count towards the limit, and the rest keeps its separators") {
  CHECK(string_split(",,a,b,c", ",", true, 2) == Texts{"a", "b,c"});
  CHECK(string_split("a,,b", ",", true, 2) == Texts{"a", ",b"});
  CHECK(string_split(",a", ",", true, 1) == Texts{",a"});
}

TEST_CASE("the end behind a separator is seen before the limit") {
  CHECK(string_split("a,", ",", true, 2) == Texts{"a"});
  CHECK(string_split("a,", ",", false, 2) == Texts{"a", ""});
}

TEST_CASE("string_split of a string ends at the first NUL byte") {
  CHECK(string_split(std::string("a,b\0,c", 6), ",", false, 0) == Texts{"a", "b"});
  CHECK(string_split(std::string("a,b,c"), ",", true, 2) == Texts{"a", "b,c"});
}
