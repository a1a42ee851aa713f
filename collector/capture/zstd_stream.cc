#include "collector/capture/zstd_stream.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

namespace capture {

ZstdStream::ZstdStream(std::unique_ptr<ByteStream> packed_stream)
    : UnpackingStream(std::move(packed_stream), ZSTD_DStreamInSize()), state(ZSTD_createDStream()) {
  if (state == nullptr) throw std::bad_alloc();
}

ZstdStream::~ZstdStream() { ZSTD_freeDStream(state); }

size_t ZstdStream::Read(uint8_t* buffer, size_t size) {
  while (!Ended()) {
    if (!more_output && !HaveInput()) {
      if (in_frame) {
        Fail("the zstd data are cut off");
      } else {
        End();
      }
      break;
    }
    if (const size_t count = Unpack(buffer, size); count > 0) return count;
  }
  return 0;
}

// On an error the library does not tell how much it had unpacked in the same call. So a call gets at most the rest
// of one block without the header of the next, which its hints include, and nothing while output is waiting.
size_t ZstdStream::Unpack(uint8_t* buffer, size_t size) {
  constexpr size_t kBlockHeader = 3;
  ZSTD_inBuffer in{Input(), more_output ? 0 : std::min(InputSize(), wanted), 0};
  ZSTD_outBuffer out{buffer, size, 0};
  const size_t hint = ZSTD_decompressStream(state, &out, &in);
  Consume(in.pos);
  if (ZSTD_isError(hint) != 0) {
    Fail(std::string("the zstd data are damaged (") + ZSTD_getErrorName(hint) + ")");
    return 0;
  }
  wanted = hint > kBlockHeader ? hint - kBlockHeader : std::max<size_t>(hint, 1);
  in_frame = hint != 0;
  more_output = in_frame && out.pos == out.size;  // behind a frame's end nothing waits
  return out.pos;
}

}  // namespace capture
