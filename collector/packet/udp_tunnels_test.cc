#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;
using packet::Tunnel;

namespace {

Packet Outer(uint16_t source_port, uint16_t destination_port) {
  return Ethernet().Ipv4(kTunnel4From, kTunnel4To).Udp(source_port, destination_port);
}

bool IsTunnel(const Decoded& decoded, Tunnel tunnel, uint32_t id) {
  const packet::Encapsulation& encapsulation = decoded.datagram.encapsulation;
  return encapsulation.tunnel == tunnel && encapsulation.tunnel_id == id;
}

// The outer datagram itself, as if its port meant nothing.
bool IsOrdinary(const Decoded& decoded) {
  return decoded.outcome == Outcome::kDatagram && ToText(decoded.datagram.source) == kTunnel4From &&
         decoded.datagram.encapsulation.tunnel == Tunnel::kNone;
}

}  // namespace

TEST_CASE("VXLAN is followed on both its ports") {
  for (const uint16_t port : Numbers{4789, 8472}) {
    const Decoded decoded = Decode(Query4(Outer(50000, port).Vxlan(0xabcdef).Ethernet()));
    CHECK(IsQuery4(decoded));
    CHECK(IsTunnel(decoded, Tunnel::kVxlan, 0xabcdef));
  }
  CHECK(IsQuery6(Decode(Query6(Outer(50000, 4789).Vxlan(1).Set8(0, 0x88).Ethernet().Vlan(7)))));  // a group policy
}

TEST_CASE("VXLAN over IPv6 without a checksum is followed") {
  CHECK(IsQuery4(Decode(Query4(Ethernet().Ipv6(kTunnel6From, kTunnel6To).Udp(50000, 4789).Vxlan(1).Ethernet()))));
}

TEST_CASE("VXLAN names what it carries where it has the protocol extension") {
  const auto vxlan = [](uint8_t flags, uint8_t protocol) {
    return Outer(50000, 4790).Vxlan(7).Set8(0, flags).Set8(3, protocol);
  };
  for (const uint8_t flags : Bytes{0x08, 0x0c}) {  // some leave the flag out
    CHECK(IsQuery4(Decode(Query4(vxlan(flags, 1)))));
    CHECK(IsQuery6(Decode(Query6(vxlan(flags, 2)))));
    CHECK(IsQuery4(Decode(Query4(vxlan(flags, 3).Ethernet()))));
    CHECK(IsQuery6(Decode(Query6(vxlan(flags, 0).Ethernet()))));
    CHECK(IsOrdinary(Decode(Query4(vxlan(flags, 2)))));
    CHECK(IsOrdinary(Decode(Query6(vxlan(flags, 1)))));
    CHECK(IsOrdinary(Decode(Query4(vxlan(flags, 4)))));
    CHECK(IsOrdinary(Decode(vxlan(flags, 1))));
  }
  CHECK(IsQuery4(Decode(Query4(vxlan(0x88, 1).Ethernet()))));  // not a protocol: half a group's number
}

TEST_CASE("a datagram of VXLAN's port that is not VXLAN is an ordinary one") {
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 4789).Vxlan(1).Set8(0, 0).Ethernet()))));
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 4789).Vxlan(1).Set8(0, 0x18).Ethernet()))));
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 4789).Vxlan(1).Set8(0, 0x8c).Ethernet()))));
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 4789).Vxlan(1).Set8(7, 1).Ethernet()))));
  CHECK(IsOrdinary(Decode(Outer(50000, 4789).Vxlan(1).Ethernet().Type(0x0806).Text("who has"))));
  CHECK(IsOrdinary(Decode(Outer(50000, 4789).Vxlan(1).Payload(Bytes(13)))));
  CHECK(IsOrdinary(Decode(Outer(50000, 4789).Text("short"))));
}

TEST_CASE("tunnels are followed on the port of either end") {
  CHECK(IsQuery4(Decode(Query4(Outer(4789, 50000).Vxlan(1).Ethernet()))));
  CHECK(IsQuery4(Decode(Query4(Outer(6081, 50000).Geneve(1).Ethernet()))));
}

TEST_CASE("what has the DNS port is never a tunnel") {
  for (const uint16_t port : Numbers{4789, 8472, 6081, 3544, 2152}) {
    CHECK(IsOrdinary(Decode(Query4(Outer(53, port).Vxlan(1).Ethernet()))));
    CHECK(IsOrdinary(Decode(Query4(Outer(port, 53).Vxlan(1).Ethernet()))));
    CHECK(IsOrdinary(Decode(Query6(Outer(port, 53)))));
  }
}

TEST_CASE("GENEVE is followed with and without options, to Ethernet and to bare IP") {
  for (const size_t options : Sizes{0, 4, 252}) {
    const Decoded decoded = Decode(Query4(Outer(50000, 6081).Geneve(0x123456, options).Ethernet()));
    CHECK(IsQuery4(decoded));
    CHECK(IsTunnel(decoded, Tunnel::kGeneve, 0x123456));
    CHECK(IsQuery6(Decode(Query6(Outer(50000, 6081).Geneve(1, options)))));
  }
  CHECK(IsQuery4(Decode(Query4(Outer(50000, 6081).Geneve(1).Set8(1, 0xc0).Ethernet()))));  // control and critical
}

TEST_CASE("a datagram of GENEVE's port that is not GENEVE is an ordinary one") {
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 6081).Geneve(1).Set8(0, 0x40).Ethernet()))));
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 6081).Geneve(1).Set8(1, 0x01).Ethernet()))));
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 6081).Geneve(1).Set8(7, 0x01).Ethernet()))));
  CHECK(IsOrdinary(Decode(Outer(50000, 6081).Geneve(1).Set8(0, 0x3f).Type(0x0800))));  // options that are not there
  CHECK(IsOrdinary(Decode(Outer(50000, 6081).Geneve(1).Type(0x1234).Text("unknown"))));
  CHECK(IsOrdinary(Decode(Outer(50000, 6081).Text("short"))));
}

TEST_CASE("Teredo is followed on either port") {
  const Decoded decoded = Decode(Query6(Outer(50000, 3544)));
  CHECK(IsQuery6(decoded));
  CHECK(IsTunnel(decoded, Tunnel::kTeredo, 0));
  CHECK(IsQuery6(Decode(Query6(Outer(3544, 50000)))));
}

TEST_CASE("Teredo's authentication and origin are skipped") {
  const Bytes origin{0, 0, 1, 2, 3, 4, 5, 6};
  const Bytes authentication{0, 1, 2, 3, 'i', 'd', 'a', 'u', 't', 1, 2, 3, 4, 5, 6, 7, 8, 0};
  CHECK(IsQuery6(Decode(Query6(Outer(50000, 3544).Payload(origin)))));
  CHECK(IsQuery6(Decode(Query6(Outer(50000, 3544).Payload(authentication)))));
  CHECK(IsQuery6(Decode(Query6(Outer(50000, 3544).Payload(authentication).Payload(origin)))));
  CHECK(IsOrdinary(Decode(Outer(50000, 3544).Payload(authentication).Set8(3, 4))));
}

TEST_CASE("a datagram of Teredo's port that is not exactly an IPv6 packet is an ordinary one") {
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 3544)))));
  CHECK(IsOrdinary(Decode(Query6(Outer(50000, 3544)).Text("more"))) == false);  // the IPv6 length grew with it
  CHECK(IsOrdinary(Decode(Outer(50000, 3544).Payload(Query6(RawIp()).Frame()).Text("more"))));
  CHECK(IsOrdinary(Decode(Outer(50000, 3544).Payload(Bytes(39, 0x60)))));
}

TEST_CASE("GTP user packets are followed") {
  const Decoded decoded = Decode(Query4(Outer(50000, 2152).Gtp(0x01020304)));
  CHECK(IsQuery4(decoded));
  CHECK(IsTunnel(decoded, Tunnel::kGtp, 0x01020304));
  CHECK(IsQuery6(Decode(Query6(Outer(2152, 50000).Gtp(1)))));
}

TEST_CASE("GTP's optional fields and extension headers are skipped") {
  const Bytes fields{0, 9, 0, 0};
  CHECK(IsQuery4(Decode(Query4(Outer(50000, 2152).Gtp(1).Set8(0, 0x32).Payload(fields)))));
  const Bytes no_extension{0, 9, 0, 0x85};  // the octet counts only where its flag is set
  CHECK(IsQuery4(Decode(Query4(Outer(50000, 2152).Gtp(1).Set8(0, 0x32).Payload(no_extension)))));
  const Bytes two_extensions{0, 9, 0, 0x85, 1, 0xaa, 0xbb, 0x40, 2, 1, 2, 3, 4, 5, 6, 0};
  CHECK(IsQuery6(Decode(Query6(Outer(50000, 2152).Gtp(1).Set8(0, 0x36).Payload(two_extensions)))));
}

TEST_CASE("a datagram of GTP's port that is not a user's packet is an ordinary one") {
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 2152).Gtp(1).Set8(1, 1)))));     // an echo request
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 2152).Gtp(1).Set8(0, 0x50)))));  // version 2
  CHECK(IsOrdinary(Decode(Outer(50000, 2152).Gtp(1).Text("(no IP)"))));
  CHECK(IsOrdinary(Decode(Outer(50000, 2152).Gtp(1))));
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 2152).Gtp(1).Set16(2, 0)))));
  const Bytes endless{0, 9, 0, 0x85, 0, 0, 0, 0x85};  // an extension header of no length
  CHECK(IsOrdinary(Decode(Query4(Outer(50000, 2152).Gtp(1).Set8(0, 0x34).Payload(endless)))));
  CHECK(IsOrdinary(Decode(Outer(50000, 2152).Gtp(1).Set8(0, 0x34).Payload(Bytes{0, 9, 0, 0x85, 9, 0}))));
  CHECK(IsOrdinary(Decode(Outer(50000, 2152).Gtp(1).Set8(0, 0x34).Payload(Bytes{0, 9, 0}))));
}

TEST_CASE("a tunnel's payload cut by the capture is cut by its own lengths") {
  const Decoded decoded = Decode(Query4(Outer(50000, 4789).Vxlan(1).Ethernet()), {.cut = 2});
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == "que");
  CHECK(decoded.datagram.nominal == 5);
}

TEST_CASE("tunnels inside tunnels are followed, and the outermost is kept") {
  Packet frame = Outer(50000, 6081).Geneve(11).Ethernet().Ipv4("10.0.0.1", "10.0.0.2").Udp(50000, 4789);
  const Decoded decoded = Decode(Query4(frame.Vxlan(12).Ethernet()));
  CHECK(IsQuery4(decoded));
  CHECK(IsTunnel(decoded, Tunnel::kGeneve, 11));
}

TEST_CASE("tunnels in tunnels are bounded in depth") {
  Packet frame = Ethernet();
  for (int i = 0; i < 40; ++i) frame.Ipv4("10.0.0.1", "10.0.0.2").Udp(50000, 4789).Vxlan(1).Ethernet();
  CHECK(Decode(Query4(frame)).outcome == Outcome::kTooDeep);
}
