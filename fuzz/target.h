#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// A fuzzer's one function: takes any bytes, and returns 0 unless a promise is broken, which ends the process.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// What holds for every input. `promise` is the sentence that is not true where it does not.
inline void Must(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

}  // namespace fuzz
