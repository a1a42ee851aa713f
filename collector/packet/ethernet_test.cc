#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

TEST_CASE("Ethernet carries IPv4 and IPv6") {
  CHECK(IsQuery4(Decode(Query4(Ethernet()))));
  CHECK(IsQuery6(Decode(Query6(Ethernet()))));
}

TEST_CASE("a frame without tags and tunnels has no encapsulation") {
  CHECK(Decode(Query4(Ethernet())).datagram.encapsulation == packet::Encapsulation{});
}

TEST_CASE("Ethernet padding is not payload") { CHECK(IsQuery4(Decode(Query4(Ethernet()).Padding(13)))); }

TEST_CASE("ARP, discovery of PPPoE and unknown types are not IP") {
  for (const uint16_t type : Numbers{0x0806, 0x8863, 0x88cc, 0x0600, 0xffff, 0x05dd}) {
    CAPTURE(type);
    CHECK(Decode(Ethernet().Type(type).Text("whatever stands here")).outcome == Outcome::kNotIp);
  }
}

TEST_CASE("a VLAN tag is kept and what it tags is decoded") {
  for (const uint16_t type : Numbers{0x8100, 0x88a8, 0x9100, 0x9200}) {
    CAPTURE(type);
    const Decoded decoded = Decode(Query4(Ethernet().Vlan(5, type)));
    CHECK(IsQuery4(decoded));
    CHECK(decoded.datagram.encapsulation.vlan_count == 1);
    CHECK(decoded.datagram.encapsulation.vlan[0] == 5);
  }
}

TEST_CASE("a tag's priority is not part of its identifier") {
  const Decoded decoded = Decode(Query6(Ethernet().Vlan(0xefff)));
  CHECK(IsQuery6(decoded));
  CHECK(decoded.datagram.encapsulation.vlan[0] == 0xfff);
}

TEST_CASE("tags are kept outermost first, four of them, and deeper ones are decoded") {
  Packet frame = Ethernet();
  for (uint16_t tag = 1; tag <= 6; ++tag) frame.Vlan(tag);
  const Decoded decoded = Decode(Query4(frame));
  CHECK(IsQuery4(decoded));
  CHECK(decoded.datagram.encapsulation.vlan_count == 4);
  CHECK(decoded.datagram.encapsulation.vlan == std::array<uint16_t, 4>{1, 2, 3, 4});
}

TEST_CASE("tags are followed to a depth of thirty, and no further") {
  Packet frame = Ethernet();
  for (int i = 0; i < 30; ++i) frame.Vlan(7);
  CHECK(IsQuery4(Decode(Query4(frame))));
  CHECK(Decode(Query4(frame.Vlan(7))).outcome == Outcome::kTooDeep);
  for (int i = 0; i < 5000; ++i) frame.Vlan(7);
  CHECK(Decode(Query4(frame)).outcome == Outcome::kTooDeep);
}

TEST_CASE("LLC with SNAP carries IP behind a length field, also under a tag") {
  CHECK(IsQuery4(Decode(Query4(Ethernet().Snap()))));
  CHECK(IsQuery6(Decode(Query6(Ethernet().Snap()).Padding(3))));
  CHECK(IsQuery4(Decode(Query4(Ethernet().Vlan(5).Snap()))));
}

TEST_CASE("SNAP of IEEE 802.1H carries IP, of other organisations not") {
  CHECK(IsQuery4(Decode(Query4(Ethernet().Snap().Set8(5, 0xf8)))));
  CHECK(Decode(Query4(Ethernet().Snap().Set8(5, 0x0c))).outcome == Outcome::kNotIp);
}

TEST_CASE("IPv4 stands right behind LLC's own number for it") {
  const Bytes ip = Query4(RawIp()).Frame();
  CHECK(
      IsQuery4(Decode(Ethernet().Type(static_cast<uint16_t>(3 + ip.size())).Payload(Bytes{6, 6, 3}).Payload(ip))));
}

TEST_CASE("spanning tree and other LLC frames are not IP") {
  CHECK(Decode(Ethernet().Type(4).Payload(Bytes{0x42, 0x42, 3, 0})).outcome == Outcome::kNotIp);
  CHECK(Decode(Query4(Ethernet().Snap().Set8(2, 0xf3))).outcome == Outcome::kNotIp);
}

TEST_CASE("the length field bounds an LLC packet") {
  CHECK(Decode(Ethernet().Type(2).Payload(Bytes{0xaa, 0xaa, 3, 0, 0, 0, 8, 0})).outcome == Outcome::kMalformed);
  CHECK(Decode(Ethernet().Type(7).Payload(Bytes{0xaa, 0xaa, 3, 0, 0, 0, 8, 0})).outcome == Outcome::kMalformed);
}

TEST_CASE("a header that fills its frame is enough to see that no IP follows") {
  CHECK(Decode(Ethernet().Type(0x0806)).outcome == Outcome::kNotIp);
  CHECK(Decode(Ethernet().Vlan(5).Type(0x0806)).outcome == Outcome::kNotIp);
  CHECK(Decode(Ethernet().Snap().Type(0x0806)).outcome == Outcome::kNotIp);
  CHECK(Decode(Ethernet().Type(3).Payload(Bytes{0x42, 0x42, 3})).outcome == Outcome::kNotIp);
}

TEST_CASE("a frame cut inside its Ethernet header, tag or LLC is truncated") {
  CHECK(Decode(Ethernet(), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ethernet().Vlan(1), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ethernet().Snap(), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ethernet().Snap(), {.cut = 6}).outcome == Outcome::kTruncated);
}

TEST_CASE("a frame that was too short on the wire is malformed") {
  CHECK(Decode(Bytes(13)).outcome == Outcome::kMalformed);
  CHECK(Decode(Bytes{}).outcome == Outcome::kMalformed);
}
