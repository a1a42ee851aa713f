// A library to be preloaded into a program: the allocation by operator new whose number stands in the environment
// (1 is the first) fails, and no other.

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> made = 0;

long Failing() {
  static const long number = [] {
    const char* text = std::getenv("FAIL_ALLOCATION");
    return text == nullptr ? 0L : std::atol(text);
  }();
  return number;
}

}  // namespace

__attribute__((visibility("default"))) void* operator new(size_t size) {
  if (++made == Failing()) throw std::bad_alloc();
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

__attribute__((visibility("default"))) void operator delete(void* block) noexcept { std::free(block); }
__attribute__((visibility("default"))) void operator delete(void* block, size_t) noexcept { std::free(block); }
