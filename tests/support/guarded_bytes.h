#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace test {

// Bytes that end where readable memory ends: whoever reads one more dies on the spot, in any build.
class GuardedBytes {
 public:
  explicit GuardedBytes(const std::string& bytes) : size(bytes.size()) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    mapped = (size / page + 2) * page;
    void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("mmap failed");
    start = static_cast<char*>(memory);
    if (mprotect(start + mapped - page, page, PROT_NONE) != 0) throw std::runtime_error("mprotect failed");
    first = start + mapped - page - size;
    std::memcpy(first, bytes.data(), size);
  }
  ~GuardedBytes() { munmap(start, mapped); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  const char* data() const { return first; }
  int length() const { return static_cast<int>(size); }

 private:
  size_t size;
  size_t mapped = 0;
  char* start = nullptr;
  char* first = nullptr;
};

}  // namespace test
