#include "collector/plugin/testdata/allocations.h"

#include <cstdlib>
#include <new>

namespace {

size_t count = 0;

}  // namespace

size_t Allocations() { return count; }

void* operator new(size_t size) {
  ++count;
  void* memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { std::free(memory); }
