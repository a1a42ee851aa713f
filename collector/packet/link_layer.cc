#include "collector/packet/layers.h"

namespace packet {
namespace {

constexpr uint16_t kEthernet = 1;

// BSD loopback: an address family in the byte order of the machine that captured (LINKTYPE_NULL) or in network
// order (LINKTYPE_LOOP). Families are small numbers, so the order shows, whichever it should be. IPv6 has another
// number on each system. Some drivers write a type field in the last two octets instead.
Outcome DecodeLoopback(Walk& walk, Bytes frame) {
  if (!frame.Has(4)) return frame.Missing(4);
  const uint32_t family = frame.U16(0) == 0 ? frame.U32(0) : frame.LittleU32(0);
  switch (family) {
    case 2:
      return DecodeIpv4(walk, frame.From(4));
    case 10:  // Linux
    case 24:  // NetBSD, OpenBSD
    case 28:  // FreeBSD
    case 30:  // Darwin
      return DecodeIpv6(walk, frame.From(4));
    default:
      return DecodeEtherType(walk, frame.U16(2), frame.From(4));
  }
}

// Linux' "any" interface puts small numbers of its own where a frame has no type field.
Outcome DecodeCookedProtocol(Walk& walk, uint16_t protocol, Bytes payload) {
  constexpr uint16_t kIeee8022 = 4;
  return protocol == kIeee8022 ? DecodeLlc(walk, payload) : DecodeEtherType(walk, protocol, payload);
}

Outcome DecodeCooked(Walk& walk, Bytes frame) {
  if (!frame.Has(16)) return frame.Missing(16);
  return DecodeCookedProtocol(walk, frame.U16(14), frame.From(16));
}

Outcome DecodeCooked2(Walk& walk, Bytes frame) {
  if (!frame.Has(20)) return frame.Missing(20);
  return DecodeCookedProtocol(walk, frame.U16(0), frame.From(20));
}

// The payload attribute of a netfilter log message. Lengths and types are in the order of the machine that
// captured. Nothing where the attributes do not lead to one.
std::optional<Bytes> FindNflogPayload(Bytes attributes, uint16_t (Bytes::*read)(uint32_t at) const) {
  constexpr uint16_t kPayload = 9;
  while (attributes.Has(4)) {
    const uint16_t size = (attributes.*read)(0);
    const uint16_t type = (attributes.*read)(2) & 0x7fff;  // the top bit tells of nesting
    if (size < 4) return {};
    if (type == kPayload) return attributes.From(4).Claiming(size - 4U);
    const uint32_t padded = (size + 3U) & ~3U;
    if (!attributes.Has(padded)) return {};
    attributes = attributes.From(padded);
  }
  return {};
}

Outcome DecodeNflog(Walk& walk, Bytes frame) {
  if (!frame.Has(4)) return frame.Missing(4);
  auto payload = FindNflogPayload(frame.From(4), &Bytes::LittleU16);
  if (!payload) payload = FindNflogPayload(frame.From(4), &Bytes::U16);
  if (!payload) return frame.captured < frame.nominal ? Outcome::kTruncated : Outcome::kNotIp;
  return DecodeIp(walk, *payload);
}

// One octet of direction, then PPP.
Outcome DecodeDirectedPpp(Walk& walk, Bytes frame) {
  if (!frame.Has(1)) return frame.Missing(1);
  return DecodePpp(walk, frame.From(1));
}

Outcome DecodeFddi(Walk& walk, Bytes frame) {
  if (!frame.Has(13)) return frame.Missing(13);
  const bool is_llc = (frame.U8(0) & 0xf0) == 0x50;
  return is_llc ? DecodeLlc(walk, frame.From(13)) : Outcome::kNotIp;
}

// ARCNET as Linux delivers it: RFC 1201, or RFC 1051 without flags and sequence number.
Outcome DecodeArcnet(Walk& walk, Bytes frame) {
  if (!frame.Has(8)) return frame.Missing(8);
  switch (frame.U8(4)) {
    case 240:
      return DecodeIpv4(walk, frame.From(5));
    case 212:
      return frame.U8(5) == 0 ? DecodeIpv4(walk, frame.From(8)) : Outcome::kNotIp;  // flags: split in pieces
    default:
      return Outcome::kNotIp;
  }
}

// A header that says what link type the rest has.
Outcome DecodeInner(Walk& walk, uint32_t link_type, Bytes frame) {
  if (!walk.Enter()) return Outcome::kTooDeep;
  return link_type > UINT16_MAX ? Outcome::kNotIp : DecodeLink(walk, static_cast<uint16_t>(link_type), frame);
}

Outcome DecodePpi(Walk& walk, Bytes frame) {
  if (!frame.Has(8)) return frame.Missing(8);
  const uint16_t size = frame.LittleU16(2);
  if (size < 8) return Outcome::kMalformed;
  if (!frame.Has(size)) return frame.Missing(size);
  return DecodeInner(walk, frame.LittleU32(4), frame.From(size));
}

// Darwin's "pktap" interface: length, kind and link type, then the process that sent or received.
Outcome DecodePktap(Walk& walk, Bytes frame) {
  if (!frame.Has(12)) return frame.Missing(12);
  const uint32_t size = frame.LittleU32(0);
  if (size < 12) return Outcome::kMalformed;
  if (frame.LittleU32(4) != 1) return Outcome::kNotIp;  // 1: a packet follows
  if (!frame.Has(size)) return frame.Missing(size);
  return DecodeInner(walk, frame.LittleU32(8), frame.From(size));
}

// A number for private use, under which old Darwin wrote pktap.
Outcome DecodeUser2(Walk& walk, Bytes frame) {
  const bool is_pktap = frame.Has(12) && frame.LittleU32(0) == 108 && frame.LittleU32(4) == 1;
  return is_pktap ? DecodePktap(walk, frame) : Outcome::kUnknownLinkType;
}

struct LinkType {
  uint16_t number;
  LayerDecoder decode;
};

constexpr LinkType kLinkTypes[] = {
    {0, DecodeLoopback},       // NULL
    {9, DecodePpp},            // PPP
    {10, DecodeFddi},          // FDDI
    {12, DecodeIp},            // raw IP, as libpcap numbers it on most systems
    {14, DecodeIp},            // and on OpenBSD
    {50, DecodePppHdlc},       // PPP_HDLC
    {51, DecodePppoe},         // PPP_ETHER
    {101, DecodeIp},           // RAW
    {104, DecodePppHdlc},      // C_HDLC
    {105, DecodeWifi},         // IEEE802_11
    {108, DecodeLoopback},     // LOOP
    {113, DecodeCooked},       // LINUX_SLL
    {127, DecodeRadiotap},     // IEEE802_11_RADIOTAP
    {129, DecodeArcnet},       // ARCNET_LINUX
    {149, DecodeUser2},        // USER2
    {166, DecodeDirectedPpp},  // PPP_PPPD
    {192, DecodePpi},          // PPI
    {204, DecodeDirectedPpp},  // PPP_WITH_DIR
    {219, DecodeMpls},         // MPLS
    {228, DecodeIp},           // IPV4; writers mix this one up
    {229, DecodeIp},           // with IPV6
    {239, DecodeNflog},        // NFLOG
    {258, DecodePktap},        // PKTAP
    {276, DecodeCooked2},      // LINUX_SLL2
};

}  // namespace

Outcome DecodeLink(Walk& walk, uint16_t link_type, Bytes frame) {
  if (link_type == kEthernet) [[likely]]
    return DecodeEthernet(walk, frame);
  for (const LinkType& row : kLinkTypes) {
    if (row.number == link_type) return row.decode(walk, frame);
  }
  return Outcome::kUnknownLinkType;
}

}  // namespace packet
