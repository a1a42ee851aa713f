#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "collector/output/heavy_hitters.h"
#include "collector/output/largest.h"
#include "collector/output/summary.h"
#include "collector/plugin/exchange.h"

namespace top {

// What exchanges are told apart by.
enum class Subject : uint8_t { kName, kClient, kServer };
inline constexpr size_t kSubjects = 3;

// What decides who stands first: how often it was asked; how often that failed or stayed unanswered; its slowest
// response.
enum class Order : uint8_t { kBusiest, kFailing, kSlowest };
inline constexpr size_t kOrders = 3;

// One name, client or server, with what is known of it.
struct Row {
  std::string key;      // as lists are kept: labels, or an address (see output/keys.h)
  bool counted = true;  // otherwise the counts are unknown: others came so often that it was forgotten
  uint64_t exchanges = 0;
  uint64_t failed = 0;     // answered, but without success
  uint64_t timed_out = 0;  // not answered
  int64_t mean_us = 0;     // response times; both 0 when nothing was answered
  int64_t slowest_us = 0;
};

// The lists of one subject. Counts are never too high; where there are more keys than are kept they may be too low,
// and a key that makes up less than 1/keys of them may be missing.
class Ranking {
 public:
  explicit Ranking(size_t keys);

  void Add(std::string_view key, const plugin::Exchange& exchange);
  void Add(const Ranking& other);

  // The first ones in this order; equal ones by key. Who never failed, or was never answered, is not failing or
  // slow.
  std::vector<Row> First(Order order, size_t most) const;

  size_t Keys() const { return asked.size() + troubled.size() + slow.All().size(); }

 private:
  struct Tally {
    uint64_t exchanges = 0;
    uint64_t failed = 0;
    uint64_t timed_out = 0;
    int64_t time_us = 0;  // of all that were answered
    int64_t slowest_us = 0;

    void Add(const plugin::Exchange& exchange);
    void Add(const Tally& other);
  };
  using Tallies = output::HeavyHitters<Tally>;

  static void Merge(const Tallies& from, Tallies* into);
  static Row RowOf(const std::string& key, const Tally& tally);
  std::vector<Row> Candidates(Order order) const;

  Tallies asked;
  Tallies troubled;  // a list of their own, or those who fail rarely would be lost among those who ask often
  output::Largest slow;
};

// What came of the exchanges of some time, in bounded memory however many they were.
class Slice {
 public:
  // Keeps at most this many names, clients and servers for each order.
  explicit Slice(size_t keys);

  void Add(const plugin::Exchange& exchange);
  void Add(const Slice& other);

  const output::Summary::Tally& all() const { return total; }
  const Ranking& Of(Subject subject) const { return rankings[static_cast<size_t>(subject)]; }
  size_t Keys() const;

 private:
  Ranking& RankingOf(Subject subject) { return rankings[static_cast<size_t>(subject)]; }

  output::Summary::Tally total;
  std::array<Ranking, kSubjects> rankings;
  std::string name;  // of the exchange at hand
};

}  // namespace top
