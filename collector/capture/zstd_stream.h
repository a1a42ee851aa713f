#pragma once

#include <zstd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "collector/capture/byte_stream.h"

namespace capture {

// Unpacks zstd (RFC 8878): frames one behind the other, skippable ones among them. Before damage it delivers every
// byte of the undamaged blocks.
class ZstdStream final : public ByteStream {
 public:
  explicit ZstdStream(std::unique_ptr<ByteStream> packed_stream);
  ~ZstdStream() override;
  ZstdStream(const ZstdStream&) = delete;
  ZstdStream& operator=(const ZstdStream&) = delete;

  size_t Read(uint8_t* buffer, size_t size) override;
  std::string Damage() const override { return damage; }
  uint64_t BytesRead() const override { return source->BytesRead(); }
  uint64_t BytesTotal() const override { return source->BytesTotal(); }

 private:
  bool HaveInput();
  size_t Unpack(uint8_t* buffer, size_t size);
  void Fail(const std::string& what);

  std::unique_ptr<ByteStream> source;
  std::vector<uint8_t> packed;
  size_t at = 0;   // in `packed`: the next byte
  size_t end = 0;  // and behind the last
  ZSTD_DStream* state;
  size_t wanted = 1;         // packed bytes for the next step
  bool in_frame = false;     // a frame has begun and not ended
  bool more_output = false;  // the last call filled the whole buffer
  bool ended = false;
  std::string damage;
};

}  // namespace capture
