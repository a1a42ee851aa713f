#include <doctest/doctest.h>

#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

namespace {

Decoded DecodeLink(uint16_t link_type, const Packet& frame, uint32_t cut = 0) {
  return Decode(frame, {.link_type = link_type, .cut = cut});
}

}  // namespace

TEST_CASE("raw IP of every number carries both versions") {
  for (const uint16_t link_type : Numbers{12, 14, 101}) {
    CHECK(IsQuery4(DecodeLink(link_type, Query4(RawIp()))));
    CHECK(IsQuery6(DecodeLink(link_type, Query6(RawIp()))));
    CHECK(DecodeLink(link_type, RawIp().Text("(no IP here)")).outcome == Outcome::kNotIp);
    CHECK(DecodeLink(link_type, Query4(RawIp()), 33).outcome == Outcome::kTruncated);
  }
}

TEST_CASE("raw IPv4 and raw IPv6 carry either version, whatever they are called") {
  for (const uint16_t link_type : Numbers{228, 229}) {
    CHECK(IsQuery4(DecodeLink(link_type, Query4(RawIp()))));
    CHECK(IsQuery6(DecodeLink(link_type, Query6(RawIp()))));
  }
}

TEST_CASE("loopback frames may carry a type field instead of a family") {
  CHECK(IsQuery4(DecodeLink(0, Query4(RawIp().Payload(Bytes{0x0f, 0, 0x08, 0x00})))));
  CHECK(IsQuery6(DecodeLink(0, Query6(RawIp().Payload(Bytes{0, 0, 0x86, 0xdd})))));
}

TEST_CASE("loopback frames carry an address family in either byte order") {
  for (const uint16_t link_type : Numbers{0, 108}) {
    CHECK(IsQuery4(DecodeLink(link_type, Query4(RawIp().Payload(Bytes{2, 0, 0, 0})))));
    CHECK(IsQuery4(DecodeLink(link_type, Query4(RawIp().Payload(Bytes{0, 0, 0, 2})))));
    for (const uint8_t family : Bytes{10, 24, 28, 30}) {
      CHECK(IsQuery6(DecodeLink(link_type, Query6(RawIp().Payload(Bytes{family, 0, 0, 0})))));
      CHECK(IsQuery6(DecodeLink(link_type, Query6(RawIp().Payload(Bytes{0, 0, 0, family})))));
    }
    CHECK(DecodeLink(link_type, Query4(RawIp().Payload(Bytes{7, 0, 0, 0}))).outcome == Outcome::kNotIp);
    CHECK(DecodeLink(link_type, Null(), 1).outcome == Outcome::kTruncated);
  }
}

TEST_CASE("Linux cooked frames of both versions carry type fields, tags and LLC") {
  CHECK(IsQuery4(DecodeLink(113, Query4(LinuxCooked()))));
  CHECK(IsQuery6(DecodeLink(276, Query6(LinuxCooked2()))));
  CHECK(DecodeLink(113, Query6(LinuxCooked().Vlan(9))).datagram.encapsulation.vlan[0] == 9);
  CHECK(DecodeLink(276, Query6(LinuxCooked2().Vlan(9))).datagram.encapsulation.vlan[0] == 9);
  const Bytes llc = Query4(RawIp().Snap()).Frame();
  CHECK(IsQuery4(DecodeLink(113, LinuxCooked().Type(4).Payload(llc))));
  CHECK(IsQuery4(DecodeLink(276, LinuxCooked2().Type(4).Payload(llc))));
}

TEST_CASE("Linux cooked frames of other protocols are not IP, cut ones truncated") {
  CHECK(DecodeLink(113, LinuxCooked().Type(0x0806).Text("who has")).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(276, LinuxCooked2().Type(1).Text("x")).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(113, LinuxCooked(), 1).outcome == Outcome::kTruncated);
  CHECK(DecodeLink(276, LinuxCooked2(), 1).outcome == Outcome::kTruncated);
}

TEST_CASE("a header that fills its frame is enough to see that no IP follows it") {
  CHECK(DecodeLink(0, RawIp().Payload(Bytes{7, 0, 0, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(10, RawIp().Payload(Bytes(13))).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(113, LinuxCooked().Type(0x0806)).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(129, RawIp().Payload(Bytes{1, 2, 0, 0, 213, 0, 0, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(192, RawIp().Payload(Bytes{0, 0, 8, 0, 0, 0, 1, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(239, RawIp().Payload(Bytes(4))).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(258, RawIp().Payload(Bytes{12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(276, LinuxCooked2().Type(0x0806)).outcome == Outcome::kNotIp);
}

TEST_CASE("NFLOG's payload is found behind other attributes") {
  CHECK(IsQuery4(DecodeLink(239, Query4(Nflog(2)))));
  CHECK(IsQuery6(DecodeLink(239, Query6(Nflog(10)).Padding(3))));
}

TEST_CASE("NFLOG's empty attributes are skipped") {
  const Bytes ip = Query4(RawIp()).Frame();
  const Packet attributes = RawIp().Payload(Bytes{2, 0, 0, 0, 4, 0, 10, 0});
  const auto size = static_cast<uint8_t>(ip.size() + 4);
  CHECK(IsQuery4(DecodeLink(239, Packet(attributes).Payload(Bytes{size, 0, 9, 0}).Payload(ip))));
}

TEST_CASE("NFLOG of a big-endian machine is decoded") {
  const Bytes ip = Query4(RawIp()).Frame();
  const Packet attributes = RawIp().Payload(Bytes{2, 0, 0, 0, 0, 5, 0, 10, 'x', 0, 0, 0});
  const auto size = static_cast<uint8_t>(ip.size() + 4);
  CHECK(IsQuery4(DecodeLink(239, Packet(attributes).Payload(Bytes{0, size, 0, 9}).Payload(ip))));
}

TEST_CASE("NFLOG without a payload is not IP, cut before it truncated") {
  CHECK(DecodeLink(239, RawIp().Payload(Bytes{2, 0, 0, 0, 5, 0, 10, 0, 'x', 0, 0, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(239, RawIp().Payload(Bytes{2, 0, 0, 0, 0, 0, 0, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(239, Nflog(2), 2).outcome == Outcome::kTruncated);
  CHECK(DecodeLink(239, Nflog(2), 13).outcome == Outcome::kTruncated);
}

TEST_CASE("FDDI's LLC frames are decoded") {
  const auto fddi = [](uint8_t control) {
    Bytes header(13);
    header[0] = control;
    return RawIp().Payload(header).Snap();
  };
  CHECK(IsQuery4(DecodeLink(10, Query4(fddi(0x50)))));
  CHECK(IsQuery4(DecodeLink(10, Query4(fddi(0x57)))));
  CHECK(DecodeLink(10, Query4(fddi(0x41))).outcome == Outcome::kNotIp);
  CHECK(Decode(Bytes(14), {.link_type = 10, .cut = 2}).outcome == Outcome::kTruncated);
}

TEST_CASE("ARCNET of both RFCs carries IPv4") {
  CHECK(IsQuery4(DecodeLink(129, Query4(RawIp().Payload(Bytes{1, 2, 0, 0, 240})))));
  CHECK(IsQuery4(DecodeLink(129, Query4(RawIp().Payload(Bytes{1, 2, 0, 0, 212, 0, 0, 1})))));
  CHECK(DecodeLink(129, Query4(RawIp().Payload(Bytes{1, 2, 0, 0, 212, 3, 0, 1}))).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(129, RawIp().Payload(Bytes{1, 2, 0, 0, 213, 0, 0, 0})).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(129, RawIp().Payload(Bytes{1, 2, 0, 0, 212, 0, 0, 0}), 1).outcome == Outcome::kTruncated);
  CHECK(DecodeLink(129, RawIp().Payload(Bytes{1, 2, 0, 0, 213, 0, 0})).outcome == Outcome::kMalformed);
}

TEST_CASE("PPI names the link type of what follows") {
  CHECK(IsQuery4(DecodeLink(192, Query4(RawIp().Payload(Bytes{0, 0, 8, 0, 1, 0, 0, 0}).Ethernet()))));
  CHECK(IsQuery6(DecodeLink(192, Query6(RawIp().Payload(Bytes{0, 0, 10, 0, 101, 0, 0, 0, 9, 9})))));
  CHECK(DecodeLink(192, RawIp().Payload(Bytes{0, 0, 7, 0, 1, 0, 0, 0})).outcome == Outcome::kMalformed);
  CHECK(DecodeLink(192, RawIp().Payload(Bytes{0, 0, 9, 0, 1, 0, 0, 0})).outcome == Outcome::kMalformed);
  CHECK(DecodeLink(192, RawIp().Payload(Bytes{0, 0, 8, 0, 1, 0, 0, 0}), 1).outcome == Outcome::kTruncated);
  CHECK(DecodeLink(192, RawIp().Payload(Bytes{0, 0, 8, 0, 1, 0, 1, 0})).outcome == Outcome::kNotIp);
}

TEST_CASE("PPI inside PPI is bounded") {
  Packet frame = RawIp();
  for (int i = 0; i < 5000; ++i) frame.Payload(Bytes{0, 0, 8, 0, 192, 0, 0, 0});
  CHECK(DecodeLink(192, Query4(frame)).outcome == Outcome::kTooDeep);
}

TEST_CASE("pktap names the link type of what follows, also under a number for private use") {
  Bytes header(108);
  header[0] = 108;
  header[4] = 1;  // a packet
  header[8] = 1;  // Ethernet
  CHECK(IsQuery4(DecodeLink(258, Query4(RawIp().Payload(header).Ethernet()))));
  CHECK(IsQuery4(DecodeLink(149, Query4(RawIp().Payload(header).Ethernet()))));
  CHECK(DecodeLink(258, RawIp().Payload(header), 1).outcome == Outcome::kTruncated);
  CHECK(DecodeLink(258, RawIp().Payload(header).Set8(4, 0)).outcome == Outcome::kNotIp);
  CHECK(DecodeLink(258, RawIp().Payload(header).Set8(0, 11)).outcome == Outcome::kMalformed);
  CHECK(DecodeLink(258, RawIp().Payload(header), 97).outcome == Outcome::kTruncated);
  CHECK(DecodeLink(149, RawIp().Payload(header).Set8(0, 107)).outcome == Outcome::kUnknownLinkType);
}

TEST_CASE("pktap's shortest header is followed") {
  CHECK(IsQuery4(DecodeLink(258, Query4(RawIp().Payload(Bytes{12, 0, 0, 0, 1, 0, 0, 0, 101, 0, 0, 0})))));
}

TEST_CASE("other link types are unknown and counted by name") {
  packet::Decoder decoder;
  CHECK(DecodeWith(&decoder, Bytes(60), {.link_type = 195}).outcome == Outcome::kUnknownLinkType);
  CHECK(DecodeWith(&decoder, Bytes{}, {.link_type = 195}).outcome == Outcome::kUnknownLinkType);
  CHECK(DecodeWith(&decoder, Bytes(60), {.link_type = 65535}).outcome == Outcome::kUnknownLinkType);
  CHECK(IsQuery4(DecodeWith(&decoder, Query4(Ethernet()).Frame())));
  CHECK(decoder.UnknownLinkTypes() == std::map<std::string, uint64_t>{{"IEEE802_15_4", 2}, {"LINKTYPE_65535", 1}});
}
