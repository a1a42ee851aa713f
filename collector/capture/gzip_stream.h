#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "collector/capture/byte_stream.h"

namespace capture {

// Unpacks gzip (RFC 1952): members one behind the other, zeros behind the last. Before damage it delivers every
// byte that can be had.
class GzipStream final : public ByteStream {
 public:
  explicit GzipStream(std::unique_ptr<ByteStream> packed_stream);
  ~GzipStream() override;
  GzipStream(const GzipStream&) = delete;
  GzipStream& operator=(const GzipStream&) = delete;

  size_t Read(uint8_t* buffer, size_t size) override;
  std::string Damage() const override { return damage; }
  uint64_t BytesRead() const override { return source->BytesRead(); }
  uint64_t BytesTotal() const override { return source->BytesTotal(); }

 private:
  bool HaveInput();
  bool BeginMember();
  void Note(int result);
  void Fail(const std::string& what);

  std::unique_ptr<ByteStream> source;
  std::vector<uint8_t> packed;
  z_stream state{};
  bool in_member = false;
  bool more_output = false;  // the last call filled the whole buffer
  bool ended = false;
  uint64_t members = 0;
  std::string damage;
};

}  // namespace capture
