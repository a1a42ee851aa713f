#pragma once

#include <zstd.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "collector/capture/unpacking_stream.h"

namespace capture {

// Unpacks zstd (RFC 8878): frames one behind the other, skippable ones among them. Before damage it delivers every
// byte of the undamaged blocks.
class ZstdStream final : public UnpackingStream {
 public:
  explicit ZstdStream(std::unique_ptr<ByteStream> packed_stream);
  ~ZstdStream() override;
  ZstdStream(const ZstdStream&) = delete;
  ZstdStream& operator=(const ZstdStream&) = delete;

  size_t Read(uint8_t* buffer, size_t size) override;

 private:
  size_t Unpack(uint8_t* buffer, size_t size);

  ZSTD_DStream* state;
  size_t wanted = 1;         // packed bytes for the next step
  bool in_frame = false;     // a frame has begun and not ended
  bool more_output = false;  // the last call filled the whole buffer
};

}  // namespace capture
