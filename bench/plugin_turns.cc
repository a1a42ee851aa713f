// A fixed number of exchanges through the plug-in alone, for counting instructions: with 2,000 queries open, a new
// query is recorded and the oldest one answered, 20,000 times.

#include "bench/plugin_traffic.h"

int main() {
  constexpr size_t kOpen = 2000;
  constexpr size_t kTurns = 20000;
  const std::vector<bench::Traffic> traffic = bench::MakeTraffic(kOpen * 2);
  bench::Parser parser;
  for (size_t newest = 0; newest < kOpen + kTurns; ++newest) {
    parser.Ask(traffic[newest % traffic.size()]);
    if (newest >= kOpen) parser.Answer(traffic[(newest - kOpen) % traffic.size()]);
  }
}
