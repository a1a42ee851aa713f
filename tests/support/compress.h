#pragma once

#include <zlib.h>
#include <zstd.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace test {

// One gzip member.
inline std::string Gzip(std::string_view bytes, int level = 6) {
  z_stream stream{};
  constexpr int kGzipHeader = 16;
  if (deflateInit2(&stream, level, Z_DEFLATED, 15 + kGzipHeader, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("no deflate");
  }
  std::string input(bytes);
  std::string packed(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate failed");
  return packed;
}

// One zstd frame, with a checksum.
inline std::string Zstd(std::string_view bytes, int level = 3) {
  std::string packed(ZSTD_compressBound(bytes.size()), '\0');
  ZSTD_CCtx* context = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, level);
  ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
  const size_t size = ZSTD_compress2(context, packed.data(), packed.size(), bytes.data(), bytes.size());
  ZSTD_freeCCtx(context);
  if (ZSTD_isError(size)) throw std::runtime_error(ZSTD_getErrorName(size));
  packed.resize(size);
  return packed;
}

}  // namespace test
