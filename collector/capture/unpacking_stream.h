#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "collector/capture/byte_stream.h"

namespace capture {

// What the streams that unpack have in common: packed bytes at hand, and what became of them.
class UnpackingStream : public ByteStream {
 public:
  std::string Damage() const final { return damage; }
  uint64_t BytesRead() const final { return source->BytesRead(); }
  uint64_t BytesTotal() const final { return source->BytesTotal(); }

 protected:
  UnpackingStream(std::unique_ptr<ByteStream> packed_stream, size_t window);

  // Whether packed bytes are at hand, fetched from the source where none were left.
  bool HaveInput();
  const uint8_t* Input() const { return packed.data() + at; }
  size_t InputSize() const { return end - at; }
  void Consume(size_t count) { at += count; }

  // The packed bytes ended where they may.
  void End();
  // They did not, and `what` is why, unless the source failed: then that is the reason for whatever is missing.
  void Fail(const std::string& what);
  bool Ended() const { return ended; }

 private:
  std::unique_ptr<ByteStream> source;
  std::vector<uint8_t> packed;
  size_t at = 0;   // in `packed`: the next byte
  size_t end = 0;  // and behind the last
  bool ended = false;
  std::string damage;
};

}  // namespace capture
