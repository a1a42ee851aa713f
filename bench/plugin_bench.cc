// The plug-in alone: driven from memory through its entry points, with a sink that does nothing, beside a bare map
// of the same key and value. The argument is the number of queries open at the time.

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "dns-parser/query_table.h"
#include "host/collector_exports.h"
#include "host/protocol_parser.h"
#include "host/request_visitor.h"
#include "tests/support/dns_builder.h"

namespace {

constexpr int kRounds = 4;  // distinct exchanges for each open query, so that keys do not repeat too soon

struct NullSink : IRequestSink {
  void OnBeginRequest(const BeginRequest*) override {}
  void OnEndRequest(const EndRequest*) override {}
};

int log_level = 2;
void Log(int, const char*, ...) {}
bool IsDebugEnabled(const std::string&) { return false; }
bool WantDetails() { return true; }
void Inject(const char*, const char*, uint32_t) {}
uint32_t ContextId() { return 0; }
const CollectorExports kTable{&log_level,  Log,    IsDebugEnabled, nullptr,  nullptr,
                              WantDetails, Inject, nullptr,        ContextId};

struct Traffic {
  ParserFlow flow;
  std::string query;
  std::string response;
};

// Exchanges of random clients with a few servers: names of 10 to 30 characters, one or two answers.
std::vector<Traffic> MakeTraffic(size_t count) {
  std::mt19937 random(1);
  std::vector<Traffic> traffic(count);
  for (size_t i = 0; i < count; ++i) {
    Traffic& one = traffic[i];
    one.flow.local_ipv4 = 10u | static_cast<uint32_t>(random()) << 8;
    one.flow.remote_ipv4 = 0x35020201u + (random() % 8 << 24);
    one.flow.local_port = static_cast<uint16_t>(1024 + random() % 64000);
    one.flow.remote_port = 53;
    one.flow.client_side = kClientIsLocal;
    one.flow.transport = kTransportUdp;
    one.flow.context_id = 1;
    const auto id = static_cast<uint16_t>(random());
    const std::string name =
        std::string(3 + random() % 20, 'w') + ".example" + std::to_string(random() % 1000) + ".com";
    const bool v6 = random() % 4 == 0;
    one.query = support::Query(id).Question(name, v6 ? support::kAaaa : support::kA).Wire();
    auto response = support::Response(id).Compressed().Question(name, v6 ? support::kAaaa : support::kA);
    if (v6) {
      one.response = response.Answer(name, support::Aaaa("2001:db8::1")).Wire();
    } else {
      one.response = response.Answer(name, support::A("192.0.2.1")).Answer(name, support::A("192.0.2.2")).Wire();
    }
  }
  return traffic;
}

class Parser {
 public:
  Parser() {
    library = dlopen(DNS_PARSER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(1);
    }
    const auto create = reinterpret_cast<decltype(&get_parser_default)>(dlsym(library, "get_parser_default"));
    parser = static_cast<ITimedProtocolParser*>(create(0, &kTable, {{"max_open_requests", "1000000"}}));
    parser->request_sink = &sink;
  }
  ~Parser() {
    reinterpret_cast<decltype(&destroy_parser_default)>(dlsym(library, "destroy_parser_default"))(parser);
  }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  void Ask(const Traffic& one) {
    const int size = static_cast<int>(one.query.size());
    parser->HandleDataClientToServer(&one.flow, {++now}, one.query.data(), size, size, 0, nullptr);
  }
  void Answer(const Traffic& one) {
    const int size = static_cast<int>(one.response.size());
    parser->HandleDataServerToClient(&one.flow, {++now}, one.response.data(), size, size, 0, nullptr);
  }

  NullSink sink;
  void* library;
  ITimedProtocolParser* parser;
  int64_t now = 0;
};

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
  QueryTable table;
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
  QueryTable table;
  uint16_t id = 0;
  for (const Traffic& one : traffic) table.insert({DnsQueryID{one.flow, ++id}, DnsQuery{}});
  for (auto _ : state) {
    size_t old = 0;
    for (const auto& entry : table) old += entry.second.start_time.ticks < 0 ? 1 : 0;
    benchmark::DoNotOptimize(old);
  }
}

BENCHMARK(RequestAndResponse)->Arg(2000)->Arg(20000)->Arg(65536);
BENCHMARK(BareMap)->Arg(2000)->Arg(20000)->Arg(65536);
BENCHMARK(IdleHeartbeat)->Arg(2000)->Arg(20000)->Arg(65536);
BENCHMARK(BareWalk)->Arg(2000)->Arg(20000)->Arg(65536);

}  // namespace

BENCHMARK_MAIN();
