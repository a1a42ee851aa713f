#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace fuzz {

// Takes an input apart from its front: numbers in network order, texts behind their lengths. Where it has ended,
// everything is zero and empty, so that any bytes are an input.
class Draw {
 public:
  Draw(const uint8_t* data, size_t size) : rest(reinterpret_cast<const char*>(data), size) {}

  bool Empty() const { return rest.empty(); }

  uint8_t U8() { return static_cast<uint8_t>(Number(1)); }
  uint16_t U16() { return static_cast<uint16_t>(Number(2)); }
  uint32_t U32() { return static_cast<uint32_t>(Number(4)); }
  uint64_t U64() { return Number(8); }
  int64_t I64() { return static_cast<int64_t>(Number(8)); }
  bool Flag() { return (U8() & 1) != 0; }

  // At most `size` bytes, as many as there are.
  std::string_view Bytes(size_t size) {
    const std::string_view taken = rest.substr(0, size);
    rest.remove_prefix(taken.size());
    return taken;
  }
  std::string_view Text() { return Bytes(U8()); }       // up to 255 bytes
  std::string_view LongText() { return Bytes(U16()); }  // up to 65535
  std::string_view Rest() { return Bytes(rest.size()); }

 private:
  uint64_t Number(size_t size) {
    uint64_t value = 0;
    for (const char byte : Bytes(size)) value = value << 8 | static_cast<uint8_t>(byte);
    return value;
  }

  std::string_view rest;
};

// What Draw reads, for seeds.
class Write {
 public:
  Write& U8(unsigned value) { return Number(value, 1); }
  Write& U16(unsigned value) { return Number(value, 2); }
  Write& U32(uint32_t value) { return Number(value, 4); }
  Write& U64(uint64_t value) { return Number(value, 8); }
  Write& Text(std::string_view text) { return U8(static_cast<unsigned>(text.size())).Bytes(text); }
  Write& LongText(std::string_view text) { return U16(static_cast<unsigned>(text.size())).Bytes(text); }
  Write& Bytes(std::string_view text) {
    bytes.append(text);
    return *this;
  }

  std::string bytes;

 private:
  Write& Number(uint64_t value, int size) {
    for (int i = size - 1; i >= 0; --i) bytes.push_back(static_cast<char>(value >> 8 * i & 0xff));
    return *this;
  }
};

// A copy in a block of its own with exactly one more byte, which is all that may be read behind captured bytes.
class Captured {
 public:
  explicit Captured(std::string_view bytes) : block(std::make_unique<uint8_t[]>(bytes.size() + 1)) {
    std::copy(bytes.begin(), bytes.end(), block.get());
    block[bytes.size()] = 0xee;
  }
  const uint8_t* data() const { return block.get(); }

 private:
  std::unique_ptr<uint8_t[]> block;
};

}  // namespace fuzz
