#include "collector/output/client_mask.h"

#include <doctest/doctest.h>

#include <stdexcept>

#include "collector/output/exchange_for_tests.h"

namespace output {
namespace {

std::string Masked(const char* mask, const packet::Address& address) {
  return packet::ToText(ClientMask(mask).Applied(address));
}

TEST_CASE("only the bits of the prefix are left") {
  const packet::Address ipv4 = Ipv4(203, 0, 113, 255);
  CHECK(Masked("24,48", ipv4) == "203.0.113.0");
  CHECK(Masked("25,48", ipv4) == "203.0.113.128");
  CHECK(Masked("23,48", ipv4) == "203.0.112.0");
  CHECK(Masked("32,48", ipv4) == "203.0.113.255");
  CHECK(Masked("0,48", ipv4) == "0.0.0.0");
  const packet::Address ipv6 = Ipv6({0x2001, 0xdb8, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff});
  CHECK(Masked("24,48", ipv6) == "2001:db8:ffff::");
  CHECK(Masked("24,49", ipv6) == "2001:db8:ffff:8000::");
  CHECK(Masked("24,128", ipv6) == "2001:db8:ffff:ffff:ffff:ffff:ffff:ffff");
  CHECK(Masked("24,0", ipv6) == "::");
}

TEST_CASE("what is no pair of lengths is refused") {
  for (const char* wrong :
       {"", "24", "24,", ",48", "33,48", "24,129", "-1,48", "24,-1", "24,48,", "24;48", "a,b", "24, 48"}) {
    CAPTURE(wrong);
    CHECK_THROWS_AS(ClientMask{wrong}, std::runtime_error);
  }
}

}  // namespace
}  // namespace output
