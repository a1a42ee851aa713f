#include "collector/packet/layers.h"

namespace packet {
namespace {

using MaybeOutcome = std::optional<Outcome>;

// The octet that names what follows, of the generic protocol extension; 0 is plain VXLAN.
MaybeOutcome DecodeVxlanPayload(Walk& walk, uint8_t protocol, Bytes payload) {
  switch (protocol) {
    case 0:
    case 3:
      return DecodeEthernet(walk, payload);
    case 1:
      return DecodeIpv4(walk, payload);
    default:
      return DecodeIpv6(walk, payload);
  }
}

bool FitsVxlan(uint8_t protocol, Bytes payload) {
  if (protocol == 0 || protocol == 3) return LooksLikeEthernet(payload);
  return (protocol == 1 || protocol == 2) && payload.Has(1) && payload.U8(0) >> 4 == (protocol == 1 ? 4 : 6);
}

// VXLAN (RFC 7348 5): the flag of a valid VNI, and that of a group policy, whose number fills two octets, or that
// of the protocol extension. All other bits are zero.
MaybeOutcome DecodeVxlan(Walk& walk, Bytes packet) {
  constexpr uint8_t kGroupPolicy = 0x80, kHasVni = 0x08, kHasProtocol = 0x04;
  if (!packet.Has(8) || packet.U8(7) != 0) return {};
  const uint8_t flags = packet.U8(0);
  const bool has_group = flags == (kGroupPolicy | kHasVni);
  if (!has_group && (flags & ~kHasProtocol) != kHasVni) return {};
  const uint8_t protocol = has_group ? uint8_t{0} : packet.U8(3);
  if (!FitsVxlan(protocol, packet.From(8))) return {};
  AddTunnel(walk, Tunnel::kVxlan, packet.U32(4) >> 8);
  return DecodeVxlanPayload(walk, protocol, packet.From(8));
}

// GENEVE (RFC 8926 3.4): version 0, options in words of four octets, a type field, the VNI, a zero octet.
MaybeOutcome DecodeGeneve(Walk& walk, Bytes packet) {
  if (!packet.Has(8)) return {};
  const uint32_t size = 8 + (packet.U8(0) & 0x3fU) * 4;
  const bool reserved_bits_set = (packet.U8(1) & 0x3f) != 0 || packet.U8(7) != 0;
  if (packet.U8(0) >> 6 != 0 || reserved_bits_set || !packet.Has(size)) return {};
  if (!IsDecodedEtherType(packet.U16(2))) return {};
  AddTunnel(walk, Tunnel::kGeneve, packet.U32(4) >> 8);
  return DecodeEtherType(walk, packet.U16(2), packet.From(size));
}

// What stands before the IPv6 packet: authentication (RFC 4380 5.1.1), then origin indication. Nothing where
// they are cut.
std::optional<Bytes> SkipTeredoHeaders(Bytes packet) {
  if (packet.Has(4) && packet.U16(0) == 0x0001) {
    const uint32_t size = 4U + packet.U8(2) + packet.U8(3) + 9;  // identifier, value, nonce and confirmation
    if (!packet.Has(size)) return {};
    packet = packet.From(size);
  }
  if (packet.Has(8) && packet.U16(0) == 0x0000) packet = packet.From(8);
  return packet;
}

// Teredo (RFC 4380): an IPv6 packet that fills the datagram.
MaybeOutcome DecodeTeredo(Walk& walk, Bytes packet) {
  const auto inner = SkipTeredoHeaders(packet);
  if (!inner || !inner->Has(40) || inner->U8(0) >> 4 != 6) return {};
  if (inner->nominal != 40U + inner->U16(4)) return {};
  AddTunnel(walk, Tunnel::kTeredo, 0);
  return DecodeIpv6(walk, *inner);
}

// The G-PDU's header with its optional fields and extension headers (3GPP TS 29.281 5.1). 0 where it is none.
uint32_t GtpHeader(Bytes packet) {
  if (!packet.Has(8) || packet.U8(0) >> 4 != 3 || packet.U8(1) != 0xff) return 0;
  if ((packet.U8(0) & 7) == 0) return 8;
  if (!packet.Has(12)) return 0;
  uint32_t size = 12;
  const bool has_extensions = (packet.U8(0) & 4) != 0;
  for (uint8_t next = has_extensions ? packet.U8(11) : uint8_t{0}; next != 0; next = packet.U8(size - 1)) {
    if (!packet.Has(size + 1) || packet.U8(size) == 0) return 0;
    size += packet.U8(size) * 4U;
    if (!packet.Has(size)) return 0;
  }
  return size;
}

// GTP-U: an IP packet of a mobile user.
MaybeOutcome DecodeGtp(Walk& walk, Bytes packet) {
  const uint32_t size = GtpHeader(packet);
  if (size == 0) return {};
  const Bytes inner = packet.First(8U + packet.U16(2));
  if (!inner.Has(size + 1)) return {};
  const int version = inner.U8(size) >> 4;
  if (version != 4 && version != 6) return {};
  AddTunnel(walk, Tunnel::kGtp, packet.U32(4));
  return DecodeIp(walk, inner.From(size));
}

struct UdpTunnel {
  uint16_t port;  // of either end: it is the payload that tells
  MaybeOutcome (*decode)(Walk& walk, Bytes packet);
};

constexpr UdpTunnel kUdpTunnels[] = {
    {4789, DecodeVxlan},   // VXLAN
    {8472, DecodeVxlan},   // before that port was registered
    {4790, DecodeVxlan},   // with the protocol extension
    {6081, DecodeGeneve},  // GENEVE
    {3544, DecodeTeredo},  // Teredo
    {2152, DecodeGtp},     // GTP-U
};

}  // namespace

MaybeOutcome DecodeUdpTunnel(Walk& walk, Bytes payload) {
  const uint16_t source = walk.datagram->source_port;
  const uint16_t destination = walk.datagram->destination_port;
  for (const UdpTunnel& row : kUdpTunnels) {
    if (row.port == destination || row.port == source) return row.decode(walk, payload);
  }
  return {};
}

}  // namespace packet
