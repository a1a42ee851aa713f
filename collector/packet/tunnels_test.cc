#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;
using packet::Tunnel;

namespace {

Packet Outer4() { return Ethernet().Ipv4(kTunnel4From, kTunnel4To); }
Packet Outer6() { return Ethernet().Ipv6(kTunnel6From, kTunnel6To); }

Tunnel TunnelOf(const Decoded& decoded) { return decoded.datagram.encapsulation.tunnel; }
uint32_t IdOf(const Decoded& decoded) { return decoded.datagram.encapsulation.tunnel_id; }

}  // namespace

TEST_CASE("IP in IP is followed in all four ways") {
  const Decoded ipv4_in_ipv4 = Decode(Query4(Outer4()));
  CHECK(IsQuery4(ipv4_in_ipv4));
  CHECK(TunnelOf(ipv4_in_ipv4) == Tunnel::kIpInIp);
  const Decoded ipv4_in_ipv6 = Decode(Query4(Outer6()));
  CHECK(IsQuery4(ipv4_in_ipv6));
  CHECK(TunnelOf(ipv4_in_ipv6) == Tunnel::kIpInIp);
  const Decoded ipv6_in_ipv6 = Decode(Query6(Outer6()));
  CHECK(IsQuery6(ipv6_in_ipv6));
  CHECK(TunnelOf(ipv6_in_ipv6) == Tunnel::kIpInIp);
  const Decoded ipv6_in_ipv4 = Decode(Query6(Outer4()));
  CHECK(IsQuery6(ipv6_in_ipv4));
  CHECK(TunnelOf(ipv6_in_ipv4) == Tunnel::k6in4);
}

TEST_CASE("GRE is followed with every set of optional fields") {
  for (const bool checksum : {false, true}) {
    for (const bool sequence : {false, true}) {
      const Decoded plain = Decode(Query4(Outer4().Gre({.checksum = checksum, .has_sequence = sequence})));
      CHECK(IsQuery4(plain));
      CHECK(TunnelOf(plain) == Tunnel::kGre);
      CHECK(IdOf(plain) == 0);
      const GreFields fields{.checksum = checksum, .has_key = true, .key = 0x01020304, .has_sequence = sequence};
      const Decoded keyed = Decode(Query6(Outer4().Gre(fields)));
      CHECK(IsQuery6(keyed));
      CHECK(IdOf(keyed) == 0x01020304);
    }
  }
}

TEST_CASE("GRE carries Ethernet, MPLS and tags") {
  CHECK(IsQuery4(Decode(Query4(Outer4().Gre().Ethernet()))));
  CHECK(IsQuery4(Decode(Query4(Outer6().Gre().Mpls(16)))));
  const Decoded tagged = Decode(Query4(Ethernet().Vlan(1).Ipv4(kTunnel4From, kTunnel4To).Gre().Ethernet().Vlan(2)));
  CHECK(IsQuery4(tagged));
  CHECK(tagged.datagram.encapsulation.vlan_count == 2);
  CHECK(tagged.datagram.encapsulation.vlan == std::array<uint16_t, 4>{1, 2, 0, 0});
}

TEST_CASE("GRE with source routes or of a later version is not followed") {
  CHECK(Decode(Query4(Outer4().Gre().Set8(0, 0x40))).outcome == Outcome::kNotUdpOrTcp);
  CHECK(Decode(Query4(Outer4().Gre().Set8(1, 2))).outcome == Outcome::kNotUdpOrTcp);
}

TEST_CASE("GRE with an unknown type carries no IP") {
  CHECK(Decode(Outer4().Gre().Type(0x0001).Text("OSI")).outcome == Outcome::kNotIp);
}

TEST_CASE("PPTP's GRE carries PPP, and the call is its identifier") {
  const Decoded decoded = Decode(Query4(Outer4().GreWithPpp(77).Ppp(true)));
  CHECK(IsQuery4(decoded));
  CHECK(TunnelOf(decoded) == Tunnel::kGre);
  CHECK(IdOf(decoded) == 77);
}

TEST_CASE("PPTP's GRE without acknowledgement has a shorter header") {
  const Bytes inner = Query4(Ppp()).Frame();
  const auto size = static_cast<uint8_t>(inner.size());
  CHECK(IsQuery4(
      Decode(Outer4().Type(47).Payload(Bytes{0x30, 0x01, 0x88, 0x0b, 0, size, 0, 77, 0, 0, 0, 1}).Payload(inner))));
}

TEST_CASE("PPTP's acknowledgements carry nothing, and without a key it is malformed") {
  CHECK(Decode(Outer4().GreWithPpp(77).Set8(0, 0x20).Ppp()).outcome == Outcome::kNotUdpOrTcp);
  CHECK(Decode(Outer4().GreWithPpp(77).Set8(0, 0x10).Ppp()).outcome == Outcome::kMalformed);
}

TEST_CASE("ERSPAN of all three types carries Ethernet") {
  const Decoded first = Decode(Query4(Outer4().Gre().Type(0x88be).Payload({}).Ethernet()));
  CHECK(IsQuery4(first));
  CHECK(TunnelOf(first) == Tunnel::kGre);
  CHECK(IsQuery4(Decode(Query4(Outer4().Gre({.has_sequence = true}).Erspan2().Ethernet()))));
  CHECK(IsQuery6(Decode(Query6(Outer4().Gre({.has_sequence = true}).Erspan3(false).Ethernet().Vlan(4)))));
  CHECK(IsQuery4(Decode(Query4(Outer4().Gre({.has_sequence = true}).Erspan3(true).Ethernet()))));
}

TEST_CASE("ERSPAN of the third type may carry bare IP") {
  const auto ip_frame_type = static_cast<uint8_t>(2 << 2);
  CHECK(IsQuery4(Decode(Query4(Outer4().Gre({.has_sequence = true}).Erspan3(false).Set8(10, ip_frame_type)))));
}

TEST_CASE("EtherIP carries Ethernet") {
  const Decoded decoded = Decode(Query4(Outer4().Type(97).Payload(Bytes{0x30, 0}).Ethernet()));
  CHECK(IsQuery4(decoded));
  CHECK(TunnelOf(decoded) == Tunnel::kOther);
  CHECK(Decode(Query4(Outer4().Type(97).Payload(Bytes{0x20, 0}).Ethernet())).outcome == Outcome::kMalformed);
}

TEST_CASE("MPLS in IP is followed") {
  const Decoded decoded = Decode(Query6(Outer4().Mpls(16)));
  CHECK(IsQuery6(decoded));
  CHECK(TunnelOf(decoded) == Tunnel::kOther);
}

TEST_CASE("a tunnel's header that fills its packet leaves no room for what it should carry") {
  CHECK(Decode(Outer4().Gre().Type(1)).outcome == Outcome::kNotIp);
  CHECK(Decode(Outer4().Gre().Type(0x0800)).outcome == Outcome::kMalformed);
  CHECK(Decode(Outer4().Type(97).Payload(Bytes{0x20, 0})).outcome == Outcome::kMalformed);
}

TEST_CASE("of nested tunnels the outermost is kept") {
  const Decoded decoded = Decode(Query6(Outer4().Gre({.has_key = true, .key = 5}).Ipv4("10.0.0.1", "10.0.0.2")));
  CHECK(IsQuery6(decoded));
  CHECK(TunnelOf(decoded) == Tunnel::kGre);
  CHECK(IdOf(decoded) == 5);
}

TEST_CASE("IP in IP is bounded in depth") {
  Packet frame = Ethernet();
  for (int i = 0; i < 31; ++i) frame.Ipv4(kTunnel4From, kTunnel4To);
  CHECK(IsQuery4(Decode(Query4(frame))));
  CHECK(Decode(Query4(frame.Ipv4(kTunnel4From, kTunnel4To))).outcome == Outcome::kTooDeep);
}

TEST_CASE("bridged Ethernet in bridged Ethernet is bounded in depth") {
  Packet frame = Ethernet();
  for (int i = 0; i < 1000; ++i) frame.Ethernet();
  CHECK(Decode(Query4(frame)).outcome == Outcome::kTooDeep);
}

TEST_CASE("tunnel headers cut by the capture are truncated, those without room malformed") {
  const Packet headers[] = {Outer4().Gre(),
                            Outer4().Gre({.checksum = true, .has_key = true, .has_sequence = true}),
                            Outer4().GreWithPpp(7),
                            Outer4().Gre({.has_sequence = true}).Erspan2(),
                            Outer4().Gre({.has_sequence = true}).Erspan3(),
                            Outer4().Gre({.has_sequence = true}).Erspan3(true),
                            Outer4().Type(97).Payload(Bytes{0x30, 0})};
  for (const Packet& header : headers) {
    CHECK(Decode(header, {.cut = 1}).outcome == Outcome::kTruncated);
  }
  CHECK(Decode(Outer4().Type(47).Payload(Bytes(3))).outcome == Outcome::kMalformed);
  CHECK(Decode(Outer4().Type(47).Payload(Bytes{0x20, 0, 8, 0})).outcome == Outcome::kMalformed);
  CHECK(Decode(Outer4().Type(97).Payload(Bytes{0x30})).outcome == Outcome::kMalformed);
}
