#include "collector/flow/flow_pool.h"

#include <memory>

#include "collector/flow/tcp_connection.h"

namespace flow {

Flow* FlowPool::Take() {
  uint32_t number = made;
  if (!free_numbers.empty()) {
    number = free_numbers.back();
    free_numbers.pop_back();
  } else {
    if (made % kSlab == 0) {
      slabs.push_back(std::make_unique<Flow[]>(kSlab));
      free_numbers.reserve(slabs.size() * kSlab);  // giving back never allocates
    }
    ++made;
  }
  Flow* flow = At(number);
  flow->number = number;
  flow->descriptor.host_field_1 = number;
  flow->descriptor.host_field_4 = reinterpret_cast<uintptr_t>(flow);
  return flow;
}

void FlowPool::Give(Flow* flow) {
  const uint32_t number = flow->number;
  std::destroy_at(flow);
  std::construct_at(flow);
  free_numbers.push_back(number);
}

}  // namespace flow
