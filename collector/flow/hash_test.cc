#include "collector/flow/hash.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>

using flow::Fold;
using flow::Mix;

TEST_CASE("the seed stays the same for the life of the process") {
  CHECK(flow::ProcessSeed().first == flow::ProcessSeed().first);
  CHECK(flow::ProcessSeed().second == flow::ProcessSeed().second);
  CHECK(flow::ProcessSeed().first != flow::ProcessSeed().second);
}

TEST_CASE("every bit of both words moves the hash") {
  const auto [first, second] = flow::ProcessSeed();
  const uint64_t hash = Mix(first, second);
  for (int bit = 0; bit < 64; ++bit) {
    CAPTURE(bit);
    CHECK(Mix(first ^ (uint64_t{1} << bit), second) != hash);
    CHECK(Mix(first, second ^ (uint64_t{1} << bit)) != hash);
  }
}

TEST_CASE("neighbouring keys spread over a small table, whatever the seed") {
  std::mt19937_64 random(1);
  for (int trial = 0; trial < 300; ++trial) {
    CAPTURE(trial);
    const uint64_t first = random();
    const uint64_t second = random();
    std::map<uint32_t, int> slots;
    for (uint64_t key = 0; key < 4096; ++key) ++slots[Fold(Mix(key ^ first, second)) % 1024];
    CHECK(slots.size() > 900);
    int most = 0;
    for (const auto& [slot, keys] : slots) most = std::max(most, keys);
    CHECK(most < 24);
  }
}

TEST_CASE("texts that differ in a letter, their length or their salt have different hashes") {
  const flow::HashSeed seed = flow::ProcessSeed();
  const std::string text = "a name of some length.example";
  const uint64_t hash = flow::HashText(text, seed);
  CHECK(flow::HashText(text, seed) == hash);
  CHECK(flow::HashText(text, seed, 1) != hash);
  for (size_t at = 0; at < text.size(); ++at) {
    std::string other = text;
    ++other[at];
    CHECK(flow::HashText(other, seed) != hash);
    CHECK(flow::HashText(text.substr(0, at), seed) != hash);
  }
  CHECK(flow::HashText(text + std::string(1, '\0'), seed) != hash);
}
