#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "tests/support/captured.h"

// For tests of streams that unpack.
namespace test {

struct Unpacked {
  std::string bytes;
  std::string damage;
};

// All that a stream of this type makes of `packed`, which arrives in pieces of `piece` bytes and is read `room`
// bytes at a time.
template <typename Stream>
Unpacked Unpack(const std::string& packed, size_t piece, size_t room, const std::string& source_damage) {
  auto source = std::make_unique<PiecewiseStream>(packed, piece);
  source->damage = source_damage;
  Stream stream(std::move(source));
  Unpacked unpacked;
  std::string buffer(room, '\0');
  while (const size_t count = stream.Read(reinterpret_cast<uint8_t*>(buffer.data()), buffer.size())) {
    unpacked.bytes.append(buffer, 0, count);
  }
  unpacked.damage = stream.Damage();
  return unpacked;
}

// Half noise, half not: compresses to about a half.
inline std::string Sample(size_t size) {
  std::string text;
  uint32_t noise = 1;
  while (text.size() < size) {
    noise = noise * 1664525 + 1013904223;
    text.push_back(static_cast<char>(noise >> 24));
    text.push_back('x');
  }
  return text;
}

}  // namespace test
