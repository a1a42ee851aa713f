#include "collector/cli/whereabouts.h"

#include <chrono>
#include <thread>

namespace cli {

bool Whereabouts::EndsAfterAll(uint64_t packets) const {
  constexpr int kPatience = 5000;  // milliseconds: the other process may be gone
  for (int waited = 0; !agreed.load() && packets >= last.load() && waited < kPatience; ++waited) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return packets >= last.load();
}

}  // namespace cli
