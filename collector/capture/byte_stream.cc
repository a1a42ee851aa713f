#include "collector/capture/byte_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "collector/capture/stop.h"

namespace capture {

DescriptorStream::~DescriptorStream() { close(descriptor); }

size_t DescriptorStream::Read(uint8_t* buffer, size_t size) {
  if (error != 0) return 0;
  if (total > 0) {
    size = std::min<uint64_t>(size, total - bytes_read);
  } else if (!WaitForInput(descriptor)) {
    return 0;
  }
  ssize_t count = 0;
  do {
    count = read(descriptor, buffer, size);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    error = errno;
    return 0;
  }
  ended = count == 0;
  bytes_read += static_cast<size_t>(count);
  return static_cast<size_t>(count);
}

std::string DescriptorStream::Damage() const {
  if (error != 0) return std::generic_category().message(error);
  return ended && bytes_read < total ? "the file became shorter while it was read" : "";
}

size_t PrefixedStream::Read(uint8_t* buffer, size_t size) {
  if (delivered == prefix.size()) return stream->Read(buffer, size);
  const size_t count = std::min(size, prefix.size() - delivered);
  std::memcpy(buffer, prefix.data() + delivered, count);
  delivered += count;
  return count;
}

}  // namespace capture
