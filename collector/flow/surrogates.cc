#include "collector/flow/surrogates.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace flow {

namespace {

constexpr uint32_t kRange = 0xF0000000;  // 240.0.0.0/4

uint32_t ToSurrogate(uint32_t entry) { return htonl(kRange | entry); }
uint32_t ToEntry(uint32_t surrogate) { return ntohl(surrogate) & ~kRange; }

uint64_t Word(const uint8_t* octets) {
  uint64_t word;
  std::memcpy(&word, octets, sizeof word);
  return word;
}

uint64_t ScopeWord(const packet::Encapsulation& scope) {
  uint64_t tags;
  static_assert(sizeof tags == sizeof scope.vlan);
  std::memcpy(&tags, scope.vlan.data(), sizeof tags);
  const uint64_t rest =
      (uint64_t{scope.tunnel_id} << 16) | (uint64_t{static_cast<uint8_t>(scope.tunnel)} << 8) | scope.vlan_count;
  return tags ^ (rest * 0x9e3779b97f4a7c15);
}

}  // namespace

Surrogates::Surrogates(size_t most) : limit(std::min(most, kMost)), seed(ProcessSeed()) {}

uint32_t Surrogates::Find(const ScopedAddress& endpoint) const {
  const uint32_t entry = FindEntry(Hash(endpoint), endpoint);
  return entry == HashIndex::kNone ? kNone : ToSurrogate(entry);
}

uint32_t Surrogates::Acquire(const ScopedAddress& endpoint) {
  const uint32_t hash = Hash(endpoint);
  uint32_t entry = FindEntry(hash, endpoint);
  if (entry == HashIndex::kNone) {
    entry = FreeEntry();
    if (entry == HashIndex::kNone) return kNone;
    entries[entry] = {endpoint, hash, 0};
    index.Insert(hash, entry);
  }
  ++entries[entry].users;
  return ToSurrogate(entry);
}

void Surrogates::Release(uint32_t surrogate) {
  if (!IsInRange(surrogate)) return;
  const uint32_t entry = ToEntry(surrogate);
  if (entry >= entries.size() || entries[entry].users == 0) return;
  if (--entries[entry].users > 0) return;
  index.Erase(entries[entry].hash, entry);
  free_entries.push_back(entry);
}

uint32_t Surrogates::Hash(const ScopedAddress& endpoint) const {
  const uint8_t* octets = endpoint.address.octets.data();
  const uint64_t address =
      Mix(Word(octets) ^ seed.first, Word(octets + 8) ^ seed.second ^ endpoint.address.version);
  return Fold(Mix(address ^ seed.second, ScopeWord(endpoint.scope) ^ seed.first));
}

uint32_t Surrogates::FindEntry(uint32_t hash, const ScopedAddress& endpoint) const {
  return index.Find(hash, [&](uint32_t entry) { return entries[entry].endpoint == endpoint; });
}

uint32_t Surrogates::FreeEntry() {
  if (!free_entries.empty()) {
    const uint32_t entry = free_entries.back();
    free_entries.pop_back();
    return entry;
  }
  if (entries.size() >= limit) return HashIndex::kNone;
  entries.emplace_back();
  return static_cast<uint32_t>(entries.size() - 1);
}

}  // namespace flow
