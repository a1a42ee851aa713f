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
  if (error != 0 || !WaitForInput(descriptor)) return 0;
  ssize_t count = 0;
  do {
    count = read(descriptor, buffer, size);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    error = errno;
    return 0;
  }
  bytes_read += static_cast<size_t>(count);
  return static_cast<size_t>(count);
}

std::string DescriptorStream::Damage() const {
  return error == 0 ? std::string() : std::generic_category().message(error);
}

size_t PrefixedStream::Read(uint8_t* buffer, size_t size) {
  if (delivered == prefix.size()) return stream->Read(buffer, size);
  const size_t count = std::min(size, prefix.size() - delivered);
  std::memcpy(buffer, prefix.data() + delivered, count);
  delivered += count;
  return count;
}

}  // namespace capture
