#include "collector/packet/layers.h"

namespace packet {
namespace {

// Goes on behind an extension header of this size, with the protocol that its first octet names.
Outcome DecodeBehind(Walk& walk, Bytes header, uint32_t size) {
  if (!header.Has(size)) return header.Missing(size);
  if (!walk.Enter()) return Outcome::kTooDeep;
  return DecodeProtocol(walk, header.U8(0), header.From(size));
}

}  // namespace

Outcome DecodeExtension(Walk& walk, Bytes header) {
  if (!header.Has(2)) return header.Missing(2);
  return DecodeBehind(walk, header, (header.U8(1) + 1U) * 8);  // units of eight octets beyond the first
}

Outcome DecodeAuthentication(Walk& walk, Bytes header) {
  if (!header.Has(2)) return header.Missing(2);
  return DecodeBehind(walk, header, (header.U8(1) + 2U) * 4);  // words of four octets, less two
}

Outcome DecodeFragmentHeader(Walk& walk, Bytes header) {
  if (!header.Has(8)) return header.Missing(8);
  if (!walk.Enter()) return Outcome::kTooDeep;
  const uint16_t field = header.U16(2);
  const uint32_t offset = field & 0xfff8U;
  const bool more = (field & 1) != 0;
  // A whole packet in one "atomic" fragment has nothing to do with any other (RFC 6946).
  if (offset == 0 && !more) return DecodeProtocol(walk, header.U8(0), header.From(8));
  return DecodeFragment(walk, header.U32(4), {offset, more, header.U8(0), header.From(8)});
}

}  // namespace packet
