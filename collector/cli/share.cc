#include "collector/cli/share.h"

#include <cstring>

#include "collector/flow/hash.h"

namespace cli {
namespace {

uint64_t HashEndpoint(const packet::Address& address, uint16_t port, const flow::HashSeed& seed) {
  uint64_t words[2];
  std::memcpy(words, address.octets.data(), sizeof words);
  return flow::Mix(flow::Mix(words[0] ^ seed.first, words[1] ^ seed.second) ^ port, seed.first);
}

}  // namespace

bool IsOurs(const Share& share, const packet::Datagram& datagram) {
  static const flow::HashSeed kSeed = flow::ProcessSeed();  // workers have it from the process that begot them
  const uint64_t both = HashEndpoint(datagram.source, datagram.source_port, kSeed) +
                        HashEndpoint(datagram.destination, datagram.destination_port, kSeed);
  const uint64_t scaled = uint64_t{flow::Fold(both)} * share.workers;
  return scaled >> 32 == share.worker;
}

}  // namespace cli
