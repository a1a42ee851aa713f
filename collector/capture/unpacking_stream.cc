#include "collector/capture/unpacking_stream.h"

#include <utility>

namespace capture {

UnpackingStream::UnpackingStream(std::unique_ptr<ByteStream> packed_stream, size_t window)
    : source(std::move(packed_stream)), packed(window) {}

bool UnpackingStream::HaveInput() {
  if (at < end) return true;
  at = 0;
  end = source->Read(packed.data(), packed.size());
  return end > 0;
}

void UnpackingStream::End() {
  damage = source->Damage();
  ended = true;
}

void UnpackingStream::Fail(const std::string& what) {
  End();
  if (damage.empty()) damage = what;
}

}  // namespace capture
