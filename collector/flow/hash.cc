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

// Eight bytes a step; the last ones are filled up with zeros, and the length tells them from zeros of the text.
uint64_t HashText(std::string_view text, const HashSeed& seed, uint64_t salt) {
  uint64_t hash = seed.first ^ salt;
  const char* at = text.data();
  size_t left = text.size();
  for (; left >= sizeof(uint64_t); at += sizeof(uint64_t), left -= sizeof(uint64_t)) {
    uint64_t word;
    std::memcpy(&word, at, sizeof word);
    hash = Mix(hash ^ word, seed.second);
  }
  uint64_t rest = 0;
  std::memcpy(&rest, at, left);
  return Mix(hash ^ rest, seed.second ^ text.size());
}

}  // namespace flow
