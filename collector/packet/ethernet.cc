#include "collector/packet/layers.h"

namespace packet {
namespace {

constexpr uint16_t kIpv4Type = 0x0800;
constexpr uint16_t kLargestLength = 1500;  // a type field up to this is a length (IEEE 802.3 3.2.6)

// IEEE 802.1Q: priority and identifier, then the type field of what was tagged.
Outcome DecodeVlan(Walk& walk, Bytes tag) {
  if (!tag.Has(4)) return tag.Missing(4);
  Encapsulation& encapsulation = walk.datagram->encapsulation;
  if (encapsulation.vlan_count < Encapsulation::kMaxTags) {
    encapsulation.vlan[encapsulation.vlan_count++] = tag.U16(0) & 0x0fff;
  }
  const uint16_t type = tag.U16(2);
  return type <= kLargestLength ? DecodeLlc(walk, tag.From(4).First(type))
                                : DecodeEtherType(walk, type, tag.From(4));
}

struct EtherType {
  uint16_t type;
  LayerDecoder decode;
};

constexpr EtherType kEtherTypes[] = {
    {kIpv4Type, DecodeIpv4},   // IPv4
    {0x86dd, DecodeIpv6},      // IPv6
    {0x8100, DecodeVlan},      // customer tag
    {0x88a8, DecodeVlan},      // service tag
    {0x9100, DecodeVlan},      // QinQ before the standard
    {0x9200, DecodeVlan},      // likewise
    {0x8864, DecodePppoe},     // session stage
    {0x8847, DecodeMpls},      // unicast
    {0x8848, DecodeMpls},      // multicast, or upstream-assigned
    {0x6558, DecodeEthernet},  // transparent Ethernet bridging, in tunnels
    {0x880b, DecodePpp},       // in GRE
    {0x88be, DecodeErspan2},   // in GRE
    {0x22eb, DecodeErspan3},   // in GRE
};

}  // namespace

Outcome DecodeEthernet(Walk& walk, Bytes frame) {
  if (!frame.Has(14)) [[unlikely]]
    return frame.Missing(14);
  const uint16_t type = frame.U16(12);
  if (type == kIpv4Type) [[likely]]
    return DecodeIpv4(walk, frame.From(14));
  // A short frame's padding is none of the LLC packet's.
  if (type <= kLargestLength) return DecodeLlc(walk, frame.From(14).First(type));
  return DecodeEtherType(walk, type, frame.From(14));
}

Outcome DecodeEtherType(Walk& walk, uint16_t type, Bytes payload) {
  if (!walk.Enter()) return Outcome::kTooDeep;
  for (const EtherType& row : kEtherTypes) {
    if (row.type == type) return row.decode(walk, payload);
  }
  return Outcome::kNotIp;
}

bool IsDecodedEtherType(uint16_t type) {
  for (const EtherType& row : kEtherTypes) {
    if (row.type == type) return true;
  }
  return false;
}

bool LooksLikeEthernet(Bytes frame) { return frame.Has(14) && IsDecodedEtherType(frame.U16(12)); }

Outcome DecodeLlc(Walk& walk, Bytes frame) {
  if (!frame.Has(3)) return frame.Missing(3);
  const uint16_t access_points = frame.U16(0);
  if (frame.U8(2) != 0x03) return Outcome::kNotIp;  // not an unnumbered information frame
  if (access_points == 0x0606) return DecodeIpv4(walk, frame.From(3));
  if (access_points != 0xaaaa) return Outcome::kNotIp;
  if (!frame.Has(8)) return frame.Missing(8);
  const uint32_t organisation = frame.U32(2) & 0xffffff;
  const bool carries_ether_type = organisation == 0 || organisation == 0x0000f8;  // RFC 1042, IEEE 802.1H
  return carries_ether_type ? DecodeEtherType(walk, frame.U16(6), frame.From(8)) : Outcome::kNotIp;
}

}  // namespace packet
