#include "collector/capture/gzip_stream.h"

#include <algorithm>
#include <limits>
#include <new>
#include <string>
#include <utility>

namespace capture {

namespace {
constexpr size_t kWindow = 65536;
}

GzipStream::GzipStream(std::unique_ptr<ByteStream> packed_stream)
    : UnpackingStream(std::move(packed_stream), kWindow) {
  constexpr int kGzipOnly = 16;
  if (inflateInit2(&state, MAX_WBITS + kGzipOnly) != Z_OK) throw std::bad_alloc();
}

GzipStream::~GzipStream() { inflateEnd(&state); }

size_t GzipStream::Read(uint8_t* buffer, size_t size) {
  const auto room = static_cast<uInt>(std::min<size_t>(size, std::numeric_limits<uInt>::max()));
  while (!Ended()) {
    if (!in_member && !BeginMember()) break;
    if (!more_output && !HaveInput()) {
      Fail("the gzip data are cut off");
      break;
    }
    state.next_in = Input();
    state.avail_in = static_cast<uInt>(InputSize());
    state.next_out = buffer;
    state.avail_out = room;
    const int result = inflate(&state, Z_NO_FLUSH);
    Consume(InputSize() - state.avail_in);
    more_output = state.avail_out == 0;
    Note(result);
    if (const uInt count = room - state.avail_out; count > 0) return count;
  }
  return 0;
}

// Zeros may follow the last member: tapes and block devices fill up with them.
bool GzipStream::BeginMember() {
  constexpr uint8_t kFirstMagic = 0x1f;
  while (HaveInput()) {
    const uint8_t first = *Input();
    if (first == kFirstMagic || members == 0) {
      in_member = inflateReset(&state) == Z_OK;
      ++members;
      return in_member;
    }
    if (first != 0) {
      Fail("something else stands behind the gzip data");
      return false;
    }
    Consume(1);
  }
  End();
  return false;
}

void GzipStream::Note(int result) {
  if (result == Z_STREAM_END) {
    in_member = false;
    more_output = false;
  } else if (result != Z_OK && result != Z_BUF_ERROR) {  // Z_BUF_ERROR: there was nothing left to put out
    Fail(std::string("the gzip data are damaged (") + (state.msg != nullptr ? state.msg : zError(result)) + ")");
  }
}

}  // namespace capture
