#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

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
  };

  explicit HeavyHitters(size_t most_keys) : capacity(most_keys) {}

  // Counts the key, `times` times, and returns its payload, valid until the next call. `evict` is called with the
  // payload of the entry that makes room, if one has to.
  template <typename Evict>
  Payload* Count(std::string_view key, Evict evict, uint64_t times = 1) {
    if (const auto known = index.find(key); known != index.end()) return Increment(known->second, times);
    if (entries.size() < capacity) return Append(key, times);
    return Replace(key, evict, times);
  }
  Payload* CountTimes(std::string_view key, uint64_t times) {
    return Count(
        key, [](const Payload&) {}, times);
  }
  Payload* Count(std::string_view key) { return CountTimes(key, 1); }

  // Null for a key that is not known, or no longer. Valid until the next Count.
  const Entry* Find(std::string_view key) const {
    const auto known = index.find(key);
    return known == index.end() ? nullptr : &entries[known->second];
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
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
  };

  Payload* Append(std::string_view key, uint64_t times) {
    index.emplace(key, entries.size());
    entries.push_back({std::string(key), times, 0, Payload()});
    return &entries.back().payload;
  }

  Payload* Increment(size_t at, uint64_t times) {
    entries[at].count += times;
    if (ordered) SiftDown(place[at]);
    return &entries[at].payload;
  }

  template <typename Evict>
  Payload* Replace(std::string_view key, Evict evict, uint64_t times) {
    if (!ordered) MakeHeap();
    const size_t at = heap.front();
    Entry& entry = entries[at];
    evict(entry.payload);
    index.erase(index.find(std::string_view(entry.key)));
    entry.key = key;
    entry.error = entry.count;
    entry.count += times;
    entry.payload = Payload();
    index.emplace(key, at);
    SiftDown(0);
    return &entries[at].payload;
  }

  // The order is only needed once something must go.
  void MakeHeap() {
    ordered = true;
    heap.resize(entries.size());
    place.resize(entries.size());
    for (size_t i = 0; i < heap.size(); ++i) heap[i] = place[i] = i;
    for (size_t i = heap.size() / 2; i-- > 0;) SiftDown(i);
  }

  // Restores the heap, least count on top, after the count at this place grew.
  void SiftDown(size_t at) {
    const size_t moving = heap[at];
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
  void Settle(size_t at, size_t entry) {
    heap[at] = entry;
    place[entry] = at;
  }

  size_t capacity;
  bool ordered = false;
  std::vector<Entry> entries;
  std::vector<size_t> heap;   // entries, the least frequent first
  std::vector<size_t> place;  // of each entry in the heap
  std::unordered_map<std::string, size_t, Hash, std::equal_to<>> index;
};

}  // namespace output
