#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "collector/flow/hash.h"
#include "collector/flow/hash_index.h"

namespace output {

// The most frequent keys of an endless stream, in bounded memory: the Space-Saving algorithm (Metwally, Agrawal, El
// Abbadi 2005). Once `capacity` keys are known, a new one takes the place of the least frequent and inherits its
// count. A key that makes up more than 1/capacity of the stream is never missed; a count is at most `error` too
// high.
//
// Each key carries a Payload, which begins anew when the key does.
template <typename Payload>
class HeavyHitters {
 public:
  struct Entry {
    std::string key;
    uint64_t count = 0;
    uint64_t error = 0;
    Payload payload;
    uint32_t hash = 0;  // of the key
  };

  explicit HeavyHitters(size_t most_keys) : capacity(most_keys) {}

  // Counts the key, `times` times, and returns its payload, valid until the next call. `evict` is called with the
  // payload of the entry that makes room, if one has to.
  template <typename Evict>
  Payload* Count(std::string_view key, Evict evict, uint64_t times = 1) {
    const uint32_t hash = HashOf(key);
    const uint32_t known = Locate(key, hash);
    if (known != flow::HashIndex::kNone) return Increment(known, times);
    if (entries.size() < capacity) return Append(key, hash, times);
    return Replace(key, hash, evict, times);
  }
  Payload* CountTimes(std::string_view key, uint64_t times) {
    return Count(
        key, [](const Payload&) {}, times);
  }
  Payload* Count(std::string_view key) { return CountTimes(key, 1); }

  // Null for a key that is not known, or no longer. Valid until the next Count.
  const Entry* Find(std::string_view key) const {
    const uint32_t known = Locate(key, HashOf(key));
    return known == flow::HashIndex::kNone ? nullptr : &entries[known];
  }

  // In no order.
  const std::vector<Entry>& All() const { return entries; }

  // The most frequent ones, the most frequent first; equal counts by key.
  std::vector<const Entry*> Top(size_t most) const {
    return Top(most, [](const Entry& entry) { return entry.count; });
  }

  // Those of which rank(entry) is the largest, and not 0; equal ranks by key.
  template <typename Rank>
  std::vector<const Entry*> Top(size_t most, Rank rank) const {
    std::vector<const Entry*> top;
    for (const Entry& entry : entries) {
      if (rank(entry) > 0) top.push_back(&entry);
    }
    const auto before = [&](const Entry* a, const Entry* b) {
      return rank(*a) != rank(*b) ? rank(*a) > rank(*b) : a->key < b->key;
    };
    const auto end = top.begin() + static_cast<std::ptrdiff_t>(std::min(most, top.size()));
    std::partial_sort(top.begin(), end, top.end(), before);
    top.erase(end, top.end());
    return top;
  }

  size_t size() const { return entries.size(); }
  bool Exact() const { return !ordered; }  // nothing was ever evicted

 private:
  uint32_t HashOf(std::string_view key) const { return flow::Fold(flow::HashText(key, seed)); }
  uint32_t Locate(std::string_view key, uint32_t hash) const {
    return index.Find(hash, [&](uint32_t entry) { return entries[entry].key == key; });
  }

  Payload* Append(std::string_view key, uint32_t hash, uint64_t times) {
    entries.push_back({std::string(key), times, 0, Payload(), hash});
    index.Insert(hash, static_cast<uint32_t>(entries.size() - 1));
    return &entries.back().payload;
  }

  Payload* Increment(size_t at, uint64_t times) {
    entries[at].count += times;
    if (ordered) SiftDown(place[at]);
    return &entries[at].payload;
  }

  template <typename Evict>
  Payload* Replace(std::string_view key, uint32_t hash, Evict evict, uint64_t times) {
    if (!ordered) MakeHeap();
    const uint32_t at = heap.front();
    Entry& entry = entries[at];
    evict(entry.payload);
    index.Erase(entry.hash, at);
    entry.key = key;
    entry.hash = hash;
    entry.error = entry.count;
    entry.count += times;
    entry.payload = Payload();
    index.Insert(hash, at);
    SiftDown(0);
    return &entries[at].payload;
  }

  // The order is only needed once something must go.
  void MakeHeap() {
    ordered = true;
    heap.resize(entries.size());
    place.resize(entries.size());
    for (uint32_t i = 0; i < heap.size(); ++i) heap[i] = place[i] = i;
    for (size_t i = heap.size() / 2; i-- > 0;) SiftDown(i);
  }

  // Restores the heap, least count on top, after the count at this place grew.
  void SiftDown(size_t at) {
    const uint32_t moving = heap[at];
    const uint64_t count = entries[moving].count;
    while (true) {
      size_t child = 2 * at + 1;
      if (child >= heap.size()) break;
      if (child + 1 < heap.size() && CountAt(child + 1) < CountAt(child)) ++child;
      if (CountAt(child) >= count) break;
      Settle(at, heap[child]);
      at = child;
    }
    Settle(at, moving);
  }
  uint64_t CountAt(size_t at) const { return entries[heap[at]].count; }
  void Settle(size_t at, uint32_t entry) {
    heap[at] = entry;
    place[entry] = static_cast<uint32_t>(at);
  }

  size_t capacity;
  bool ordered = false;
  std::vector<Entry> entries;
  std::vector<uint32_t> heap;   // entries, the least frequent first
  std::vector<uint32_t> place;  // of each entry in the heap
  flow::HashIndex index;
  flow::HashSeed seed = flow::ProcessSeed();
};

}  // namespace output
