#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

namespace {

Packet Ip4() { return Ethernet().Ipv4(kClient4, kServer4); }
Packet Tcp(const TcpFields& fields) { return Ip4().Tcp(40000, 53, fields); }

}  // namespace

TEST_CASE("a UDP datagram has its frame's time, addresses, ports and payload") {
  const Decoded decoded = Decode(Query4(Ethernet()), {.time_ns = 1234567890123456789});
  CHECK(IsQuery4(decoded));
  CHECK(decoded.datagram.time_ns == 1234567890123456789);
  CHECK(decoded.datagram.source.version == 4);
  CHECK(decoded.datagram.captured == 5);
}

TEST_CASE("a UDP payload points into its frame") {
  const Bytes frame = Query4(Ethernet()).Frame();
  const capture::Frame captured{.data = frame.data(),
                                .captured = static_cast<uint32_t>(frame.size()),
                                .wire = static_cast<uint32_t>(frame.size()),
                                .link_type = 1};
  packet::Decoder decoder;
  packet::Datagram datagram;
  REQUIRE(decoder.Decode(captured, &datagram) == Outcome::kDatagram);
  CHECK(datagram.payload == frame.data() + 42);
}

TEST_CASE("an empty UDP datagram is a datagram") {
  const Decoded decoded = Decode(Ip4().Udp(40000, 53));
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.datagram.captured == 0);
  CHECK(decoded.datagram.nominal == 0);
}

TEST_CASE("the UDP length bounds the payload") {
  const Decoded decoded = Decode(Ip4().Udp(40000, 53).Set16(4, 11).Text("query"));
  CHECK(decoded.payload == "que");
  CHECK(decoded.datagram.nominal == 3);
}

TEST_CASE("a UDP length beyond the IP packet ends with the packet") {
  CHECK(IsQuery4(Decode(Ip4().Udp(40000, 53).Set16(4, 14).Text("query"))));
  CHECK(IsQuery4(Decode(Ip4().Udp(40000, 53).Set16(4, 0xffff).Text("query").Padding(30))));
}

TEST_CASE("a UDP length of zero means all that the IP packet has") {
  CHECK(IsQuery4(Decode(Ip4().Udp(40000, 53).Set16(4, 0).Text("query").Padding(4))));
}

TEST_CASE("a UDP length below its header's is malformed") {
  for (const uint16_t length : Numbers{1, 7}) {
    CHECK(Decode(Ip4().Udp(40000, 53).Set16(4, length).Text("query")).outcome == Outcome::kMalformed);
  }
  CHECK(Decode(Ip4().Udp(40000, 53).Set16(4, 8).Text("query")).outcome == Outcome::kDatagram);
}

TEST_CASE("a UDP datagram cut by the capture keeps what there is, down to nothing") {
  const Packet frame = Query4(Ethernet());
  for (uint32_t cut = 0; cut <= 5; ++cut) {
    const Decoded decoded = Decode(frame, {.cut = cut});
    CHECK(decoded.outcome == Outcome::kDatagram);
    CHECK(decoded.payload == std::string("query").substr(0, 5 - cut));
    CHECK(decoded.datagram.nominal == 5);
  }
  CHECK(Decode(frame, {.cut = 6}).outcome == Outcome::kTruncated);
}

TEST_CASE("a TCP segment has its sequence number, flags and payload") {
  const Decoded decoded = Decode(Tcp({.sequence = 0xfedcba98, .flags = kPush | kAck}).Text("segment"));
  CHECK(decoded.outcome == Outcome::kDatagram);
  CHECK(decoded.datagram.transport == 6);
  CHECK(decoded.datagram.source_port == 40000);
  CHECK(decoded.datagram.destination_port == 53);
  CHECK(decoded.datagram.tcp_sequence == 0xfedcba98);
  CHECK(decoded.datagram.tcp_flags == (kPush | kAck));
  CHECK(decoded.payload == "segment");
  CHECK(decoded.datagram.nominal == 7);
}

TEST_CASE("TCP flags have the bits of the header") {
  CHECK(Decode(Tcp({.flags = kSyn})).datagram.tcp_flags == packet::kTcpSyn);
  CHECK(Decode(Tcp({.flags = kFin})).datagram.tcp_flags == packet::kTcpFin);
  CHECK(Decode(Tcp({.flags = kRst})).datagram.tcp_flags == packet::kTcpRst);
}

TEST_CASE("UDP after TCP has no flags and no sequence number") {
  packet::Decoder decoder;
  packet::Datagram datagram;
  datagram.tcp_flags = 2;
  datagram.tcp_sequence = 9;
  const Bytes frame = Query4(Ethernet()).Frame();
  const auto size = static_cast<uint32_t>(frame.size());
  REQUIRE(decoder.Decode({.data = frame.data(), .captured = size, .wire = size, .link_type = 1}, &datagram) ==
          Outcome::kDatagram);
  CHECK(datagram.tcp_flags == 0);
  CHECK(datagram.tcp_sequence == 0);
}

TEST_CASE("TCP options and Ethernet padding are not payload") {
  CHECK(Decode(Tcp({.options = Bytes(40, 1)}).Text("segment")).payload == "segment");
  const Decoded empty = Decode(Tcp({}).Padding(6));
  CHECK(empty.outcome == Outcome::kDatagram);
  CHECK(empty.datagram.nominal == 0);
}

TEST_CASE("a TCP data offset below its header or beyond its packet is malformed") {
  CHECK(Decode(Tcp({}).Set8(12, 0x40).Text("segment")).outcome == Outcome::kMalformed);
  CHECK(Decode(Tcp({}).Set8(12, 0x70).Text("segment")).outcome == Outcome::kMalformed);  // 28 of 27
  CHECK(Decode(Tcp({}).Set8(12, 0x60).Text("segment")).payload == "ent");
}

TEST_CASE("a TCP segment cut by the capture keeps what there is, also without its options") {
  const Packet frame = Tcp({.options = Bytes(8, 1)}).Text("segment");
  for (uint32_t cut = 0; cut <= 15; ++cut) {
    const Decoded decoded = Decode(frame, {.cut = cut});
    CHECK(decoded.outcome == Outcome::kDatagram);
    CHECK(decoded.payload == std::string("segment").substr(0, cut < 7 ? 7 - cut : 0));
    CHECK(decoded.datagram.nominal == 7);
  }
  CHECK(Decode(frame, {.cut = 16}).outcome == Outcome::kTruncated);
}

TEST_CASE("transport headers that the IP packet leaves no room for are malformed") {
  CHECK(Decode(Ip4().Type(17).Payload(Bytes(7))).outcome == Outcome::kMalformed);
  CHECK(Decode(Ip4().Type(6).Payload(Bytes(19))).outcome == Outcome::kMalformed);
}
