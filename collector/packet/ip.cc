#include <cstring>

#include "collector/packet/layers.h"

namespace packet {
namespace {

constexpr uint8_t kTcp = 6;
constexpr uint8_t kUdp = 17;
constexpr uint8_t kNoNextHeader = 59;
constexpr uint32_t kLargestPacket = 65535;
constexpr uint16_t kMoreFragments = 0x2000;
constexpr uint16_t kFragmentOffset = 0x1fff;  // in units of eight octets

// Written where they belong. To put an Address together from parts and copy it as a whole makes the copy wait for
// the parts' stores, which shows on the way of a plain packet.
void SetIpv4(Address* address, const uint8_t* octets) {
  std::memcpy(address->octets.data(), octets, 4);
  std::memset(address->octets.data() + 4, 0, 12);
  address->version = 4;
}

void SetIpv6(Address* address, const uint8_t* octets) {
  std::memcpy(address->octets.data(), octets, 16);
  address->version = 6;
}

struct Protocol {
  uint8_t number;
  bool ipv6_only;
  LayerDecoder decode;
};

constexpr Protocol kProtocols[] = {
    {0, true, DecodeExtension},         // hop-by-hop options
    {4, false, DecodeIpv4InIp},         // IPv4
    {41, false, DecodeIpv6InIp},        // IPv6
    {43, true, DecodeExtension},        // routing
    {44, true, DecodeFragmentHeader},   // fragment
    {47, false, DecodeGre},             // GRE
    {51, false, DecodeAuthentication},  // authentication
    {60, true, DecodeExtension},        // destination options
    {97, false, DecodeEtherIp},         // EtherIP
    {135, true, DecodeExtension},       // mobility
    {137, false, DecodeMplsInIp},       // MPLS
    {139, true, DecodeExtension},       // host identity
    {140, true, DecodeExtension},       // shim6
};

// Kept out of the common path, whose code they would spread.
[[gnu::noinline]] Outcome DecodeOtherProtocol(Walk& walk, uint8_t protocol, Bytes payload) {
  for (const Protocol& row : kProtocols) {
    if (row.number != protocol) continue;
    const bool is_ours = !row.ipv6_only || walk.datagram->source.version == 6;
    return is_ours ? row.decode(walk, payload) : Outcome::kNotUdpOrTcp;
  }
  return Outcome::kNotUdpOrTcp;
}

[[gnu::noinline]] Outcome DecodeIpv4Fragment(Walk& walk, Bytes packet, Bytes payload) {
  const uint16_t field = packet.U16(6);
  const uint32_t offset = (field & kFragmentOffset) * 8U;
  const bool more = (field & kMoreFragments) != 0;
  return DecodeFragment(walk, packet.U16(4), {offset, more, packet.U8(9), payload});
}

}  // namespace

Outcome DecodeIp(Walk& walk, Bytes packet) {
  if (!packet.Has(1)) return packet.Missing(1);
  const int version = packet.U8(0) >> 4;
  if (version == 4) return DecodeIpv4(walk, packet);
  return version == 6 ? DecodeIpv6(walk, packet) : Outcome::kNotIp;
}

Outcome DecodeIpv4(Walk& walk, Bytes packet) {
  if (!packet.Has(20)) [[unlikely]]
    return packet.Missing(20);
  const uint32_t header = (packet.U8(0) & 0x0fU) * 4;
  // A total length of 0 is that of a packet which the network card was yet to segment.
  const uint32_t total = packet.U16(2) != 0 ? packet.U16(2) : packet.nominal;
  if (packet.U8(0) >> 4 != 4 || header < 20 || total < header) [[unlikely]]
    return Outcome::kMalformed;
  if (!packet.Has(header)) [[unlikely]]
    return packet.Missing(header);
  if (!walk.Enter()) [[unlikely]]
    return Outcome::kTooDeep;
  SetIpv4(&walk.datagram->source, packet.data + 12);
  SetIpv4(&walk.datagram->destination, packet.data + 16);
  walk.open_ended = false;
  const Bytes payload = packet.Claiming(total).From(header);
  if ((packet.U16(6) & (kMoreFragments | kFragmentOffset)) != 0) [[unlikely]] {
    return DecodeIpv4Fragment(walk, packet, payload);
  }
  return DecodeProtocol(walk, packet.U8(9), payload);
}

Outcome DecodeIpv6(Walk& walk, Bytes packet) {
  if (!packet.Has(40)) return packet.Missing(40);
  if (packet.U8(0) >> 4 != 6) return Outcome::kMalformed;
  if (!walk.Enter()) return Outcome::kTooDeep;
  const uint8_t next = packet.U8(6);
  // No length, but a payload: a jumbogram (RFC 2675), or a packet that the network card was yet to segment.
  const bool unknown_size = packet.U16(4) == 0 && next != kNoNextHeader;
  const uint32_t size = unknown_size ? packet.nominal - 40 : packet.U16(4);
  SetIpv6(&walk.datagram->source, packet.data + 8);
  SetIpv6(&walk.datagram->destination, packet.data + 24);
  walk.open_ended = false;
  return DecodeProtocol(walk, next, packet.From(40).Claiming(size));
}

Outcome DecodeProtocol(Walk& walk, uint8_t protocol, Bytes payload) {
  if (protocol == kUdp) [[likely]]
    return DecodeUdp(walk, payload);
  return protocol == kTcp ? DecodeTcp(walk, payload) : DecodeOtherProtocol(walk, protocol, payload);
}

Outcome DecodeFragment(Walk& walk, uint32_t id, const Fragment& fragment) {
  const uint32_t size = fragment.bytes.nominal;
  // All but the last hold a multiple of eight bytes, and what they make up must fit an IP packet.
  if (size == 0 || size > kLargestPacket - fragment.offset || (fragment.more && size % 8 != 0)) {
    return Outcome::kMalformed;
  }
  const Datagram& datagram = *walk.datagram;
  const uint8_t protocol = datagram.source.version == 4 ? fragment.protocol : uint8_t{0};
  const FragmentKey key{datagram.source, datagram.destination, id, protocol, datagram.encapsulation};
  Reassembled packet;
  if (!walk.fragments->Add(key, fragment, datagram.time_ns, &packet)) return Outcome::kFragment;
  return DecodeProtocol(walk, packet.protocol, packet.payload);
}

}  // namespace packet
