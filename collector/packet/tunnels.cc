#include "collector/packet/layers.h"

namespace packet {
namespace {

constexpr uint16_t kGreChecksum = 0x8000;
constexpr uint16_t kGreRouting = 0x4000;
constexpr uint16_t kGreKey = 0x2000;
constexpr uint16_t kGreSequence = 0x1000;
constexpr uint16_t kGreAcknowledgement = 0x0080;  // version 1 only
constexpr uint16_t kErspan = 0x88be;

// The size of the header, with the fields that the flags announce.
uint32_t GreHeader(uint16_t flags) {
  uint32_t size = 4;
  for (const uint16_t flag : {kGreChecksum, kGreKey, kGreSequence}) size += (flags & flag) != 0 ? 4 : 0;
  return size;
}

Outcome DecodeGre0(Walk& walk, uint16_t flags, Bytes packet) {
  const uint32_t size = GreHeader(flags);
  if (!packet.Has(size)) return packet.Missing(size);
  const uint32_t key_at = (flags & kGreChecksum) != 0 ? 8 : 4;
  AddTunnel(walk, Tunnel::kGre, (flags & kGreKey) != 0 ? packet.U32(key_at) : 0);
  const uint16_t type = packet.U16(2);
  // The first ERSPAN has no header of its own, and no sequence number to tell it by.
  if (type == kErspan && (flags & kGreSequence) == 0) return DecodeEthernet(walk, packet.From(size));
  return DecodeEtherType(walk, type, packet.From(size));
}

// Enhanced GRE of PPTP (RFC 2637 4.1): the key is payload length and call; a packet without sequence number is an
// acknowledgement without data.
Outcome DecodeGre1(Walk& walk, uint16_t flags, Bytes packet) {
  if ((flags & kGreKey) == 0) return Outcome::kMalformed;
  if ((flags & kGreSequence) == 0) return Outcome::kNotUdpOrTcp;
  const uint32_t size = (flags & kGreAcknowledgement) != 0 ? 16 : 12;
  if (!packet.Has(size)) return packet.Missing(size);
  AddTunnel(walk, Tunnel::kGre, packet.U16(6));
  return DecodeEtherType(walk, packet.U16(2), packet.From(size).First(packet.U16(4)));
}

}  // namespace

Outcome DecodeIpv4InIp(Walk& walk, Bytes packet) {
  AddTunnel(walk, Tunnel::kIpInIp, 0);
  return DecodeIpv4(walk, packet);
}

Outcome DecodeIpv6InIp(Walk& walk, Bytes packet) {
  AddTunnel(walk, walk.datagram->source.version == 4 ? Tunnel::k6in4 : Tunnel::kIpInIp, 0);
  return DecodeIpv6(walk, packet);
}

Outcome DecodeGre(Walk& walk, Bytes packet) {
  if (!packet.Has(4)) return packet.Missing(4);
  const uint16_t flags = packet.U16(0);
  const int version = flags & 7;
  if (version > 1 || (flags & kGreRouting) != 0) return Outcome::kNotUdpOrTcp;  // source routes are RFC 1701's
  return version == 0 ? DecodeGre0(walk, flags, packet) : DecodeGre1(walk, flags, packet);
}

Outcome DecodeErspan2(Walk& walk, Bytes packet) {
  if (!packet.Has(8)) return packet.Missing(8);
  return DecodeEthernet(walk, packet.From(8));
}

Outcome DecodeErspan3(Walk& walk, Bytes packet) {
  if (!packet.Has(12)) return packet.Missing(12);
  const bool has_platform_header = (packet.U8(11) & 1) != 0;
  const uint32_t size = has_platform_header ? 20 : 12;
  if (!packet.Has(size)) return packet.Missing(size);
  const int frame_type = packet.U8(10) >> 2 & 0x1f;  // behind the P bit
  return frame_type == 2 ? DecodeIp(walk, packet.From(size)) : DecodeEthernet(walk, packet.From(size));
}

Outcome DecodeEtherIp(Walk& walk, Bytes packet) {
  if (!packet.Has(2)) return packet.Missing(2);
  if (packet.U8(0) >> 4 != 3) return Outcome::kMalformed;
  AddTunnel(walk, Tunnel::kOther, 0);
  return DecodeEthernet(walk, packet.From(2));
}

Outcome DecodeMplsInIp(Walk& walk, Bytes packet) {
  AddTunnel(walk, Tunnel::kOther, 0);
  return DecodeMpls(walk, packet);
}

}  // namespace packet
