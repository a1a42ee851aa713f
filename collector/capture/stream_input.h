#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/byte_stream.h"

namespace capture {

// The bytes of a capture file, uncompressed, seen through a window that moves from its begin to its end: one buffer
// that is filled again and again, and grows only for what does not fit. It stays in the cache, where the bytes are
// when they are decoded: files are read like pipes, and not mapped.
class StreamInput {
 public:
  explicit StreamInput(std::unique_ptr<ByteStream> byte_stream);

  // The bytes at hand, from the window's begin. At least one readable byte lies behind them. Valid until More.
  std::span<const uint8_t> Bytes() const { return {buffer.data() + begin, end - begin}; }

  // Moves the window's begin over the first `count` bytes at hand.
  void Advance(size_t count) { begin += count; }

  // Waits until more bytes are at hand than before, and makes room for `needed` of them altogether. False when
  // there are no more.
  bool More(size_t needed);

  // Why the bytes end before their time; "" where they do not. Complete once More has returned false.
  std::string Damage() const { return stream->Damage(); }

  // How much of the file was read, in bytes of the file as it is stored; and its size, 0 where it is unknown.
  uint64_t BytesRead() const { return stream->BytesRead(); }
  uint64_t BytesTotal() const { return stream->BytesTotal(); }

 private:
  std::unique_ptr<ByteStream> stream;
  std::vector<uint8_t> buffer;  // one byte more than is ever filled
  size_t begin = 0;
  size_t end = 0;
};

}  // namespace capture
