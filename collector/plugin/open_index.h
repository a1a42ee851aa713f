#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "collector/flow/flow.h"

namespace plugin {

// Finds the open query of a flow by its DNS identifier, for flows that have several: a hash table, so that one flow
// with all 65536 identifiers open costs no more per message than any other. Grows, never shrinks; between growths
// it allocates nothing.
class OpenIndex {
 public:
  OpenIndex();

  // The pair must not be there.
  void Add(const flow::Flow* flow, uint16_t dns_id, int32_t request_id);
  // Null when the pair is not there. Valid until the next Add or Erase.
  const int32_t* Find(const flow::Flow* flow, uint16_t dns_id) const;
  // No effect when the pair is not there.
  void Erase(const flow::Flow* flow, uint16_t dns_id);

  size_t size() const { return used; }

 private:
  struct Slot {
    const flow::Flow* flow = nullptr;  // null: free
    int32_t request_id = 0;
    uint16_t dns_id = 0;
  };

  size_t Home(const flow::Flow* flow, uint16_t dns_id) const;
  size_t Next(size_t at) const { return (at + 1) & (slots.size() - 1); }
  size_t Locate(const flow::Flow* flow, uint16_t dns_id) const;  // its slot, or the free one where it would go
  void Grow();

  std::vector<Slot> slots;  // a power of two, at most half of them used
  size_t used = 0;
};

}  // namespace plugin
