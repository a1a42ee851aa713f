#include "collector/packet/layers.h"

namespace packet {
namespace {

// A label does not tell what it labels. IP shows in the first four bits; an Ethernet pseudowire has a control
// word of zero bits in front, or nothing.
Outcome DecodeLabelled(Walk& walk, Bytes packet) {
  if (!packet.Has(1)) return packet.Missing(1);
  const int version = packet.U8(0) >> 4;
  if (version == 4) return DecodeIpv4(walk, packet);
  if (version == 6) return DecodeIpv6(walk, packet);
  if (version == 0 && packet.Has(4) && LooksLikeEthernet(packet.From(4))) {
    return DecodeEthernet(walk, packet.From(4));
  }
  return LooksLikeEthernet(packet) ? DecodeEthernet(walk, packet) : Outcome::kNotIp;
}

}  // namespace

Outcome DecodeMpls(Walk& walk, Bytes label_stack) {
  for (bool bottom = false; !bottom; label_stack = label_stack.From(4)) {
    if (!label_stack.Has(4)) return label_stack.Missing(4);
    if (!walk.Enter()) return Outcome::kTooDeep;
    bottom = (label_stack.U8(2) & 1) != 0;
  }
  return DecodeLabelled(walk, label_stack);
}

}  // namespace packet
