#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

namespace {

Packet Ip6() { return Ethernet().Ipv6(kClient6, kServer6); }
Packet Finish(Packet packet) { return packet.Udp(40000, 53).Text("query"); }

}  // namespace

TEST_CASE("each extension header is skipped by its own length") {
  for (const size_t size : Sizes{8, 16, 64, 2048}) {
    CAPTURE(size);
    CHECK(IsQuery6(Decode(Finish(Ip6().HopByHop(size)))));
    CHECK(IsQuery6(Decode(Finish(Ip6().Routing(size)))));
    CHECK(IsQuery6(Decode(Finish(Ip6().DestinationOptions(size)))));
    CHECK(IsQuery6(Decode(Finish(Ip6().Mobility(size)))));
  }
}

TEST_CASE("host identity and shim headers are skipped") {
  for (const uint16_t protocol : Numbers{139, 140}) {
    CHECK(IsQuery6(
        Decode(Ip6().Type(protocol).Payload(Bytes{17, 0, 0, 0, 0, 0, 0, 0}).Udp(40000, 53).Text("query"))));
  }
}

TEST_CASE("authentication headers are skipped in both versions") {
  CHECK(IsQuery6(Decode(Finish(Ip6().Authentication()))));
  CHECK(IsQuery6(Decode(Finish(Ip6().Authentication(32)))));
  CHECK(IsQuery4(Decode(Finish(Ethernet().Ipv4(kClient4, kServer4).Authentication()))));
}

TEST_CASE("extension headers follow each other") {
  CHECK(IsQuery6(Decode(Finish(Ip6().HopByHop().DestinationOptions(24).Routing().Authentication().Mobility()))));
}

TEST_CASE("IPv4 has no extension headers") {
  for (const uint16_t protocol : Numbers{0, 43, 44, 60, 135, 139, 140}) {
    CAPTURE(protocol);
    const Bytes header{17, 0, 0, 0, 0, 0, 0, 0};
    const Packet frame =
        Ethernet().Ipv4(kClient4, kServer4).Type(protocol).Payload(header).Udp(40000, 53).Text("query");
    CHECK(Decode(frame).outcome == Outcome::kNotUdpOrTcp);
  }
}

TEST_CASE("an atomic fragment is a whole packet") {
  packet::Decoder decoder;
  Packet frame = Ip6().FragmentHeader(7, 0, false);
  CHECK(IsQuery6(DecodeWith(&decoder, Finish(frame).Frame())));
  CHECK(decoder.fragments().fragments == 0);
}

TEST_CASE("chains of extension headers are bounded") {
  Packet frame = Ip6();
  for (int i = 0; i < 30; ++i) frame.DestinationOptions();
  CHECK(IsQuery6(Decode(Finish(frame))));
  frame.DestinationOptions();
  CHECK(Decode(Finish(frame)).outcome == Outcome::kTooDeep);
}

TEST_CASE("chains of fragment headers are bounded") {
  Packet frame = Ip6();
  for (int i = 0; i < 100; ++i) frame.FragmentHeader(7, 0, false);
  CHECK(Decode(Finish(frame)).outcome == Outcome::kTooDeep);
}

TEST_CASE("an extension header longer than its packet is malformed, cut by the capture truncated") {
  CHECK(Decode(Ip6().HopByHop().Set8(1, 1).Type(17)).outcome == Outcome::kMalformed);
  CHECK(Decode(Ip6().Type(0).Payload(Bytes{17})).outcome == Outcome::kMalformed);
  CHECK(Decode(Ip6().Authentication(24).Set8(1, 5).Type(17)).outcome == Outcome::kMalformed);
  CHECK(Decode(Ip6().Type(44).Payload(Bytes(7))).outcome == Outcome::kMalformed);
  CHECK(Decode(Ip6().HopByHop(), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ip6().HopByHop(), {.cut = 7}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ip6().Authentication(), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ip6().Authentication(), {.cut = 23}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ip6().FragmentHeader(1, 0, true), {.cut = 1}).outcome == Outcome::kTruncated);
}
