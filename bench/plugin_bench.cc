// The plug-in alone: driven from memory through its entry points, with a sink that does nothing, beside a bare map
// of the same key and value, on the heap. The argument is the number of queries open at the time.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bench/plugin_traffic.h"
#include "dns-parser/query_table.h"

using bench::MakeTraffic;
using bench::Parser;
using bench::Traffic;

namespace {

constexpr int kRounds = 4;  // distinct exchanges for each open query, so that keys do not repeat too soon

// Queries alone, from an empty table to a full one; the answers that empty it are not timed. Then the other way
// round.
void Request(benchmark::State& state) {
  const auto open = static_cast<size_t>(state.range(0));
  const std::vector<Traffic> traffic = MakeTraffic(open);
  Parser parser;
  while (state.KeepRunningBatch(state.range(0))) {
    for (const Traffic& one : traffic) parser.Ask(one);
    state.PauseTiming();
    for (const Traffic& one : traffic) parser.Answer(one);
    state.ResumeTiming();
  }
}
void Response(benchmark::State& state) {
  const auto open = static_cast<size_t>(state.range(0));
  const std::vector<Traffic> traffic = MakeTraffic(open);
  Parser parser;
  while (state.KeepRunningBatch(state.range(0))) {
    state.PauseTiming();
    for (const Traffic& one : traffic) parser.Ask(one);
    state.ResumeTiming();
    for (const Traffic& one : traffic) parser.Answer(one);
  }
}

// One exchange: a new query is recorded and the oldest open one answered.
void RequestAndResponse(benchmark::State& state) {
  const auto open = static_cast<size_t>(state.range(0));
  const std::vector<Traffic> traffic = MakeTraffic(open * kRounds);
  Parser parser;
  size_t newest = 0;
  for (; newest < open; ++newest) parser.Ask(traffic[newest]);
  for (auto _ : state) {
    parser.Ask(traffic[newest % traffic.size()]);
    parser.Answer(traffic[(newest - open) % traffic.size()]);
    ++newest;
  }
}

// The same turns on a map alone: insert, find, erase.
void BareMap(benchmark::State& state) {
  const auto open = static_cast<size_t>(state.range(0));
  const std::vector<Traffic> traffic = MakeTraffic(open * kRounds);
  std::vector<std::pair<DnsQueryID, DnsQuery>> entries;
  for (const Traffic& one : traffic) {
    DnsQuery query;
    query.types = "A - IPv4 address lookup";
    query.names = std::string(one.query, 13, one.query.size() - 18);
    const auto id =
        static_cast<uint16_t>(static_cast<uint8_t>(one.query[0]) << 8 | static_cast<uint8_t>(one.query[1]));
    entries.push_back({DnsQueryID{one.flow, id}, query});
  }
  PlainQueryTable table;
  size_t newest = 0;
  for (; newest < open; ++newest) table.insert(entries[newest]);
  for (auto _ : state) {
    table.insert(entries[newest % entries.size()]);
    table.erase(table.find(entries[(newest - open) % entries.size()].first));
    ++newest;
  }
}

// A heartbeat that finds nothing to expire.
void IdleHeartbeat(benchmark::State& state) {
  const std::vector<Traffic> traffic = MakeTraffic(static_cast<size_t>(state.range(0)));
  Parser parser;
  for (const Traffic& one : traffic) parser.Ask(one);
  for (auto _ : state) parser.parser->Heartbeat({parser.now});
}

// What such a heartbeat would cost as a walk of the map.
void BareWalk(benchmark::State& state) {
  const std::vector<Traffic> traffic = MakeTraffic(static_cast<size_t>(state.range(0)));
  PlainQueryTable table;
  uint16_t id = 0;
  for (const Traffic& one : traffic) table.insert({DnsQueryID{one.flow, ++id}, DnsQuery{}});
  for (auto _ : state) {
    size_t old = 0;
    for (const auto& entry : table) old += entry.second.start_time.ticks < 0 ? 1 : 0;
    benchmark::DoNotOptimize(old);
  }
}

BENCHMARK(Request)->Arg(2000)->Arg(20000);
BENCHMARK(Response)->Arg(2000)->Arg(20000);
BENCHMARK(RequestAndResponse)->Arg(2000)->Arg(20000)->Arg(65536);
BENCHMARK(BareMap)->Arg(2000)->Arg(20000)->Arg(65536);
BENCHMARK(IdleHeartbeat)->Arg(2000)->Arg(20000)->Arg(65536);
BENCHMARK(BareWalk)->Arg(2000)->Arg(20000)->Arg(65536);

}  // namespace

BENCHMARK_MAIN();
