#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace flow {

// A list of entry numbers, oldest first, from which any entry leaves in constant time. The links stand in an array
// of their own: to unlink an entry, its neighbours need not come into the cache.
class IndexList {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFF;

  bool empty() const { return first == kNone; }

  // kNone when the list is empty.
  uint32_t front() const { return first; }

  bool Contains(uint32_t entry) const { return entry < links.size() && links[entry].previous != kAbsent; }

  // The entry must not be in the list.
  void PushBack(uint32_t entry) {
    if (entry >= links.size()) links.resize(size_t{entry} + 1);
    links[entry] = {last, kNone};
    (last == kNone ? first : links[last].next) = entry;
    last = entry;
  }

  // No effect when the entry is not in the list.
  void Remove(uint32_t entry) {
    if (!Contains(entry)) return;
    const Link link = links[entry];
    (link.previous == kNone ? first : links[link.previous].next) = link.next;
    (link.next == kNone ? last : links[link.next].previous) = link.previous;
    links[entry] = Link{};
  }

  // To the newest end, from wherever it is.
  void MoveToBack(uint32_t entry) {
    if (last == entry) return;
    Remove(entry);
    PushBack(entry);
  }

 private:
  static constexpr uint32_t kAbsent = 0xFFFFFFFE;

  struct Link {
    uint32_t previous = kAbsent;
    uint32_t next = kNone;
  };

  std::vector<Link> links;
  uint32_t first = kNone;
  uint32_t last = kNone;
};

}  // namespace flow
