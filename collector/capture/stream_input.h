#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/byte_stream.h"
#include "collector/capture/input.h"

namespace capture {

// A window over a stream: one buffer that is filled again and again, and grows only for what does not fit.
class StreamInput final : public Input {
 public:
  explicit StreamInput(std::unique_ptr<ByteStream> byte_stream);

  std::span<const uint8_t> Bytes() const override { return {buffer.data() + begin, end - begin}; }
  void Advance(size_t count) override { begin += count; }
  bool More(size_t needed) override;
  std::string Damage() const override { return stream->Damage(); }
  uint64_t BytesRead() const override { return stream->BytesRead(); }
  uint64_t BytesTotal() const override { return stream->BytesTotal(); }

 private:
  std::unique_ptr<ByteStream> stream;
  std::vector<uint8_t> buffer;  // one byte more than is ever filled
  size_t begin = 0;
  size_t end = 0;
};

}  // namespace capture
