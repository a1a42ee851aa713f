#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;

namespace {

bool Glance(const Bytes& frame, packet::Datagram* datagram, uint16_t link_type = 1) {
  const auto size = static_cast<uint32_t>(frame.size());
  return packet::Glance({.data = frame.data(), .captured = size, .wire = size, .link_type = link_type}, datagram);
}

Packet PlainQuery() { return Ethernet().Ipv4("192.0.2.1", "198.51.100.53").Udp(40000, 53).Text("query"); }

}  // namespace

TEST_CASE("a glance at a plain packet sees the endpoints that the decoder will find") {
  packet::Datagram seen;
  REQUIRE(Glance(PlainQuery().Frame(), &seen));
  const Decoded decoded = Decode(PlainQuery());
  REQUIRE(decoded.outcome == packet::Outcome::kDatagram);
  CHECK(seen.source == decoded.datagram.source);
  CHECK(seen.destination == decoded.datagram.destination);
  CHECK(seen.source_port == decoded.datagram.source_port);
  CHECK(seen.destination_port == decoded.datagram.destination_port);
  CHECK(seen.transport == decoded.datagram.transport);
}

TEST_CASE("a glance leaves frames that are not plain to the decoder") {
  packet::Datagram seen;
  CHECK_FALSE(Glance(PlainQuery().Frame(), &seen, 101));
  CHECK_FALSE(Glance(Query6(Ethernet()).Frame(), &seen));
  CHECK_FALSE(Glance(Query4(Ethernet().Vlan(5)).Frame(), &seen));
  Bytes fragment = PlainQuery().Frame();
  fragment[14 + 6] |= 0x20;  // more follow
  CHECK_FALSE(Glance(fragment, &seen));
  Bytes tcp = PlainQuery().Frame();
  tcp[14 + 9] = 6;
  CHECK_FALSE(Glance(tcp, &seen));
}

TEST_CASE("a glance at a cut frame reads nothing behind it") {
  const Bytes whole = PlainQuery().Frame();
  for (size_t size = 0; size < 14 + 20 + 4; ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    packet::Datagram seen;
    CHECK_FALSE(Glance(cut, &seen));
  }
}
