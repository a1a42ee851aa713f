#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

TEST_CASE("IPv4 options are skipped") {
  CHECK(IsQuery4(Decode(Ethernet().Ipv4(kClient4, kServer4, Bytes(40, 1)).Udp(40000, 53).Text("query"))));
}

TEST_CASE("an IPv4 header that contradicts itself is malformed") {
  const auto broken = [](size_t at, uint8_t value) {
    return Decode(Ethernet().Ipv4(kClient4, kServer4).Set8(at, value).Udp(40000, 53).Text("query")).outcome;
  };
  CHECK(broken(0, 0x55) == Outcome::kMalformed);  // version 5
  CHECK(broken(0, 0x44) == Outcome::kMalformed);  // a header of 16 bytes
  CHECK(broken(3, 19) == Outcome::kMalformed);    // a total length below the header's
  CHECK(broken(3, 27) == Outcome::kMalformed);    // no room for the UDP header
  CHECK(broken(0, 0x45) == Outcome::kDatagram);
}

TEST_CASE("bytes behind the IPv4 total length do not count") {
  const Decoded decoded = Decode(Ethernet().Ipv4(kClient4, kServer4).Set16(2, 31).Udp(40000, 53).Text("query"));
  CHECK(decoded.payload == "que");
  CHECK(decoded.datagram.nominal == 3);
}

TEST_CASE("an IPv4 total length of zero reaches to the end of the frame") {
  const auto frame = Ethernet().Ipv4(kClient4, kServer4).Set16(2, 0).Udp(40000, 53).Text("query");
  CHECK(IsQuery4(Decode(frame)));
  const Decoded cut = Decode(frame, {.cut = 2});
  CHECK(cut.payload == "que");
  CHECK(cut.datagram.nominal == 5);
}

TEST_CASE("an IPv4 packet longer than its frame is cut") {
  const auto frame = Ethernet().Ipv4(kClient4, kServer4).Set16(2, 100).Udp(40000, 53).Set16(4, 80).Text("query");
  const Decoded decoded = Decode(frame);
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == "query");
  CHECK(decoded.datagram.nominal == 72);
}

TEST_CASE("an IPv6 packet longer than its frame is cut") {
  const auto frame = Ethernet().Ipv6(kClient6, kServer6).Set16(4, 100).Udp(40000, 53).Set16(4, 80).Text("query");
  const Decoded decoded = Decode(frame);
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.payload == "query");
  CHECK(decoded.datagram.nominal == 72);
}

TEST_CASE("bytes behind the IPv6 payload length do not count") {
  CHECK(IsQuery6(Decode(Query6(Ethernet()).Padding(9))));
  const Decoded decoded = Decode(Ethernet().Ipv6(kClient6, kServer6).Set16(4, 11).Udp(40000, 53).Text("query"));
  CHECK(decoded.payload == "que");
  CHECK(decoded.datagram.nominal == 3);
}

TEST_CASE("an IPv6 payload length of zero reaches to the end of the frame, unless nothing is to follow") {
  CHECK(IsQuery6(Decode(Ethernet().Ipv6(kClient6, kServer6).Set16(4, 0).Udp(40000, 53).Text("query"))));
  CHECK(Decode(Ethernet().Ipv6(kClient6, kServer6).Type(59).Padding(6)).outcome == Outcome::kNotUdpOrTcp);
}

TEST_CASE("IPv6 of another version is malformed, and without room for its header too") {
  CHECK(Decode(Ethernet().Ipv6(kClient6, kServer6).Set8(0, 0x50).Udp(1, 53)).outcome == Outcome::kMalformed);
  CHECK(Decode(Ethernet().Type(0x86dd).Payload(Bytes(39, 0x60))).outcome == Outcome::kMalformed);
}

TEST_CASE("other protocols over IP are neither UDP nor TCP") {
  for (const uint16_t protocol : Numbers{1, 2, 50, 58, 89, 132, 136, 255}) {
    CAPTURE(protocol);
    CHECK(Decode(Ethernet().Ipv4(kClient4, kServer4).Type(protocol).Text("....")).outcome == Outcome::kNotUdpOrTcp);
    CHECK(Decode(Ethernet().Ipv6(kClient6, kServer6).Type(protocol).Text("....")).outcome == Outcome::kNotUdpOrTcp);
  }
}

TEST_CASE("IP headers cut by the capture are truncated") {
  CHECK(Decode(Ethernet().Ipv4(kClient4, kServer4).Type(17), {.cut = 1}).outcome == Outcome::kTruncated);
  CHECK(Decode(Ethernet().Ipv4(kClient4, kServer4, Bytes(8, 1)).Type(17), {.cut = 1}).outcome ==
        Outcome::kTruncated);
  CHECK(Decode(Ethernet().Ipv6(kClient6, kServer6).Type(17), {.cut = 1}).outcome == Outcome::kTruncated);
}

TEST_CASE("class E addresses are addresses like others") {
  CHECK(ToText(Decode(Ethernet().Ipv4("240.0.0.1", kServer4).Udp(1, 53)).datagram.source) == "240.0.0.1");
}
