#include "collector/flow/hash.h"

#include <sys/auxv.h>

#include <cstring>

namespace flow {

// The kernel gives every process 16 random bytes at its start; reading them needs no system call, so it works in
// a sandbox too.
HashSeed ProcessSeed() {
  HashSeed seed{0x9e3779b97f4a7c15, 0xd1b54a32d192ed03};
  HashSeed random{};
  if (const auto* bytes = reinterpret_cast<const uint8_t*>(getauxval(AT_RANDOM))) {
    std::memcpy(&random, bytes, sizeof random);
  }
  seed.first ^= random.first;
  seed.second ^= random.second;
  return seed;
}

}  // namespace flow
