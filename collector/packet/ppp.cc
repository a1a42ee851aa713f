#include "collector/packet/layers.h"

namespace packet {
namespace {

struct PppProtocol {
  uint16_t number;
  LayerDecoder decode;
};

constexpr PppProtocol kPppProtocols[] = {
    {0x0021, DecodeIpv4}, {0x0057, DecodeIpv6}, {0x0281, DecodeMpls}, {0x0283, DecodeMpls}};

Outcome DecodePppProtocol(Walk& walk, uint16_t number, Bytes payload) {
  for (const PppProtocol& row : kPppProtocols) {
    if (row.number == number) return row.decode(walk, payload);
  }
  return Outcome::kNotIp;
}

}  // namespace

Outcome DecodePpp(Walk& walk, Bytes frame) {
  if (frame.Has(2) && frame.U16(0) == 0xff03) frame = frame.From(2);
  if (!frame.Has(1)) return frame.Missing(1);
  // A number of one octet is odd; the first of two is even (RFC 1661 2).
  if (frame.U8(0) & 1) return DecodePppProtocol(walk, frame.U8(0), frame.From(1));
  if (!frame.Has(2)) return frame.Missing(2);
  return DecodePppProtocol(walk, frame.U16(0), frame.From(2));
}

Outcome DecodePppoe(Walk& walk, Bytes frame) {
  if (!frame.Has(6)) return frame.Missing(6);
  if (frame.U8(0) != 0x11) return Outcome::kMalformed;  // version 1, type 1
  if (frame.U8(1) != 0) return Outcome::kNotIp;         // only code 0 carries data
  return DecodePpp(walk, frame.From(6).First(frame.U16(4)));
}

Outcome DecodePppHdlc(Walk& walk, Bytes frame) {
  if (!frame.Has(4)) return frame.Missing(4);
  const bool cisco = frame.U8(0) == 0x0f || frame.U8(0) == 0x8f;  // RFC 1547 4.3.1: unicast or multicast
  return cisco ? DecodeEtherType(walk, frame.U16(2), frame.From(4)) : DecodePpp(walk, frame);
}

}  // namespace packet
