#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

namespace test {

// A file with these bytes, removed at the end of its life.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view bytes = {}) : path("/tmp/dnspair-test-XXXXXX") {
    const int fd = mkstemp(path.data());
    if (fd < 0) throw std::runtime_error("no temporary file");
    close(fd);
    Write(bytes);
  }
  ~TemporaryFile() { unlink(path.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Replaces what the file holds.
  void Write(std::string_view bytes) const {
    FILE* file = fopen(path.c_str(), "wb");
    if (file == nullptr) throw std::runtime_error("cannot write " + path);
    const size_t written = bytes.empty() ? 0 : fwrite(bytes.data(), 1, bytes.size(), file);
    if (fclose(file) != 0 || written != bytes.size()) throw std::runtime_error("cannot write " + path);
  }

  std::string path;
};

}  // namespace test
