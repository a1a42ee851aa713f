#pragma once

#include <algorithm>
#include <cassert>
#include <cstdint>

#include "collector/packet/outcome.h"

namespace packet {

// What is left of a frame, or a part of it that a length field has marked off. A decoder asks Has once for the
// header it is about to read; reading what was not asked for is our own mistake and stops a debug build. Numbers
// are read in network order unless a name says otherwise.
struct Bytes {
  const uint8_t* data = nullptr;
  uint32_t captured = 0;  // bytes present, never more than nominal
  uint32_t nominal = 0;   // bytes by the wire, or by the length fields above

  bool Has(uint32_t size) const { return captured >= size; }

  // Why a header of this size is not there: cut by the capture, or no room for it in what the fields above
  // leave.
  Outcome Missing(uint32_t size) const { return nominal >= size ? Outcome::kTruncated : Outcome::kMalformed; }

  uint8_t U8(uint32_t at) const {
    assert(at < captured);
    return data[at];
  }
  uint16_t U16(uint32_t at) const { return static_cast<uint16_t>(U8(at) << 8 | U8(at + 1)); }
  uint32_t U32(uint32_t at) const { return static_cast<uint32_t>(U16(at)) << 16 | U16(at + 2); }
  uint16_t LittleU16(uint32_t at) const { return static_cast<uint16_t>(U8(at + 1) << 8 | U8(at)); }
  uint32_t LittleU32(uint32_t at) const { return static_cast<uint32_t>(LittleU16(at + 2)) << 16 | LittleU16(at); }

  // What follows the first `size` bytes, which are present.
  Bytes From(uint32_t size) const {
    assert(size <= captured);
    return {data + size, captured - size, nominal - size};
  }

  // At most the first `size` bytes.
  Bytes First(uint32_t size) const { return {data, std::min(captured, size), std::min(nominal, size)}; }

  // `size` bytes by a header's own account, present or not: more than the frame has where it was cut before it
  // was captured.
  Bytes Claiming(uint32_t size) const { return {data, std::min(captured, size), size}; }
};

}  // namespace packet
