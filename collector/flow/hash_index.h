#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace flow {

// Finds the numbers of entries that live elsewhere by a hash of their keys. Open addressing with linear probing
// over slots of eight bytes, so that a look-up is one cache miss; no tombstones. Grows by doubling, never shrinks.
class HashIndex {
 public:
  static constexpr uint32_t kNone = 0xFFFFFFFF;

  HashIndex() : slots(kSmallest) {}

  // The entry under this hash that `matches` accepts, or kNone. `matches` is asked only about entries with
  // exactly this hash.
  template <typename Matches>
  uint32_t Find(uint32_t hash, Matches&& matches) const {
    for (size_t at = hash & Mask();; at = (at + 1) & Mask()) {
      const Slot& slot = slots[at];
      if (slot.entry == kNone) return kNone;
      if (slot.hash == hash && matches(slot.entry)) return slot.entry;
    }
  }

  // The entry must not be there yet.
  void Insert(uint32_t hash, uint32_t entry) {
    if ((used + 1) * 4 > slots.size() * 3) Grow();
    Place({hash, entry});
    ++used;
  }

  // The entry must be there under this hash.
  void Erase(uint32_t hash, uint32_t entry) {
    size_t hole = hash & Mask();
    while (slots[hole].entry != entry) hole = (hole + 1) & Mask();
    CloseGap(hole);
    --used;
  }

  // The first entry at the hash's place: most likely the one that Find would return, but nothing has been compared.
  uint32_t Guess(uint32_t hash) const {
    const Slot& slot = slots[hash & Mask()];
    return slot.hash == hash ? slot.entry : kNone;
  }

  void Prefetch(uint32_t hash) const { __builtin_prefetch(&slots[hash & Mask()]); }

  size_t size() const { return used; }

 private:
  static constexpr size_t kSmallest = 64;

  struct Slot {
    uint32_t hash = 0;
    uint32_t entry = kNone;
  };

  size_t Mask() const { return slots.size() - 1; }

  void Place(Slot slot) {
    size_t at = slot.hash & Mask();
    while (slots[at].entry != kNone) at = (at + 1) & Mask();
    slots[at] = slot;
  }

  // Moves later slots of the same run forward, each as far as its own hash allows, so that no look-up ends
  // at the hole before it reaches them.
  void CloseGap(size_t hole) {
    for (size_t at = (hole + 1) & Mask(); slots[at].entry != kNone; at = (at + 1) & Mask()) {
      const size_t home = slots[at].hash & Mask();
      if (((at - home) & Mask()) < ((at - hole) & Mask())) continue;
      slots[hole] = slots[at];
      hole = at;
    }
    slots[hole] = Slot{};
  }

  void Grow() {
    std::vector<Slot> old(slots.size() * 2);
    std::swap(old, slots);
    for (const Slot& slot : old) {
      if (slot.entry != kNone) Place(slot);
    }
  }

  std::vector<Slot> slots;  // a power of two
  size_t used = 0;
};

}  // namespace flow
