#include "dns-parser/entry_store.h"

#include <linux/mman.h>  // MADV_COLLAPSE
#include <sys/mman.h>

#include <cstdint>
#include <utility>

#if defined(DNSPAIR_SANITIZE)

// A sanitizer watches blocks of the heap, each by itself.
void* EntryStore::Take() { return ::operator new (entry_size, std::align_val_t{kCacheLine}); }
void EntryStore::Give(void* entry) noexcept { ::operator delete (entry, std::align_val_t{kCacheLine}); }

#else

namespace {

constexpr size_t kLargePage = 2 << 20;
constexpr size_t kWellUsed = kLargePage / 4 * 3;  // made large sooner, few queries would take two megabytes

// Address space for one large page, at a multiple of its size. What is not touched takes no memory.
void* Reserve() {
  void* memory = mmap(nullptr, 2 * kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  const size_t before = -reinterpret_cast<uintptr_t>(memory) % kLargePage;
  char* aligned = static_cast<char*>(memory) + before;
  if (before > 0) munmap(memory, before);
  munmap(aligned + kLargePage, kLargePage - before);
  return aligned;
}

// Advice: where the kernel does not take it, only speed is lost.
void MakeLarge(void* page) {
  madvise(page, kLargePage, MADV_HUGEPAGE);
  madvise(page, kLargePage, MADV_COLLAPSE);
}

}  // namespace

void* EntryStore::Take() {
  void* entry = spare != nullptr ? std::exchange(spare, spare->next) : TakeFresh();
  ++taken;
  return entry;
}

void EntryStore::Give(void* entry) noexcept {
  spare = new (entry) Spare{spare};
  if (--taken == 0) ReleaseAll();
}

void* EntryStore::TakeFresh() {
  if (page == nullptr || used_of_page + entry_size > kLargePage) AddPage();
  void* entry = reinterpret_cast<char*>(page) + used_of_page;
  const bool was_well_used = used_of_page >= kWellUsed;
  used_of_page += entry_size;
  if (!was_well_used && used_of_page >= kWellUsed) MakeLarge(page);
  return entry;
}

void EntryStore::AddPage() {
  page = new (Reserve()) Page{page};
  used_of_page = kCacheLine;
}

void EntryStore::ReleaseAll() noexcept {
  while (page != nullptr) munmap(std::exchange(page, page->previous), kLargePage);
  spare = nullptr;
}

#endif
