#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

// Texts and map entries kept from one message for the next, so that the steady state allocates nothing. What is
// kept is memory only: nobody reads what a text held before.

// Texts that grew beyond this are not kept: one huge message must not hold on to its memory.
inline constexpr size_t kLongestKeptText = 1024;

inline void Recycle(std::string* text) {
  if (text->capacity() > kLongestKeptText) {
    std::string().swap(*text);
  } else {
    text->clear();
  }
}

// Entries taken out of maps of one type, to be put into such maps again.
template <typename Map>
class EntryPool {
 public:
  using Entry = typename Map::node_type;

  explicit EntryPool(size_t most) { spare.reserve(most); }

  // An entry with a key and a value that hold anything.
  Entry Take() {
    if (spare.empty()) {
      Map maker;
      maker.try_emplace(typename Map::key_type{});
      return maker.extract(maker.begin());
    }
    Entry entry = std::move(spare.back());
    spare.pop_back();
    return entry;
  }

  // Keeps the entry, or frees it when enough are kept. Never throws.
  void Give(Entry&& entry) noexcept {
    if (spare.size() < spare.capacity()) {
      spare.push_back(std::move(entry));
    } else {
      Entry freed = std::move(entry);
    }
  }

 private:
  std::vector<Entry> spare;
};
