#pragma once

#include <doctest/doctest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "collector/flow/flow.h"
#include "collector/flow/flow_table.h"

namespace test {

struct Delivered {
  flow::Flow* flow;  // may be gone
  bool from_client;
  int64_t time_ns;
  std::string bytes;
  int nominal;
};

// Takes messages the way a session does: a query from the client opens, a response from the server ends. Checks on
// the way what every listener relies on.
class RecordingListener : public flow::Listener {
 public:
  void Attach(flow::FlowTable* flow_table) { table = flow_table; }

  void OnNewFlow(flow::Flow* flow) override {
    CHECK(flow->oriented);
    CHECK(flow->descriptor.client_side == kClientIsLocal);
    CHECK(flow->open_queries == 0);
    CHECK(flow->stream_state == nullptr);
    CHECK(live.insert(flow).second);
    ++begun;
  }

  void OnMessage(const flow::Message& message) override {
    CHECK(live.contains(message.flow));
    [[maybe_unused]] const volatile uint8_t behind = message.data[message.snap_length];  // is readable
    std::string bytes(reinterpret_cast<const char*>(message.data), static_cast<size_t>(message.snap_length));
    if (pairs) Pair(message, bytes.substr(message.flow->descriptor.transport == 6 ? 2U : 0U));
    messages.push_back(
        {message.flow, message.from_client, message.time_ns, std::move(bytes), message.nominal_length});
  }

  void OnEndOfFlow(flow::Flow* flow) override {
    CHECK(flow->open_queries == 0);
    CHECK(live.erase(flow) == 1);
    ++ended;
  }

  // What a heartbeat does to queries that waited too long.
  void ExpireAll() {
    const auto expired = std::exchange(open, {});
    for (const auto& [flow, id] : expired) Close(flow);
  }

  // The same for one flow's.
  void Expire(flow::Flow* flow) {
    for (auto at = open.lower_bound({flow, 0}); at != open.end() && at->first == flow; at = open.erase(at))
      Close(flow);
  }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const Delivered& message : messages) texts.push_back(message.bytes);
    return texts;
  }

  bool pairs = true;  // false: no query ever opens
  std::vector<Delivered> messages;
  std::set<flow::Flow*> live;
  std::set<std::pair<flow::Flow*, uint16_t>> open;
  uint64_t begun = 0;
  uint64_t ended = 0;

 private:
  void Pair(const flow::Message& message, const std::string& dns) {
    if (dns.size() < 12) return;
    const auto id = static_cast<uint16_t>(static_cast<uint8_t>(dns[0]) << 8 | static_cast<uint8_t>(dns[1]));
    const std::pair key{message.flow, id};
    if (message.from_client) {
      if (open.insert(key).second) ++message.flow->open_queries;
    } else if (open.erase(key) == 1) {
      Close(message.flow);
    }
  }

  void Close(flow::Flow* flow) {
    --flow->open_queries;
    if (table != nullptr) table->Release(flow);
  }

  flow::FlowTable* table = nullptr;
};

}  // namespace test
