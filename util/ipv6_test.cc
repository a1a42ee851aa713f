#include "util/ipv6.h"

#include <doctest/doctest.h>

#include <array>
#include <cstdint>

namespace {

std::string Formatted(const std::array<uint16_t, 8>& groups) {
  std::string bytes;
  for (const uint16_t group : groups) {
    bytes.push_back(static_cast<char>(group >> 8));
    bytes.push_back(static_cast<char>(group & 0xff));
  }
  return format_ipv6(bytes.data());
}

}  // namespace

TEST_CASE("eight groups are shown big-endian, in lower case, without leading zeros") {
  CHECK(Formatted({0x2001, 0xdb8, 0x1, 0x20, 0x300, 0xabcd, 0xef01, 0xffff}) == "2001:db8:1:20:300:abcd:ef01:ffff");
}

TEST_CASE("a leading run of zeros is a double colon") {
  CHECK(Formatted({0, 0, 0, 0, 0, 0, 0, 1}) == "::1");
  CHECK(Formatted({0, 0, 0, 0, 0, 0xffff, 0xc000, 0x201}) == "::ffff:c000:201");
  CHECK(Formatted({0, 2, 3, 4, 5, 6, 7, 8}) == "::2:3:4:5:6:7:8");
}

TEST_CASE("an inner run of zeros is a double colon") {
  CHECK(Formatted({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}) == "2001:db8::1");
  CHECK(Formatted({1, 0, 3, 4, 5, 6, 7, 8}) == "1::3:4:5:6:7:8");
}

TEST_CASE("the all-zero address is ::0") { CHECK(Formatted({0, 0, 0, 0, 0, 0, 0, 0}) == "::0"); }

TEST_CASE("a trailing run of zeros leaves a single colon") {
  CHECK(Formatted({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0}) == "2001:db8:");
  CHECK(Formatted({1, 2, 3, 4, 5, 6, 7, 0}) == "1:2:3:4:5:6:7:");
}

TEST_CASE("the first run is compressed even when a later one is longer") {
  CHECK(Formatted({1, 0, 3, 0, 0, 0, 7, 8}) == "1::3:0:0:0:7:8");
  CHECK(Formatted({0, 2, 0, 4, 5, 6, 7, 0}) == "::2:0:4:5:6:7:0");
}
