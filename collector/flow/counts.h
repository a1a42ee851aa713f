#pragma once

#include <cstdint>

namespace flow {

struct Counts {
  uint64_t udp_messages = 0;
  uint64_t tcp_messages = 0;
  uint64_t flows = 0;                    // ever begun
  uint64_t flows_evicted = 0;            // dropped to make room
  uint64_t tcp_cut_messages = 0;         // handed on with bytes missing
  uint64_t tcp_gaps = 0;                 // holes in a stream that were never filled
  uint64_t tcp_skipped_bytes = 0;        // passed over while looking for the next message
  uint64_t tcp_retransmitted_bytes = 0;  // seen before
  uint64_t tcp_dropped_bytes = 0;        // held when a connection was given up for want of memory
  uint64_t tcp_unfinished_messages = 0;  // begun when their connection ended
  uint64_t tcp_resets = 0;               // connections that were reset
};

}  // namespace flow
