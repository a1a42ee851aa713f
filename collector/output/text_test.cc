#include "collector/output/text.h"

#include <doctest/doctest.h>

#include <limits>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

std::string Bytes(std::string_view bytes, Style style) {
  std::string text(bytes.size() * kLongestEscape, '?');
  text.resize(static_cast<size_t>(PutBytes(text.data(), bytes, style) - text.data()));
  return text;
}

std::string Label(std::string_view bytes, Style style) {
  std::string text(bytes.size() * kLongestEscape, '?');
  text.resize(static_cast<size_t>(PutLabel(text.data(), bytes, style) - text.data()));
  return text;
}

std::string AddressText(const packet::Address& address) {
  char text[kLongestAddress];
  return std::string(text, PutAddress(text, address));
}

std::string Milliseconds(int64_t microseconds) {
  char text[32];
  return std::string(text, PutMilliseconds(text, microseconds));
}

TEST_CASE("printable ASCII stays as it is") {
  for (int byte = 0x20; byte < 0x7f; ++byte) {
    if (byte == '"' || byte == '\\' || byte == '.') continue;
    const std::string one(1, static_cast<char>(byte));
    CHECK(Bytes(one, Style::kPlain) == one);
    CHECK(Bytes(one, Style::kJson) == one);
    CHECK(Label(one, Style::kPlain) == one);
    CHECK(Label(one, Style::kJson) == one);
  }
}

TEST_CASE("bytes that are not printable ASCII become a backslash and three digits") {
  CHECK(Bytes(std::string(1, '\0'), Style::kPlain) == "\\000");
  CHECK(Bytes("\x1f\x7f\xff", Style::kPlain) == "\\031\\127\\255");
  CHECK(Bytes("a\x1b[31mb", Style::kPlain) == "a\\027[31mb");
  CHECK(Label("\xc3\xa9", Style::kPlain) == "\\195\\169");
}

TEST_CASE("inside JSON the backslash of an escape is escaped itself") {
  CHECK(Bytes("\n", Style::kJson) == "\\\\010");
  CHECK(Bytes("\\", Style::kJson) == "\\\\\\\\");
  CHECK(Label("a.b", Style::kJson) == "a\\\\.b");
}

TEST_CASE("a backslash becomes two") { CHECK(Bytes("a\\b", Style::kPlain) == "a\\\\b"); }

TEST_CASE("a quote gets a backslash in JSON only") {
  CHECK(Bytes("\"", Style::kPlain) == "\"");
  CHECK(Bytes("\"", Style::kJson) == "\\\"");
}

TEST_CASE("a dot is escaped in a label and nowhere else") {
  CHECK(Label("a.b", Style::kPlain) == "a\\.b");
  CHECK(Bytes("a.b", Style::kPlain) == "a.b");
}

TEST_CASE("no byte takes more room than promised") {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    for (const Style style : {Style::kPlain, Style::kJson}) {
      char text[16];
      CHECK(PutLabel(text, one, style) - text <= kLongestEscape);
      CHECK(PutBytes(text, one, style) - text <= kLongestEscape);
    }
  }
}

TEST_CASE("a text that is nowhere is empty") {
  CHECK(Bytes({}, Style::kJson) == "");
  CHECK(Label({}, Style::kJson) == "");
}

TEST_CASE("a word is put whole and says where it ends") {
  static constexpr Word kWord("a word of thirty-one characters");
  char text[kRoomForWord];
  CHECK(kWord.text().size() == kRoomForWord);
  CHECK(std::string(text, kWord.Put(text)) == "a word of thirty-one characters");
  CHECK(std::string(text, Word("short").Put(text)) == "short");
  CHECK(Word().empty());
  CHECK_THROWS(Word("a word of thirty-two characters."));
}

TEST_CASE("integers of any length are as the standard library writes them") {
  char text[24];
  const auto check = [&](int64_t value) {
    CHECK(std::string(text, PutInteger(text, value)) == std::to_string(value));
  };
  for (int64_t value = 0; value < 20000; ++value) check(value);
  for (int64_t power = 1; power < std::numeric_limits<int64_t>::max() / 10; power *= 10) {
    for (const int64_t near : {power - 1, power, power + 1, 7 * power, 10 * power - 1}) {
      check(near);
      check(-near);
    }
  }
  check(std::numeric_limits<int64_t>::min());
  check(std::numeric_limits<int64_t>::max());
}

TEST_CASE("a special byte is found at any place, whatever its neighbours") {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    for (const size_t size : {1U, 15U, 16U, 17U, 35U}) {
      for (size_t at = 0; at < size; ++at) {
        for (const char neighbour : {'a', ' ', '~', '!', '/'}) {
          std::string bytes(size, neighbour);
          bytes[at] = static_cast<char>(byte);
          for (const Style style : {Style::kPlain, Style::kJson}) {
            const auto expected = [&](const std::string& middle) {
              return std::string(at, neighbour) + middle + std::string(size - 1 - at, neighbour);
            };
            CHECK(Bytes(bytes, style) == expected(Bytes(one, style)));
            CHECK(Label(bytes, style) == expected(Label(one, style)));
          }
        }
      }
    }
  }
}

TEST_CASE("a label is plain when it is written as it is") {
  CHECK(IsPlainLabel(""));
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    CHECK(IsPlainLabel(one) == (Label(one, Style::kJson) == one));
  }
}

TEST_CASE("IPv4 addresses are dotted") {
  CHECK(AddressText(Ipv4(0, 0, 0, 0)) == "0.0.0.0");
  CHECK(AddressText(Ipv4(255, 10, 9, 100)) == "255.10.9.100");
  for (unsigned octet = 0; octet < 256; ++octet) {
    const std::string text = std::to_string(octet);
    const auto byte = static_cast<uint8_t>(octet);
    CHECK(AddressText(Ipv4(byte, 1, byte, byte)) == text + ".1." + text + "." + text);
  }
}

TEST_CASE("IPv6 addresses are canonical") {
  CHECK(AddressText(Ipv6({0, 0, 0, 0, 0, 0, 0, 0})) == "::");
  CHECK(AddressText(Ipv6({0, 0, 0, 0, 0, 0, 0, 1})) == "::1");
  CHECK(AddressText(Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0})) == "2001:db8::");
  CHECK(AddressText(Ipv6({0x2001, 0xdb8, 0, 1, 1, 1, 1, 1})) == "2001:db8:0:1:1:1:1:1");
  CHECK(AddressText(Ipv6({0x2001, 0, 0, 1, 0, 0, 0, 1})) == "2001:0:0:1::1");
  CHECK(AddressText(Ipv6({0x2001, 0xdb8, 0, 0, 1, 0, 0, 1})) == "2001:db8::1:0:0:1");
  CHECK(AddressText(Ipv6({0xfe80, 0xabcd, 0x1234, 0x10, 2, 3, 4, 0xffff})) == "fe80:abcd:1234:10:2:3:4:ffff");
  CHECK(AddressText(Ipv6({0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201})) == "::ffff:192.0.2.1");
  CHECK(AddressText(Ipv6({0, 0, 1, 2, 3, 0xffff, 0xc000, 0x0201})) == "::1:2:3:ffff:c000:201");
}

TEST_CASE("an address of no version has no text") { CHECK(AddressText(packet::Address()) == ""); }

TEST_CASE("instants are shown in UTC with microseconds") {
  CHECK(TimeText(0) == "1970-01-01 00:00:00.000000");
  CHECK(TimeText(1700000000123456789) == "2023-11-14 22:13:20.123456");
  CHECK(TimeText(-1) == "1969-12-31 23:59:59.999999");
}

TEST_CASE("the earliest and the latest instant have a text") {
  CHECK(TimeText(std::numeric_limits<int64_t>::min()) == "1677-09-21 00:12:43.145224");
  CHECK(TimeText(std::numeric_limits<int64_t>::max()) == "2262-04-11 23:47:16.854775");
}

TEST_CASE("milliseconds have three decimals") {
  CHECK(Milliseconds(0) == "0.000");
  CHECK(Milliseconds(12345) == "12.345");
  CHECK(Milliseconds(7) == "0.007");
  CHECK(Milliseconds(-1500) == "-1.500");
}

}  // namespace
}  // namespace output
