#include "collector/flow/flow_table.h"

#include <bitset>

#include "collector/flow/elapsed.h"
#include "collector/flow/flow_store.h"
#include "collector/flow/index_list.h"
#include "collector/flow/tcp_connection.h"
#include "collector/flow/tcp_tracker.h"

namespace flow {

namespace {

constexpr uint8_t kTcpAck = 0x10;

bool HasFlag(const packet::Datagram& datagram, uint8_t flag) { return (datagram.tcp_flags & flag) != 0; }

// What a message says of its sender (the QR bit, RFC 1035 4.1.1).
enum class Sender : uint8_t { kUnknown, kClient, kServer };

Sender SenderOf(const uint8_t* message, size_t present) {
  if (present < 3) return Sender::kUnknown;
  return (message[2] & 0x80) != 0 ? Sender::kServer : Sender::kClient;
}

// A connection's first handshake segments say who opens it.
Sender SenderOfSyn(const packet::Datagram& datagram) {
  if (!HasFlag(datagram, packet::kTcpSyn)) return Sender::kUnknown;
  return HasFlag(datagram, kTcpAck) ? Sender::kServer : Sender::kClient;
}

}  // namespace

const char* DeliveryName(Delivery delivery) {
  switch (delivery) {
    case Delivery::kUdpMessage:
      return "udp_message";
    case Delivery::kTcpSegment:
      return "tcp_segment";
    case Delivery::kNotDnsPort:
      return "not_dns_port";
    case Delivery::kEmpty:
      return "empty";
    case Delivery::kNoFlow:
      return "no_flow";
    case Delivery::kNoSurrogate:
      return "no_surrogate";
    case Delivery::kCount:
      break;
  }
  return "";
}

struct FlowTable::State : StreamOutput {
  State(const Settings& given, Listener* given_listener)
      : settings(given),
        listener(given_listener),
        store(given.separate_vlans, given.max_surrogates),
        tracker(given.max_stream_bytes, &store.pool(), &counts, this) {
    for (uint16_t port : given.dns_ports) dns_ports.set(port);
  }

  bool IsDns(const packet::Datagram& datagram) const;
  Delivery HandleUdp(const packet::Datagram& datagram);
  Delivery HandleTcp(const packet::Datagram& datagram);
  Flow* FindConnection(const packet::Datagram& segment, FlowStore::Route* route);

  Flow* Create(const packet::Datagram& datagram, const FlowStore::Route& route, Delivery* failure);
  bool MakeRoom();
  Flow* LongestIdle() const;
  Sender SenderByPort(const packet::Datagram& datagram) const;
  void Orient(Flow* flow, bool from_local, Sender sender) const;
  void OnStreamMessage(Flow* flow, bool from_local, const CutMessage& message) override;

  IndexList* ListOf(Place place);
  void TakeOut(Flow* flow);
  void PutInto(Flow* flow, Place place);
  void Settle(Flow* flow);
  void SettleLater(Flow* flow);
  void SettleAll();
  bool End(Flow* flow);
  void Drop(Flow* flow);
  void DropIdle(Place place, int64_t now_ns, int64_t limit_ns);

  const Settings settings;
  Listener* const listener;
  std::bitset<65536> dns_ports;
  Counts counts;
  FlowStore store;
  TcpTracker tracker;
  IndexList udp_idle;
  IndexList tcp_idle;
  IndexList tcp_closing;
  std::vector<Flow*> settling;
  Flow* current = nullptr;  // is settled by whoever made it the current one
};

namespace {

// Makes a flow the current one for as long as this lives, an exception's way out included.
class AsCurrent {
 public:
  AsCurrent(Flow** place, Flow* flow) : current(place), before(*place) { *current = flow; }
  ~AsCurrent() { *current = before; }
  AsCurrent(const AsCurrent&) = delete;
  AsCurrent& operator=(const AsCurrent&) = delete;

 private:
  Flow** const current;
  Flow* const before;
};

}  // namespace

FlowTable::FlowTable(const Settings& settings, Listener* listener)
    : state(std::make_unique<State>(settings, listener)) {}

FlowTable::~FlowTable() = default;

Delivery FlowTable::Handle(const packet::Datagram& datagram) {
  if (!state->IsDns(datagram)) return Delivery::kNotDnsPort;
  if (!state->settling.empty()) state->SettleAll();  // what a heartbeat has released since
  const Delivery delivery =
      datagram.transport == kTransportTcp ? state->HandleTcp(datagram) : state->HandleUdp(datagram);
  if (!state->settling.empty()) state->SettleAll();
  return delivery;
}

uint32_t FlowTable::Prefetch(const packet::Datagram& datagram) const { return state->store.Prefetch(datagram); }

const Flow* FlowTable::PrefetchFlow(uint32_t hint) const { return state->store.PrefetchFlow(hint); }

void FlowTable::GiveUpGaps(int64_t now_ns) { state->tracker.Tick(now_ns); }

void FlowTable::Tick(int64_t now_ns) {
  state->SettleAll();
  state->tracker.Tick(now_ns);
  state->DropIdle(Place::kUdpIdle, now_ns, kUdpIdleNs);
  state->DropIdle(Place::kTcpClosing, now_ns, kTcpClosedNs);
  state->DropIdle(Place::kTcpIdle, now_ns, kTcpIdleNs);
  state->SettleAll();
}

void FlowTable::Release(Flow* flow) {
  if (flow != state->current && flow->open_queries == 0) state->SettleLater(flow);
}

void FlowTable::Finish() {
  state->SettleAll();
  const FlowPool& pool = state->store.pool();
  for (uint32_t number = 0; number < pool.Made(); ++number) {
    Flow* flow = pool.At(number);
    if (flow->place != Place::kFree) state->End(flow);
  }
}

const Counts& FlowTable::counts() const { return state->counts; }
size_t FlowTable::size() const { return state->store.pool().live(); }
size_t FlowTable::StreamBytes() const { return state->tracker.held(); }
size_t FlowTable::SurrogatesInUse() const { return state->store.SurrogatesInUse(); }

bool FlowTable::State::IsDns(const packet::Datagram& datagram) const {
  return settings.dns_ports.empty() || dns_ports.test(datagram.source_port) ||
         dns_ports.test(datagram.destination_port);
}

Delivery FlowTable::State::HandleUdp(const packet::Datagram& datagram) {
  if (datagram.nominal == 0) return Delivery::kEmpty;
  Delivery failure{};
  FlowStore::Route route;
  Flow* flow = store.Find(datagram, &route);
  if (flow == nullptr) flow = Create(datagram, route, &failure);
  if (flow == nullptr) return failure;
  const AsCurrent as_current(&current, flow);
  flow->last_seen_ns = datagram.time_ns;
  if (!flow->oriented) {
    Orient(flow, IsFromLocal(*flow, datagram), SenderOf(datagram.payload, datagram.captured));
    flow->kept = datagram.captured > 2;  // a message without its flags has decided nothing
  }
  ++counts.udp_messages;
  listener->OnMessage({.flow = flow,
                       .from_client = IsFromLocal(*flow, datagram),
                       .time_ns = datagram.time_ns,
                       .data = datagram.payload,
                       .snap_length = static_cast<int>(datagram.captured),
                       .nominal_length = static_cast<int>(datagram.nominal)});
  Settle(flow);
  return Delivery::kUdpMessage;
}

Delivery FlowTable::State::HandleTcp(const packet::Datagram& datagram) {
  Delivery failure = Delivery::kTcpSegment;
  FlowStore::Route route;
  Flow* flow = FindConnection(datagram, &route);
  // Without a flow, what carries nothing tells nothing.
  const bool begins = datagram.nominal > 0 || HasFlag(datagram, packet::kTcpSyn);
  if (flow == nullptr && begins && !HasFlag(datagram, packet::kTcpRst)) flow = Create(datagram, route, &failure);
  if (flow == nullptr) return failure;
  const AsCurrent as_current(&current, flow);
  flow->last_seen_ns = datagram.time_ns;
  const Sender opener = SenderOfSyn(datagram);
  if (!flow->oriented && opener != Sender::kUnknown) Orient(flow, IsFromLocal(*flow, datagram), opener);
  tracker.Follow(flow, IsFromLocal(*flow, datagram), datagram);
  tracker.Shed();
  Settle(flow);
  return Delivery::kTcpSegment;
}

// The flow of the segment's connection. One whose ports are used again by a new connection is ended; with open
// queries it stays, for they may still be answered, and only its streams are new.
Flow* FlowTable::State::FindConnection(const packet::Datagram& segment, FlowStore::Route* route) {
  Flow* flow = store.Find(segment, route);
  if (flow == nullptr || !TcpTracker::IsNewConnection(*flow, IsFromLocal(*flow, segment), segment)) return flow;
  if (End(flow)) return nullptr;
  TcpTracker::Begin(flow);
  return flow;
}

Flow* FlowTable::State::Create(const packet::Datagram& datagram, const FlowStore::Route& route, Delivery* failure) {
  *failure = Delivery::kNoFlow;
  if (!MakeRoom()) return nullptr;
  Flow* flow = store.Create(datagram, route);
  *failure = Delivery::kNoSurrogate;
  if (flow == nullptr) return nullptr;
  ++counts.flows;
  if (datagram.transport == kTransportTcp) TcpTracker::Begin(flow);
  const Sender sender = SenderByPort(datagram);
  if (sender != Sender::kUnknown) Orient(flow, true, sender);
  return flow;
}

// False when every flow has open queries. A flow that is ended may hand on a last query and stay, so the next
// one is tried; each leaves its list, and so there is an end.
bool FlowTable::State::MakeRoom() {
  while (store.pool().live() >= settings.max_flows) {
    Flow* flow = LongestIdle();
    if (flow == nullptr) return false;
    if (End(flow)) ++counts.flows_evicted;
  }
  return true;
}

Flow* FlowTable::State::LongestIdle() const {
  Flow* longest = nullptr;
  for (const IndexList* list : {&udp_idle, &tcp_closing, &tcp_idle}) {
    if (list->empty()) continue;
    Flow* flow = store.pool().At(list->front());
    if (longest == nullptr || flow->last_seen_ns < longest->last_seen_ns) longest = flow;
  }
  return longest;
}

Sender FlowTable::State::SenderByPort(const packet::Datagram& datagram) const {
  const bool source = dns_ports.test(datagram.source_port);
  const bool destination = dns_ports.test(datagram.destination_port);
  if (source == destination) return Sender::kUnknown;
  return source ? Sender::kServer : Sender::kClient;
}

// Once per flow. Whoever is not known to be the server is the client.
void FlowTable::State::Orient(Flow* flow, bool from_local, Sender sender) const {
  if (from_local == (sender == Sender::kServer)) SwapEndpoints(flow);
  flow->descriptor.client_side = kClientIsLocal;
  flow->oriented = true;
  listener->OnNewFlow(flow);
}

void FlowTable::State::OnStreamMessage(Flow* flow, bool from_local, const CutMessage& message) {
  if (!flow->oriented) {
    const Sender sender = message.snap < 2 ? Sender::kUnknown : SenderOf(message.data + 2, message.snap - 2);
    Orient(flow, from_local, sender);
    from_local = sender != Sender::kServer;
  }
  ++counts.tcp_messages;
  if (message.snap < message.nominal) ++counts.tcp_cut_messages;
  if (flow != current) SettleLater(flow);
  listener->OnMessage({.flow = flow,
                       .from_client = from_local,
                       .time_ns = message.time_ns,
                       .data = message.data,
                       .snap_length = static_cast<int>(message.snap),
                       .nominal_length = static_cast<int>(message.nominal)});
}

IndexList* FlowTable::State::ListOf(Place place) {
  if (place == Place::kUdpIdle) return &udp_idle;
  if (place == Place::kTcpIdle) return &tcp_idle;
  return place == Place::kTcpClosing ? &tcp_closing : nullptr;
}

void FlowTable::State::TakeOut(Flow* flow) {
  if (IndexList* list = ListOf(flow->place)) list->Remove(flow->number);
  flow->place = Place::kBusy;
}

void FlowTable::State::PutInto(Flow* flow, Place place) {
  if (flow->place != place) TakeOut(flow);
  ListOf(place)->MoveToBack(flow->number);
  flow->place = place;
}

// After a flow got messages or lost its open queries: where it waits, or whether it goes. Most UDP flows go with
// their response and have never been in a list.
void FlowTable::State::Settle(Flow* flow) {
  if (flow->place == Place::kSettling) return;  // SettleAll comes to it
  if (flow->open_queries > 0) return TakeOut(flow);
  if (flow->tcp != nullptr) return PutInto(flow, flow->tcp->closed ? Place::kTcpClosing : Place::kTcpIdle);
  if (flow->kept) return PutInto(flow, Place::kUdpIdle);
  Drop(flow);
}

void FlowTable::State::SettleLater(Flow* flow) {
  if (flow->place == Place::kSettling || flow->place == Place::kFree) return;
  TakeOut(flow);
  settling.push_back(flow);
  flow->place = Place::kSettling;
}

void FlowTable::State::SettleAll() {
  while (!settling.empty()) {
    Flow* flow = settling.back();
    settling.pop_back();
    flow->place = Place::kBusy;
    Settle(flow);
  }
}

// Hands on what is left of the flow and drops it; false when it has open queries and therefore stays.
bool FlowTable::State::End(Flow* flow) {
  const AsCurrent as_current(&current, flow);
  if (flow->tcp != nullptr) tracker.End(flow);
  if (flow->open_queries == 0) {
    Drop(flow);
    return true;
  }
  Settle(flow);
  return false;
}

void FlowTable::State::Drop(Flow* flow) {
  TakeOut(flow);
  tracker.Forget(flow);
  if (flow->oriented) listener->OnEndOfFlow(flow);
  store.Drop(flow);
}

void FlowTable::State::DropIdle(Place place, int64_t now_ns, int64_t limit_ns) {
  const IndexList& list = *ListOf(place);
  while (!list.empty()) {
    Flow* flow = store.pool().At(list.front());
    if (!HasElapsed(flow->last_seen_ns, now_ns, limit_ns)) return;
    End(flow);
  }
}

}  // namespace flow
