#pragma once

#include <cstddef>

namespace capture {

// Keeps the process alive when a page of mapped memory cannot be read, because the file behind it has become
// shorter or the disk fails: the page then reads as zeros, and the guard knows where. Other faults go to the
// handler that was there before.
class BusGuard {
 public:
  static constexpr size_t kNoFault = static_cast<size_t>(-1);

  // Guards mapped memory, which must outlive the guard.
  BusGuard(const void* memory, size_t size);
  ~BusGuard();
  BusGuard(const BusGuard&) = delete;
  BusGuard& operator=(const BusGuard&) = delete;

  // Where in the memory the first page begins that could not be read.
  size_t FirstFault() const;

  struct Region;

 private:
  Region* region;
};

}  // namespace capture
