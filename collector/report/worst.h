#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "collector/plugin/exchange.h"
#include "collector/report/timeline.h"

namespace report {

// An exchange that somebody will want to look at, as it is shown.
struct BadExchange {
  Outcome outcome = Outcome::kNoError;
  int64_t query_time_ns = 0;
  int64_t rtt_us = 0;  // meaningless without a response
  bool has_response = false;
  uint32_t retransmits = 0;
  uint64_t number = 0;  // of the exchange, counted from 0
  std::string client;
  std::string server;
  std::string proto;
  std::string name;
  std::string type;
  std::string result;
};

// The worst exchanges in three lists of bounded length: the slowest answers, the worst failures (answers that could
// not be read or said that the server failed before those that refused, and these before names that do not exist;
// the slowest first), and the time-outs that were asked again most often (the earliest first).
class Worst {
 public:
  explicit Worst(size_t most_of_a_kind = 100) : capacity(most_of_a_kind) {}

  void Add(const plugin::Exchange& exchange);

  // Each once: the time-outs, then what was answered, the slowest first.
  std::vector<BadExchange> All() const;

 private:
  struct Entry {
    int64_t badness;
    int64_t tie;  // decides where badness is the same
    BadExchange exchange;
  };
  using Heap = std::vector<Entry>;  // the least bad on top

  void Offer(Heap* heap, int64_t badness, int64_t tie, const plugin::Exchange& exchange, Outcome outcome) const;

  size_t capacity;
  uint64_t count = 0;
  Heap slowest;
  Heap failed;
  Heap timed_out;
};

}  // namespace report
