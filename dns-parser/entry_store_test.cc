#include "dns-parser/entry_store.h"

#include <doctest/doctest.h>
#include <linux/mman.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

// Where the entries of the open-query table live.

namespace {

constexpr size_t kEntry = 150;          // takes three cache lines
constexpr size_t kManyEntries = 25000;  // of several large pages

std::vector<void*> TakeMany(EntryStore* store, size_t count) {
  std::vector<void*> entries(count);
  std::generate(entries.begin(), entries.end(), [&] { return store->Take(); });
  return entries;
}

void GiveAll(EntryStore* store, const std::vector<void*>& entries) {
  for (void* entry : entries) store->Give(entry);
}

}  // namespace

TEST_CASE("every entry begins a cache line of its own") {
  EntryStore store(kEntry);
  const std::vector<void*> entries = TakeMany(&store, 1000);
  for (void* entry : entries) CHECK(reinterpret_cast<uintptr_t>(entry) % 64 == 0);
  GiveAll(&store, entries);
}

TEST_CASE("entries keep what is written to them, whatever is taken and given back around them") {
  EntryStore store(kEntry);
  std::vector<void*> entries = TakeMany(&store, kManyEntries);
  CHECK(std::set(entries.begin(), entries.end()).size() == kManyEntries);
  for (size_t i = 0; i < kManyEntries; ++i) std::memset(entries[i], static_cast<int>(i % 251), kEntry);
  for (size_t i = 0; i < kManyEntries; i += 3) store.Give(entries[i]);
  for (size_t i = 0; i < kManyEntries; i += 3) {
    entries[i] = store.Take();
    std::memset(entries[i], static_cast<int>(i % 251), kEntry);
  }
  size_t changed = 0;
  for (size_t i = 0; i < kManyEntries; ++i) {
    const auto* bytes = static_cast<const unsigned char*>(entries[i]);
    if (std::any_of(bytes, bytes + kEntry, [&](unsigned char byte) { return byte != i % 251; })) ++changed;
  }
  CHECK(changed == 0);
  GiveAll(&store, entries);
}

#if !defined(DNSPAIR_SANITIZE)  // where entries are blocks of the heap

namespace {

constexpr size_t kLargePage = 2 << 20;

// How much of the large page around an entry is in memory; -1 where nothing is mapped any more.
long Resident(const void* entry) {
  const auto small_page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t page = reinterpret_cast<uintptr_t>(entry) / kLargePage * kLargePage;
  std::vector<unsigned char> present(kLargePage / small_page);
  if (mincore(reinterpret_cast<void*>(page), kLargePage, present.data()) != 0) return -1;
  return std::count_if(present.begin(), present.end(), [](unsigned char bits) { return (bits & 1) != 0; }) *
         static_cast<long>(small_page);
}

bool MakesLargePages() {
  void* page = std::aligned_alloc(kLargePage, kLargePage);
  std::memset(page, 1, 1);
  const bool made = madvise(page, kLargePage, MADV_HUGEPAGE) == 0 && madvise(page, kLargePage, MADV_COLLAPSE) == 0;
  std::free(page);
  return made;
}

}  // namespace

TEST_CASE("the entry given back last is the next one taken") {
  EntryStore store(kEntry);
  const std::vector<void*> entries = TakeMany(&store, 3);
  store.Give(entries[2]);
  store.Give(entries[0]);
  CHECK(store.Take() == entries[0]);
  CHECK(store.Take() == entries[2]);
  GiveAll(&store, entries);
}

TEST_CASE("a few entries take little memory") {
  EntryStore store(kEntry);
  const std::vector<void*> entries = TakeMany(&store, 100);
  for (void* entry : entries) std::memset(entry, 1, kEntry);
  CHECK(Resident(entries[0]) >= static_cast<long>(100 * kEntry));
  CHECK(Resident(entries[0]) <= 65536);
  GiveAll(&store, entries);
}

TEST_CASE("entries take no more than half their size on top, however many there are") {
  constexpr size_t kTaken = 192;  // of three cache lines
  for (const size_t count : std::vector<size_t>{1000, 5000, 6000, 8000, 8192, 10'000}) {
    CAPTURE(count);
    EntryStore store(kEntry);
    const std::vector<void*> entries = TakeMany(&store, count);
    for (void* entry : entries) std::memset(entry, 1, kEntry);
    CHECK(Resident(entries[0]) <= static_cast<long>(count * kTaken * 3 / 2));
    GiveAll(&store, entries);
  }
}

TEST_CASE("a page that is well used becomes a large one") {
  if (!MakesLargePages()) {
    MESSAGE("skipped: this kernel makes no large pages when it is asked to");
    return;
  }
  EntryStore store(kEntry);
  const std::vector<void*> entries = TakeMany(&store, 9000);
  CHECK(Resident(entries[0]) == static_cast<long>(kLargePage));
  GiveAll(&store, entries);
}

TEST_CASE("what many entries took is given back with the last of them") {
  EntryStore store(kEntry);
  const std::vector<void*> entries = TakeMany(&store, kManyEntries);
  for (size_t i = 1; i < kManyEntries; ++i) store.Give(entries[i]);
  CHECK(Resident(entries.front()) > 0);
  CHECK(Resident(entries.back()) > 0);
  store.Give(entries[0]);
  CHECK(Resident(entries.front()) == -1);
  CHECK(Resident(entries.back()) == -1);
}

TEST_CASE("a store that gave everything back begins anew") {
  EntryStore store(kEntry);
  for (int round = 0; round < 3; ++round) {
    const std::vector<void*> entries = TakeMany(&store, kManyEntries);
    for (void* entry : entries) std::memset(entry, round, kEntry);
    GiveAll(&store, entries);
  }
  store.Give(store.Take());
}

TEST_CASE("without address space an entry cannot be had, and those at hand stay good") {
  const pid_t child = fork();
  if (child == 0) {
    EntryStore store(kEntry);
    void* first = store.Take();
    const rlimit none{0, 0};
    setrlimit(RLIMIT_AS, &none);
    size_t more = 0;
    try {
      for (;;) {
        std::memset(store.Take(), 1, kEntry);
        ++more;
      }
    } catch (const std::bad_alloc&) {
      std::memset(first, 1, kEntry);
      store.Give(first);
      _exit(more > 1000 && store.Take() == first ? 0 : 1);
    }
  }
  int status = 0;
  REQUIRE(waitpid(child, &status, 0) == child);
  CHECK(status == 0);
}

#endif
