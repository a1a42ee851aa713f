#include "collector/flow/flow_store.h"

#include <algorithm>
#include <utility>

#include "collector/flow/tcp_connection.h"

namespace flow {

namespace {

// All that get_current_context_id is compared with; the collector's own is another one.
constexpr uint32_t kContext = 1;

bool IsScopeless(const packet::Encapsulation& encapsulation) {
  return encapsulation.vlan_count == 0 && encapsulation.tunnel == packet::Tunnel::kNone;
}

struct Endpoint {
  uint32_t address;
  uint16_t port;
};

bool IsBetween(const ParserFlow& flow, Endpoint local, Endpoint remote) {
  return flow.local_ipv4 == local.address && flow.remote_ipv4 == remote.address && flow.local_port == local.port &&
         flow.remote_port == remote.port;
}

}  // namespace

FlowStore::FlowStore(bool tell_scopes_apart, size_t max_surrogates)
    : separate_scopes(tell_scopes_apart), seed(ProcessSeed()), surrogates(max_surrogates) {}

Flow* FlowStore::Find(const packet::Datagram& datagram, Route* route) const {
  *route = Known(datagram);
  if (!route->known) return nullptr;
  const Endpoint source{route->source, datagram.source_port};
  const Endpoint destination{route->destination, datagram.destination_port};
  const uint32_t number = index.Find(route->hash, [&](uint32_t candidate) {
    const ParserFlow& flow = flows.At(candidate)->descriptor;
    return flow.transport == datagram.transport &&
           (IsBetween(flow, source, destination) || IsBetween(flow, destination, source));
  });
  return number == HashIndex::kNone ? nullptr : flows.At(number);
}

Flow* FlowStore::Create(const packet::Datagram& datagram, Route route) {
  if (!route.plain) route = Acquire(datagram);
  if (!route.known) return nullptr;
  Flow* flow = flows.Take();
  ParserFlow& descriptor = flow->descriptor;
  descriptor.local_ipv4 = route.source;
  descriptor.remote_ipv4 = route.destination;
  descriptor.local_port = datagram.source_port;
  descriptor.remote_port = datagram.destination_port;
  descriptor.transport = datagram.transport;
  descriptor.context_id = kContext;
  flow->client = datagram.source;
  flow->server = datagram.destination;
  flow->encapsulation = datagram.encapsulation;
  flow->place = Place::kBusy;
  index.Insert(route.hash, flow->number);
  return flow;
}

void FlowStore::Drop(Flow* flow) {
  const ParserFlow& descriptor = flow->descriptor;
  index.Erase(Hash(descriptor.local_ipv4, descriptor.local_port, descriptor.remote_ipv4, descriptor.remote_port,
                   descriptor.transport),
              flow->number);
  surrogates.Release(descriptor.local_ipv4);
  surrogates.Release(descriptor.remote_ipv4);
  flows.Give(flow);
}

uint32_t FlowStore::Prefetch(const packet::Datagram& datagram) const {
  if (!HasPlainEndpoints(datagram)) return 0;
  const uint32_t hash = Hash({datagram.source.Ipv4(), datagram.destination.Ipv4()}, datagram);
  index.Prefetch(hash);
  return hash;
}

const Flow* FlowStore::PrefetchFlow(uint32_t hash) const {
  const uint32_t number = index.Guess(hash);
  if (number == HashIndex::kNone) return nullptr;
  const Flow* flow = flows.At(number);
  const auto* line = reinterpret_cast<const char*>(flow);
  for (size_t at = 0; at < sizeof(Flow); at += 64) __builtin_prefetch(line + at);
  return flow;
}

// The two directions of a GTP tunnel carry identifiers of their own, so they cannot tell conversations apart.
packet::Encapsulation FlowStore::Scope(const packet::Datagram& datagram) const {
  if (!separate_scopes) return {};
  packet::Encapsulation scope = datagram.encapsulation;
  if (scope.tunnel == packet::Tunnel::kGtp) scope.tunnel_id = 0;
  return scope;
}

// 0.0.0.0 stays what it is, wherever it was seen: the parser takes it for an unknown client.
bool FlowStore::NeedsSurrogate(const packet::Address& address, const packet::Encapsulation& scope) const {
  if (address.version == 6) return true;
  if (address.Ipv4() == 0) return false;
  return Surrogates::IsInRange(address.Ipv4()) || (separate_scopes && !IsScopeless(scope));
}

bool FlowStore::HasPlainEndpoints(const packet::Datagram& datagram) const {
  return !NeedsSurrogate(datagram.source, datagram.encapsulation) &&
         !NeedsSurrogate(datagram.destination, datagram.encapsulation);
}

FlowStore::Route FlowStore::Known(const packet::Datagram& datagram) const {
  Route route{.source = datagram.source.Ipv4(), .destination = datagram.destination.Ipv4(), .known = true};
  route.plain = HasPlainEndpoints(datagram);
  if (!route.plain) {
    const auto look_up = [&](const packet::Address& address, uint32_t* known_as) {
      if (!NeedsSurrogate(address, datagram.encapsulation)) return;
      *known_as = surrogates.Find({address, Scope(datagram)});
      if (*known_as == Surrogates::kNone) route.known = false;
    };
    look_up(datagram.source, &route.source);
    look_up(datagram.destination, &route.destination);
  }
  route.hash = Hash(route, datagram);
  return route;
}

FlowStore::Route FlowStore::Acquire(const packet::Datagram& datagram) {
  Route route{.source = datagram.source.Ipv4(), .destination = datagram.destination.Ipv4(), .known = true};
  const auto acquire = [&](const packet::Address& address, uint32_t* known_as) {
    if (!NeedsSurrogate(address, datagram.encapsulation)) return;
    *known_as = surrogates.Acquire({address, Scope(datagram)});
    if (*known_as == Surrogates::kNone) route.known = false;
  };
  acquire(datagram.source, &route.source);
  acquire(datagram.destination, &route.destination);
  route.hash = Hash(route, datagram);
  if (!route.known) {
    surrogates.Release(route.source);
    surrogates.Release(route.destination);
  }
  return route;
}

uint32_t FlowStore::Hash(const Route& route, const packet::Datagram& datagram) const {
  return Hash(route.source, datagram.source_port, route.destination, datagram.destination_port, datagram.transport);
}

uint32_t FlowStore::Hash(uint32_t source, uint16_t source_port, uint32_t destination, uint16_t destination_port,
                         uint8_t transport) const {
  const uint64_t from = (uint64_t{source} << 16) | source_port;
  const uint64_t to = (uint64_t{destination} << 16) | destination_port;
  const uint64_t low = std::min(from, to) | (uint64_t{transport} << 48);
  return Fold(Mix(low ^ seed.first, std::max(from, to) ^ seed.second));
}

bool IsFromLocal(const Flow& flow, const packet::Datagram& datagram) {
  const ParserFlow& descriptor = flow.descriptor;
  if (descriptor.local_port != descriptor.remote_port) return descriptor.local_port == datagram.source_port;
  return flow.client == datagram.source;
}

void SwapEndpoints(Flow* flow) {
  ParserFlow& descriptor = flow->descriptor;
  std::swap(descriptor.local_ipv4, descriptor.remote_ipv4);
  std::swap(descriptor.local_port, descriptor.remote_port);
  std::swap(flow->client, flow->server);
  if (flow->tcp != nullptr) flow->tcp->first_is_local = !flow->tcp->first_is_local;
}

}  // namespace flow
