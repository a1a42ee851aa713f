#pragma once

#include <cstdint>
#include <memory>

#include "collector/packet/datagram.h"
#include "host/parser_flow.h"

namespace flow {

struct TcpConnection;  // both directions' reassembly

// Where the flow table keeps a flow.
enum class Place : uint8_t {
  kFree,      // not in use
  kBusy,      // in no list: it has open queries, or is being handled
  kSettling,  // its queries have ended, or it got messages out of turn: looked at before the next Handle ends
  kUdpIdle,   // in the list of that name, longest idle first
  kTcpIdle,
  kTcpClosing,
};

// One conversation. The client is always the local endpoint, so that both directions look the same to the
// parser. The address of a flow does not change while it lives; afterwards another flow lives there.
//
// What a look-up and the parser need stands in the first cache line, what the parser's caller needs in the second.
struct alignas(64) Flow {
  Flow();
  ~Flow();
  Flow(const Flow&) = delete;
  Flow& operator=(const Flow&) = delete;

  // As the parser sees it: IPv6 endpoints (and what else does not fit) under surrogate IPv4 addresses. Host field
  // 1 is `number`, host field 4 the address of this object, good as long as the flow has open queries; the others
  // are 0.
  ParserFlow descriptor;

  void* stream_state = nullptr;  // the parser's own
  int64_t last_seen_ns = 0;

  // Queries of this flow that the parser holds open. Moved by whoever talks to the parser; a flow is not
  // dropped while it is above zero.
  uint32_t open_queries = 0;

  // The one open query of most flows, so that a repeated query is recognised without another look-up:
  // valid while open_queries is above zero and single_open is set. For the owner of open_queries.
  int32_t single_request_id = 0;
  uint16_t single_dns_id = 0;
  bool single_open = false;

  bool oriented = false;  // the first message, or the ports, told client from server

  // The flow table's own.
  Place place = Place::kFree;
  bool kept = false;    // a message decided the direction, and would have to again if the flow were forgotten
  uint32_t number = 0;  // in the pool; given again to a later flow
  std::unique_ptr<TcpConnection> tcp;

  packet::Address client;  // as on the wire
  packet::Address server;
  packet::Encapsulation encapsulation;  // of the flow's first packet
};

// One whole DNS message, the way the parser takes it: over TCP with its two-byte length in front.
struct Message {
  Flow* flow = nullptr;
  bool from_client = false;
  int64_t time_ns = 0;            // of the packet that completed it
  const uint8_t* data = nullptr;  // at least one readable byte lies behind the captured ones
  int snap_length = 0;            // bytes present at data
  int nominal_length = 0;         // bytes of the message (and its prefix) on the wire; more than
                                  // snap_length where the capture or a gap in the stream cut it
};

// Who receives the messages and the comings and goings of flows. Must not call FlowTable::Handle, GiveUpGaps, Tick
// or Finish from inside.
class Listener {
 public:
  virtual ~Listener() = default;
  // The flow's direction is known, its first message is to come.
  virtual void OnNewFlow(Flow* flow) = 0;
  virtual void OnMessage(const Message& message) = 0;
  // The flow is about to be dropped. It has no open queries. Only for flows that OnNewFlow announced.
  virtual void OnEndOfFlow(Flow* flow) = 0;
};

}  // namespace flow
