#include "collector/packet/address.h"

#include <arpa/inet.h>
#include <doctest/doctest.h>

#include <random>

using packet::Address;

namespace {

Address Parse(int family, const char* text) {
  Address address;
  REQUIRE(inet_pton(family, text, address.octets.data()) == 1);
  address.version = family == AF_INET ? 4 : 6;
  return address;
}

std::string SystemText(const Address& address) {
  char text[INET6_ADDRSTRLEN];
  const int family = address.version == 4 ? AF_INET : AF_INET6;
  return inet_ntop(family, address.octets.data(), text, sizeof text);
}

}  // namespace

TEST_CASE("an IPv4 address is dotted text") {
  CHECK(ToText(Parse(AF_INET, "192.0.2.53")) == "192.0.2.53");
  CHECK(ToText(Parse(AF_INET, "0.0.0.0")) == "0.0.0.0");
  CHECK(ToText(Parse(AF_INET, "255.255.255.255")) == "255.255.255.255");
  CHECK(ToText(Parse(AF_INET, "9.10.99.100")) == "9.10.99.100");
}

TEST_CASE("every octet has its decimal digits") {
  for (int value = 0; value < 256; ++value) {
    Address address;
    address.version = 4;
    address.octets[3] = static_cast<uint8_t>(value);
    CHECK(ToText(address) == "0.0.0." + std::to_string(value));
  }
}

TEST_CASE("IPv6 text shortens the longest run of zeros, the first of several, and no single group") {
  CHECK(ToText(Parse(AF_INET6, "2001:db8:0:0:1:0:0:1")) == "2001:db8::1:0:0:1");
  CHECK(ToText(Parse(AF_INET6, "2001:0:0:1:0:0:0:1")) == "2001:0:0:1::1");
  CHECK(ToText(Parse(AF_INET6, "2001:db8:0:1:1:1:1:1")) == "2001:db8:0:1:1:1:1:1");
  CHECK(ToText(Parse(AF_INET6, "2001:DB8::ABCD")) == "2001:db8::abcd");
}

TEST_CASE("IPv6 text may begin and end with the run of zeros") {
  CHECK(ToText(Parse(AF_INET6, "::")) == "::");
  CHECK(ToText(Parse(AF_INET6, "::1")) == "::1");
  CHECK(ToText(Parse(AF_INET6, "fe80::")) == "fe80::");
  CHECK(ToText(Parse(AF_INET6, "1:2:3:4:5:6::")) == "1:2:3:4:5:6::");
}

TEST_CASE("an IPv4-mapped address ends dotted") {
  CHECK(ToText(Parse(AF_INET6, "::ffff:192.0.2.1")) == "::ffff:192.0.2.1");
  CHECK(ToText(Parse(AF_INET6, "::192.0.2.1")) == "::192.0.2.1");
}

TEST_CASE("no address has no text") { CHECK(ToText(Address{}).empty()); }

TEST_CASE("random addresses read as the system writes them") {
  std::mt19937 random(7);
  for (int round = 0; round < 20000; ++round) {
    Address address;
    address.version = round % 2 == 0 ? 4 : 6;
    for (uint8_t& octet : address.octets) {
      octet = random() % 3 == 0 ? static_cast<uint8_t>(random()) : uint8_t{0};  // plenty of zeros
    }
    CHECK(ToText(address) == SystemText(address));
  }
}

TEST_CASE("appending keeps within its space and returns the end") {
  char text[packet::kAddressTextSpace + 1];
  std::memset(text, '#', sizeof text);
  const Address longest = Parse(AF_INET6, "2001:1db8:3333:4444:5555:6666:7777:8888");
  char* end = AppendText(text, longest);
  CHECK(std::string(text, end) == "2001:1db8:3333:4444:5555:6666:7777:8888");
  CHECK(text[packet::kAddressTextSpace] == '#');
}

TEST_CASE("an IPv4 address as a number keeps its order in memory") {
  CHECK(Parse(AF_INET, "192.0.2.1").Ipv4() == htonl(0xc0000201));
}
