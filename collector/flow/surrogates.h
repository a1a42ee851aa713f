#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "collector/flow/hash.h"
#include "collector/flow/hash_index.h"
#include "collector/packet/datagram.h"

namespace flow {

// An address and where it was seen: overlapping address plans are told apart by their tags and tunnels. An empty
// encapsulation where they do not count.
struct ScopedAddress {
  packet::Address address;
  packet::Encapsulation scope;

  friend bool operator==(const ScopedAddress&, const ScopedAddress&) = default;
};

// Stand-ins out of 240.0.0.0/4 (reserved, RFC 1112 4) for endpoints that the parser's 32-bit addresses cannot
// hold. Counts who uses each one; a surrogate is given to the next endpoint only after its last user has left.
// Surrogates lie in memory in network order.
class Surrogates {
 public:
  static constexpr uint32_t kNone = 0;  // 0.0.0.0 is no surrogate
  static constexpr size_t kMost = size_t{1} << 28;

  // At most `most` endpoints at a time, and never more than kMost.
  explicit Surrogates(size_t most);

  // Whether an address of version 4 needs a surrogate of its own, because it could be mistaken for one.
  static bool IsInRange(uint32_t ipv4) {
    // The first octet in memory is the one that counts.
    uint8_t first;
    std::memcpy(&first, &ipv4, 1);
    return first >= 240;
  }

  // The endpoint's surrogate, or kNone when nobody uses it.
  uint32_t Find(const ScopedAddress& endpoint) const;

  // The endpoint's surrogate, with one more user; kNone when all are taken.
  uint32_t Acquire(const ScopedAddress& endpoint);

  // One user less. No effect on an address that is not a surrogate in use.
  void Release(uint32_t surrogate);

  // Endpoints in use.
  size_t size() const { return index.size(); }

 private:
  struct Entry {
    ScopedAddress endpoint;
    uint32_t hash = 0;
    uint32_t users = 0;
  };

  uint32_t Hash(const ScopedAddress& endpoint) const;
  uint32_t FindEntry(uint32_t hash, const ScopedAddress& endpoint) const;
  uint32_t FreeEntry();

  size_t limit;
  HashSeed seed;
  HashIndex index;
  std::vector<Entry> entries;
  std::vector<uint32_t> free_entries;  // the last one freed is the next one used: it is still in the cache
};

}  // namespace flow
