#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "collector/flow/counts.h"
#include "collector/flow/flow.h"
#include "collector/packet/datagram.h"

namespace flow {

struct Settings {
  std::vector<uint16_t> dns_ports{53};  // empty: every port may be one
  bool separate_vlans = false;          // tags and tunnels are part of a flow's identity
  size_t max_flows = 1 << 20;           // beyond it the longest idle flow without open queries goes first
  size_t max_surrogates = 1 << 22;      // IPv6 (and class E) endpoints known at one time
  size_t max_stream_bytes = 1 << 26;    // buffered TCP bytes of all connections together
};

// What became of a datagram. Every datagram has exactly one.
enum class Delivery : uint8_t {
  kUdpMessage,   // one message was handed on
  kTcpSegment,   // of a DNS connection: zero or more messages were handed on
  kNotDnsPort,   // neither port is a DNS port
  kEmpty,        // UDP without payload
  kNoFlow,       // the flow table is full of flows with open queries
  kNoSurrogate,  // no surrogate address was left
  kCount
};

// The delivery's name as the account shows it ("udp_message").
const char* DeliveryName(Delivery delivery);

// Sorts datagrams into conversations, decides which endpoint is the server, and cuts DNS messages out of UDP
// and TCP. Bounded in memory; what is given up is counted. Time is packet time throughout, and may step either way.
//
// The endpoint on a DNS port is the server. Where both are, or every port may be, whoever sends TCP's SYN is the
// client, and without one the first message decides: a response comes from the server. That stands for the flow's
// whole life.
class FlowTable {
 public:
  // How long a flow without open queries is kept: a UDP flow whose direction a message decided, a TCP connection,
  // and a TCP connection that both sides have closed or one has reset (for what was still on its way). Other UDP
  // flows go with their last open query.
  static constexpr int64_t kUdpIdleNs = 60'000'000'000;
  static constexpr int64_t kTcpIdleNs = 300'000'000'000;
  static constexpr int64_t kTcpClosedNs = 5'000'000'000;

  // The listener must outlive the table.
  FlowTable(const Settings& settings, Listener* listener);
  ~FlowTable();
  FlowTable(const FlowTable&) = delete;
  FlowTable& operator=(const FlowTable&) = delete;

  // Hands the datagram's messages to the listener before it returns.
  Delivery Handle(const packet::Datagram& datagram);

  // Ahead of Handle, in two steps with some time between them: asks the cache for what it will need for the
  // datagram. Neither changes anything. The first returns what the second wants; the second returns the flow that
  // seems to be meant, or null. It stays readable, whatever becomes of it.
  uint32_t Prefetch(const packet::Datagram& datagram) const;
  const Flow* PrefetchFlow(uint32_t hint) const;

  // Gives up gaps in streams that nothing has filled for two seconds; that may hand on messages, with the times of
  // their packets. Called on a grid of packet time, before the parser's heartbeat: the queries that these messages
  // answer may be about to time out.
  void GiveUpGaps(int64_t now_ns);

  // The same, and drops what has been idle. Called after the parser's heartbeat.
  void Tick(int64_t now_ns);

  // A query of this flow has ended, and `open_queries` has been moved: a UDP flow with none left is dropped at the
  // end of the current Handle, or of the next one, or at the next Tick. Safe inside OnMessage and between packets.
  void Release(Flow* flow);

  // Hands on what is left in streams (cut messages) and drops all flows without open queries.
  void Finish();

  const Counts& counts() const;
  size_t size() const;             // flows
  size_t StreamBytes() const;      // buffered TCP bytes
  size_t SurrogatesInUse() const;  // IPv6 (and class E) endpoints

 private:
  struct State;
  std::unique_ptr<State> state;
};

}  // namespace flow
