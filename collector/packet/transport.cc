#include <algorithm>

#include "collector/packet/layers.h"

namespace packet {
namespace {

constexpr uint8_t kTcp = 6;
constexpr uint8_t kUdp = 17;
constexpr uint16_t kDnsPort = 53;

void SetPayload(Datagram* datagram, Bytes payload) {
  datagram->payload = payload.data;
  datagram->captured = payload.captured;
  datagram->nominal = payload.nominal;
}

// The datagram by its own length field. It cannot be longer than the IP packet, unless that packet's end is
// missing. A length of 0 is that of a jumbogram (RFC 2675 4) or of a packet yet to be segmented.
Bytes OwnLength(const Walk& walk, Bytes packet, uint32_t length) {
  if (length == 0) return packet;
  return walk.open_ended ? packet.Claiming(length) : packet.First(length);
}

}  // namespace

Outcome DecodeUdp(Walk& walk, Bytes packet) {
  if (!packet.Has(8)) [[unlikely]]
    return packet.Missing(8);
  const uint16_t length = packet.U16(4);
  if (length < 8 && length != 0) [[unlikely]]
    return Outcome::kMalformed;
  const uint16_t source = packet.U16(0);
  const uint16_t destination = packet.U16(2);
  const Bytes payload = OwnLength(walk, packet, length).From(8);
  Datagram* datagram = walk.datagram;
  datagram->source_port = source;
  datagram->destination_port = destination;
  datagram->transport = kUdp;
  datagram->tcp_flags = 0;
  datagram->tcp_sequence = 0;
  SetPayload(datagram, payload);
  // Clients may well send from a tunnel's port: what has the DNS port is DNS.
  if (source == kDnsPort || destination == kDnsPort) [[likely]]
    return Outcome::kDatagram;
  return DecodeUdpTunnel(walk, payload).value_or(Outcome::kDatagram);
}

Outcome DecodeTcp(Walk& walk, Bytes segment) {
  if (!segment.Has(20)) return segment.Missing(20);
  const uint32_t header = (segment.U8(12) >> 4U) * 4U;
  if (header < 20 || header > segment.nominal) return Outcome::kMalformed;
  Datagram* datagram = walk.datagram;
  datagram->source_port = segment.U16(0);
  datagram->destination_port = segment.U16(2);
  datagram->transport = kTcp;
  datagram->tcp_flags = segment.U8(13);
  datagram->tcp_sequence = segment.U32(4);
  // Options that the capture cut away are no loss: the payload is then cut as a whole.
  const uint32_t skipped = std::min(header, segment.captured);
  SetPayload(datagram, {segment.data + skipped, segment.captured - skipped, segment.nominal - header});
  return Outcome::kDatagram;
}

}  // namespace packet
