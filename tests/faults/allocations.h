#pragma once

#include <cstddef>

// This process's operator new, counted and made to fail: the plug-in's allocations too, which come here as long as
// the program defines the operator.
namespace faults {

// Blocks that were allocated and not freed.
long LiveBlocks();

// The memory that they take.
size_t LiveBytes();

// The nth allocation from now on (1 is the next one) throws std::bad_alloc, and no other; 0 for none.
void FailAllocation(long nth);

// Allocations since FailAllocation, the failed one included.
long Allocations();

// As long as one of these lives, allocations neither fail nor count: a host at work inside a call of the parser.
class Spared {
 public:
  Spared();
  ~Spared();
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;
};

}  // namespace faults
