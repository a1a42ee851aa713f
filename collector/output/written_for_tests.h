#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

#include "collector/output/buffer.h"

namespace output {

// What `write` puts into the buffer that it is given.
template <typename Write>
std::string WrittenBy(Write write) {
  std::FILE* file = std::tmpfile();
  Buffer buffer(fileno(file), "test");
  write(&buffer);
  buffer.Close();
  std::string written(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
  const ssize_t got = pread(fileno(file), written.data(), written.size(), 0);
  std::fclose(file);
  written.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return written;
}

}  // namespace output
