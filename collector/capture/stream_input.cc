#include "collector/capture/stream_input.h"

#include <cstring>
#include <utility>

namespace capture {
namespace {

constexpr size_t kBufferBytes = 262144;

}  // namespace

StreamInput::StreamInput(std::unique_ptr<ByteStream> byte_stream)
    : stream(std::move(byte_stream)), buffer(kBufferBytes + 1) {}

bool StreamInput::More(size_t needed) {
  if (begin > 0) std::memmove(buffer.data(), buffer.data() + begin, end - begin);
  end -= begin;
  begin = 0;
  if (buffer.size() < needed + 1) buffer.resize(needed + 1);
  const size_t room = buffer.size() - 1 - end;
  const size_t count = stream->Read(buffer.data() + end, room);
  end += count;
  return count > 0;
}

}  // namespace capture
