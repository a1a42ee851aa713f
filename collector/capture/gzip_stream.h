#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "collector/capture/unpacking_stream.h"

namespace capture {

// Unpacks gzip (RFC 1952): members one behind the other, zeros behind the last. Before damage it delivers every
// byte that can be had.
class GzipStream final : public UnpackingStream {
 public:
  explicit GzipStream(std::unique_ptr<ByteStream> packed_stream);
  ~GzipStream() override;
  GzipStream(const GzipStream&) = delete;
  GzipStream& operator=(const GzipStream&) = delete;

  size_t Read(uint8_t* buffer, size_t size) override;

 private:
  bool BeginMember();
  void Note(int result);

  z_stream state{};
  bool in_member = false;
  bool more_output = false;  // the last call filled the whole buffer
  uint64_t members = 0;
};

}  // namespace capture
