#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "collector/flow/flow.h"

namespace flow {

// Where flows live: in slabs that never move. A flow given back is the next one taken, because it is still in the
// cache; slabs are kept for the pool's whole life.
class FlowPool {
 public:
  // A fresh flow; `number` and the host fields that name it are set.
  Flow* Take();
  void Give(Flow* flow);

  Flow* At(uint32_t number) const { return &slabs[number / kSlab][number % kSlab]; }

  // Flows taken and not given back.
  size_t live() const { return made - free_numbers.size(); }
  // Numbers are below this.
  uint32_t Made() const { return made; }

 private:
  static constexpr uint32_t kSlab = 256;

  std::vector<std::unique_ptr<Flow[]>> slabs;
  std::vector<uint32_t> free_numbers;
  uint32_t made = 0;
};

}  // namespace flow
