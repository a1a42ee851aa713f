#include "collector/plugin/open_index.h"

namespace plugin {
namespace {

constexpr size_t kInitialSlots = 256;

}  // namespace

OpenIndex::OpenIndex() : slots(kInitialSlots) {}

void OpenIndex::Add(const flow::Flow* flow, uint16_t dns_id, int32_t request_id) {
  if ((used + 1) * 2 > slots.size()) Grow();
  slots[Locate(flow, dns_id)] = {flow, request_id, dns_id};
  ++used;
}

const int32_t* OpenIndex::Find(const flow::Flow* flow, uint16_t dns_id) const {
  const Slot& slot = slots[Locate(flow, dns_id)];
  return slot.flow != nullptr ? &slot.request_id : nullptr;
}

// Closes the gap by moving up what was pushed behind it, so that no search ends too early.
void OpenIndex::Erase(const flow::Flow* flow, uint16_t dns_id) {
  size_t gap = Locate(flow, dns_id);
  if (slots[gap].flow == nullptr) return;
  const size_t mask = slots.size() - 1;
  for (size_t at = Next(gap); slots[at].flow != nullptr; at = Next(at)) {
    const size_t displaced = (at - Home(slots[at].flow, slots[at].dns_id)) & mask;
    if (displaced < ((at - gap) & mask)) continue;
    slots[gap] = slots[at];
    gap = at;
  }
  slots[gap] = {};
  --used;
}

// Identifiers count up and flows lie at regular addresses: both are spread over all bits.
size_t OpenIndex::Home(const flow::Flow* flow, uint16_t dns_id) const {
  uint64_t mixed = reinterpret_cast<uintptr_t>(flow) + dns_id * 0x9e3779b97f4a7c15U;
  mixed ^= mixed >> 32U;
  mixed *= 0xd6e8feb86659fd93U;
  mixed ^= mixed >> 32U;
  return mixed & (slots.size() - 1);
}

size_t OpenIndex::Locate(const flow::Flow* flow, uint16_t dns_id) const {
  size_t at = Home(flow, dns_id);
  while (slots[at].flow != nullptr && (slots[at].flow != flow || slots[at].dns_id != dns_id)) at = Next(at);
  return at;
}

void OpenIndex::Grow() {
  std::vector<Slot> old(slots.size() * 2);
  old.swap(slots);
  for (const Slot& slot : old) {
    if (slot.flow != nullptr) slots[Locate(slot.flow, slot.dns_id)] = slot;
  }
}

}  // namespace plugin
