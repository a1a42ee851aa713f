#pragma once

#include <cstdint>
#include <cstring>

namespace capture {

// Integers of a file in either byte order, at any alignment. `swapped`: the file's order is not this machine's.
inline uint16_t Load16(const uint8_t* at, bool swapped) {
  uint16_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return swapped ? __builtin_bswap16(value) : value;
}

inline uint32_t Load32(const uint8_t* at, bool swapped) {
  uint32_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return swapped ? __builtin_bswap32(value) : value;
}

inline uint64_t Load64(const uint8_t* at, bool swapped) {
  uint64_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return swapped ? __builtin_bswap64(value) : value;
}

}  // namespace capture
