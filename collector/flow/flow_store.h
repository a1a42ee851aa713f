#pragma once

#include <cstddef>
#include <cstdint>

#include "collector/flow/flow.h"
#include "collector/flow/flow_pool.h"
#include "collector/flow/hash.h"
#include "collector/flow/hash_index.h"
#include "collector/flow/surrogates.h"
#include "collector/packet/datagram.h"

namespace flow {

// All flows, found by what the parser knows them under: two 32-bit addresses, two ports and the transport, in
// either direction. An IPv4 datagram costs one look-up; other endpoints are looked up among the surrogates first.
class FlowStore {
 public:
  FlowStore(bool tell_scopes_apart, size_t max_surrogates);

  // A datagram's way through the store: what Find learns, Create need not look up again.
  struct Route {
    uint32_t source = 0;
    uint32_t destination = 0;
    uint32_t hash = 0;
    bool plain = false;  // both endpoints stand for themselves
    bool known = false;  // both endpoints have their 32 bits
  };

  // The flow of either direction, or null.
  Flow* Find(const packet::Datagram& datagram, Route* route) const;

  // A new flow for a datagram that has none, by the route that Find gave. The sender is its local endpoint, and it
  // is not oriented. Null when no surrogate is left.
  Flow* Create(const packet::Datagram& datagram, Route route);

  // The flow must hold no connection that others know of.
  void Drop(Flow* flow);

  // Ahead of Find, in two steps with some time between them: asks the cache for the place in the index, then for
  // the flow that seems to be meant. Neither changes anything. The first returns what the second wants; the second
  // returns the flow, or null.
  uint32_t Prefetch(const packet::Datagram& datagram) const;
  const Flow* PrefetchFlow(uint32_t hash) const;

  const FlowPool& pool() const { return flows; }
  size_t SurrogatesInUse() const { return surrogates.size(); }

 private:
  packet::Encapsulation Scope(const packet::Datagram& datagram) const;
  bool NeedsSurrogate(const packet::Address& address, const packet::Encapsulation& scope) const;
  bool HasPlainEndpoints(const packet::Datagram& datagram) const;
  Route Known(const packet::Datagram& datagram) const;
  Route Acquire(const packet::Datagram& datagram);
  uint32_t Hash(const Route& route, const packet::Datagram& datagram) const;
  uint32_t Hash(uint32_t source, uint16_t source_port, uint32_t destination, uint16_t destination_port,
                uint8_t transport) const;

  const bool separate_scopes;
  const HashSeed seed;
  HashIndex index;
  FlowPool flows;
  Surrogates surrogates;
};

// Whether the sender is the flow's local endpoint.
bool IsFromLocal(const Flow& flow, const packet::Datagram& datagram);

// Makes the local endpoint the remote one, on the wire and for the parser. For flows that are not oriented yet.
void SwapEndpoints(Flow* flow);

}  // namespace flow
