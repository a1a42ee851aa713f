#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace output {

// The keys with the largest values, each with its largest, exactly: a key that was displaced can only come back
// with a value that displaces another one.
class Largest {
 public:
  explicit Largest(size_t most_keys) : capacity(most_keys) {}

  void Add(std::string_view key, int64_t value) {
    if (entries.size() == capacity && (capacity == 0 || value <= entries.back().value)) return;
    const auto known = std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.key == key; });
    if (known == entries.end()) {
      if (entries.size() == capacity) entries.pop_back();
      Insert({std::string(key), value});
    } else if (value > known->value) {
      entries.erase(known);
      Insert({std::string(key), value});
    }
  }

  struct Entry {
    std::string key;
    int64_t value;
  };
  // The largest first; of equal values, the one seen first.
  const std::vector<Entry>& All() const { return entries; }

 private:
  void Insert(Entry entry) {
    const auto at = std::upper_bound(entries.begin(), entries.end(), entry,
                                     [](const Entry& a, const Entry& b) { return a.value > b.value; });
    entries.insert(at, std::move(entry));
  }

  size_t capacity;
  std::vector<Entry> entries;
};

}  // namespace output
