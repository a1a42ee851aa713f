#include "tests/faults/allocations.h"

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

long live = 0;
size_t live_bytes = 0;
long made = 0;
long failing = 0;
int spared = 0;

}  // namespace

namespace faults {

long LiveBlocks() { return live; }

size_t LiveBytes() { return live_bytes; }

void FailAllocation(long nth) {
  made = 0;
  failing = nth;
}

long Allocations() { return made; }

Spared::Spared() { ++spared; }
Spared::~Spared() { --spared; }

}  // namespace faults

void* operator new(size_t size) {
  if (spared == 0 && ++made == failing) throw std::bad_alloc();
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++live;
  live_bytes += malloc_usable_size(block);
  return block;
}

void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  --live;
  live_bytes -= malloc_usable_size(block);
  std::free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept { operator delete(block); }
