#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "collector/plugin/session.h"
#include "collector/plugin/testdata/flow_double.h"
#include "host/metrics.h"
#include "host/request_visitor.h"
#include "host/requests.h"

namespace plugin {

inline constexpr int64_t kSecond = 1000000000;
inline constexpr int64_t kMillisecond = 1000000;
inline constexpr int64_t kStart = 1700000000 * kSecond;  // when the tests' captures begin

// An exchange beyond the call that delivered it: the views of `exchange` are void, the strings hold their texts.
struct SeenExchange {
  explicit SeenExchange(const Exchange& delivered)
      : exchange(delivered), question(delivered.question), pattern(delivered.pattern), answers(delivered.answers) {}

  const Exchange* operator->() const { return &exchange; }

  Exchange exchange;
  std::string question;
  std::string pattern;
  std::string answers;
};

struct SeenMapping {
  std::string query_name;  // "(null)" for null
  std::string name;
  uint32_t ipv4;
  int64_t time_ns;
};

// A record, and what the parser's key for it says.
struct SeenRecord {
  int32_t request_id;
  size_t exchanges_before;  // delivered when it came
  std::vector<std::pair<std::string, int>> key;
};

class SeenByListener : public ExchangeListener {
 public:
  void OnRecord(const EndRequest& record, const RequestMetricSpecification* metrics) override {
    records.push_back({record.request_id, exchanges.size(), {}});
    if (metrics == nullptr) return;
    struct Node : IEventNode {
      void AddInt32(const std::string& name, int value) override { attributes.emplace_back(name, value); }
      std::vector<std::pair<std::string, int>> attributes;
    } node;
    const IIntermediateKey* key = metrics->MakeKey(&record);
    key->Serialize(&node);
    metrics->ReleaseKey(key);
    records.back().key = node.attributes;
  }
  void OnExchange(const Exchange& exchange) override {
    if (throw_on_exchange) throw std::runtime_error("listener");
    exchanges.emplace_back(exchange);
  }
  void OnMapping(const char* query_name, const char* name, uint32_t ipv4, int64_t time_ns) override {
    if (throw_on_mapping) throw std::runtime_error("listener");
    mappings.push_back({query_name != nullptr ? query_name : "(null)", name, ipv4, time_ns});
  }

  bool throw_on_exchange = false;
  bool throw_on_mapping = false;
  std::vector<SeenExchange> exchanges;
  std::vector<SeenMapping> mappings;
  std::vector<SeenRecord> records;
};

// A session with a parser, flows to feed it by, and everything that comes out of it.
class SessionBench {
 public:
  using Args = std::map<std::string, std::string>;

  explicit SessionBench(const std::string& path, const Args& args = {}, int log_level = 2)
      : library(path), session(library, {args, log_level, KeepLine}, &seen) {
    session.Attach(&flows.table);
  }

  // A conversation between a client of its own and one server.
  flow::Flow* NewFlow(uint8_t transport = kTransportUdp) {
    made.push_back(std::make_unique<flow::Flow>());
    flow::Flow* flow = made.back().get();
    flow->client.octets = {192, 0, 2, 1};
    flow->client.version = 4;
    flow->server.octets = {198, 51, 100, 53};
    flow->server.version = 4;
    flow->descriptor.local_ipv4 = flow->client.Ipv4();
    flow->descriptor.remote_ipv4 = flow->server.Ipv4();
    flow->descriptor.local_port = static_cast<uint16_t>(40000 + made.size());
    flow->descriptor.remote_port = 53;
    flow->descriptor.client_side = kClientIsLocal;
    flow->descriptor.transport = transport;
    flow->descriptor.context_id = 1;
    session.OnNewFlow(flow);
    return flow;
  }

  void Query(flow::Flow* flow, const std::string& wire, int64_t time_ns = kStart) {
    Feed(flow, true, wire, time_ns);
  }
  void Response(flow::Flow* flow, const std::string& wire, int64_t time_ns = kStart) {
    Feed(flow, false, wire, time_ns);
  }

  // The first `snap` bytes of the message, in memory that ends one byte behind them.
  void Feed(flow::Flow* flow, bool from_client, const std::string& wire, int64_t time_ns, size_t snap = SIZE_MAX) {
    snap = std::min(snap, wire.size());
    const auto memory = std::make_unique<uint8_t[]>(snap + 1);
    std::memcpy(memory.get(), wire.data(), snap);
    session.OnMessage(
        {flow, from_client, time_ns, memory.get(), static_cast<int>(snap), static_cast<int>(wire.size())});
  }

  const std::vector<SeenExchange>& exchanges() const { return seen.exchanges; }
  const MessageCounts& counts() const { return session.counts(); }

  // The log lines of the bench that was made last.
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }

 private:
  static void KeepLine(int /*level*/, const std::string& line) { Lines().push_back(line); }

  struct ClearLines {
    ClearLines() { Lines().clear(); }
  };

  ClearLines clear_lines;
  std::vector<std::unique_ptr<flow::Flow>> made;

 public:
  FlowDouble flows;
  Library library;
  SeenByListener seen;
  Session session;
};

}  // namespace plugin
