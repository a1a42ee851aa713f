#pragma once

#include <cstdint>
#include <string_view>

namespace flow {

// Two random words, the same for the whole life of the process: whoever sends packets cannot choose them so that
// they pile up in one corner of a table. Nothing that is printed depends on them.
struct HashSeed {
  uint64_t first;
  uint64_t second;
};
HashSeed ProcessSeed();

__extension__ using Uint128 = unsigned __int128;

// Both halves of the product, folded: every bit of the result depends on every bit of both words.
inline uint64_t Mix(uint64_t a, uint64_t b) {
  const Uint128 product = static_cast<Uint128>(a) * b;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

// Half the bits, mixed once more: after a single Mix, one seed in two hundred lets neighbouring keys crowd
// together.
inline uint32_t Fold(uint64_t hash) {
  return static_cast<uint32_t>(((hash ^ (hash >> 32)) * 0x9e3779b97f4a7c15) >> 32);
}

// Of a text's bytes, under the process's seed; another for each `salt`.
uint64_t HashText(std::string_view text, const HashSeed& seed, uint64_t salt = 0);

}  // namespace flow
