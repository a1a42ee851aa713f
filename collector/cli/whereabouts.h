#pragma once

#include <atomic>
#include <cstdint>

namespace cli {

// Where a pipeline is, in memory that another process sees as well; and where that process wants it to end. All
// members begin as 0.
//
// Pipelines that read the same input have to end behind the same packet, or their accounts would not add up. The
// other process names one that all have yet to reach, and agrees when none was already behind it.
struct Whereabouts {
  std::atomic<uint64_t> packet;  // in hand, counted from 1
  std::atomic<uint32_t> source;  // the input that it came from
  std::atomic<uint64_t> last;    // the packet to end with; 0 for the input's last
  std::atomic<bool> agreed;

  // The pipeline's question, with so many packets handled. Waits for the agreement.
  bool EndsBehind(uint64_t packets) const {
    const uint64_t wanted = last.load();
    return wanted != 0 && packets >= wanted && EndsAfterAll(packets);
  }

 private:
  bool EndsAfterAll(uint64_t packets) const;
};

}  // namespace cli
