#include "collector/top/slice.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "collector/output/keys.h"
#include "collector/output/question.h"

namespace top {
namespace {

constexpr size_t kMostSlow = 64;  // of a list; the longest screen shows fewer

// What the rows of an order are compared by, the largest first.
std::tuple<uint64_t, uint64_t> Rank(Order order, const Row& row) {
  switch (order) {
    case Order::kBusiest:
      return {row.exchanges, 0};
    case Order::kFailing:
      return {row.failed + row.timed_out, row.exchanges};
    case Order::kSlowest:
      return {static_cast<uint64_t>(row.slowest_us), 0};
  }
  return {};
}

// Captures may hold times from the ends of all clocks: a sum that does not fit stays at its end.
void AddTime(int64_t* sum, int64_t time) {
  using Limits = std::numeric_limits<int64_t>;
  if (__builtin_add_overflow(*sum, time, sum)) *sum = time < 0 ? Limits::min() : Limits::max();
}

}  // namespace

void Ranking::Tally::Add(const plugin::Exchange& exchange) {
  ++exchanges;
  if (exchange.status == plugin::Status::kTimeout) {
    ++timed_out;
    return;
  }
  if (exchange.result_code != 0) ++failed;
  AddTime(&time_us, exchange.rtt_us);
  slowest_us = std::max(slowest_us, exchange.rtt_us);
}

void Ranking::Tally::Add(const Tally& other) {
  exchanges += other.exchanges;
  failed += other.failed;
  timed_out += other.timed_out;
  AddTime(&time_us, other.time_us);
  slowest_us = std::max(slowest_us, other.slowest_us);
}

Ranking::Ranking(size_t keys) : asked(keys), troubled(keys), slow(kMostSlow) {}

void Ranking::Add(std::string_view key, const plugin::Exchange& exchange) {
  asked.Count(key)->Add(exchange);
  if (exchange.status != plugin::Status::kTimeout) slow.Add(key, exchange.rtt_us);
  if (exchange.result_code != 0) troubled.Count(key)->Add(exchange);
}

void Ranking::Add(const Ranking& other) {
  Merge(other.asked, &asked);
  Merge(other.troubled, &troubled);
  for (const output::Largest::Entry& entry : other.slow.All()) slow.Add(entry.key, entry.value);
}

// What a key inherited from another is left behind: the payload knows what was its own.
void Ranking::Merge(const Tallies& from, Tallies* into) {
  for (const Tallies::Entry& entry : from.All()) {
    into->CountTimes(entry.key, entry.payload.exchanges)->Add(entry.payload);
  }
}

Row Ranking::RowOf(const std::string& key, const Tally& tally) {
  const auto answered = static_cast<int64_t>(tally.exchanges - tally.timed_out);
  return {key,
          true,
          tally.exchanges,
          tally.failed,
          tally.timed_out,
          answered == 0 ? 0 : tally.time_us / answered,
          tally.slowest_us};
}

std::vector<Row> Ranking::Candidates(Order order) const {
  std::vector<Row> rows;
  const auto row_of = [this](const std::string& key) {
    const Tallies::Entry* entry = asked.Find(key);
    return entry == nullptr ? Row{key, false} : RowOf(key, entry->payload);
  };
  if (order == Order::kBusiest) {
    for (const Tallies::Entry& entry : asked.All()) rows.push_back(RowOf(entry.key, entry.payload));
  } else if (order == Order::kFailing) {
    for (const Tallies::Entry& entry : troubled.All()) {
      rows.push_back(row_of(entry.key));
      rows.back().failed = std::max(rows.back().failed, entry.payload.failed);
      rows.back().timed_out = std::max(rows.back().timed_out, entry.payload.timed_out);
    }
  } else {
    for (const output::Largest::Entry& entry : slow.All()) {
      rows.push_back(row_of(entry.key));
      rows.back().slowest_us = entry.value;
    }
  }
  return rows;
}

std::vector<Row> Ranking::First(Order order, size_t most) const {
  std::vector<Row> rows = Candidates(order);
  const auto end = rows.begin() + static_cast<std::ptrdiff_t>(std::min(most, rows.size()));
  std::partial_sort(rows.begin(), end, rows.end(), [order](const Row& one, const Row& other) {
    const auto a = Rank(order, one);
    const auto b = Rank(order, other);
    return a != b ? a > b : one.key < other.key;
  });
  rows.erase(end, rows.end());
  return rows;
}

Slice::Slice(size_t keys) : rankings{Ranking(keys), Ranking(keys), Ranking(keys)} {}

// The name is that of the first question.
void Slice::Add(const plugin::Exchange& exchange) {
  total.Add(exchange);
  RankingOf(Subject::kClient).Add(output::AddressKey(*exchange.client), exchange);
  RankingOf(Subject::kServer).Add(output::AddressKey(*exchange.server), exchange);
  output::QuestionReader question(exchange.question);
  if (!question.Next()) return;
  output::FoldName(question.name(), &name);
  RankingOf(Subject::kName).Add(name, exchange);
}

void Slice::Add(const Slice& other) {
  total.Add(other.total);
  for (size_t i = 0; i < kSubjects; ++i) rankings[i].Add(other.rankings[i]);
}

size_t Slice::Keys() const {
  size_t keys = 0;
  for (const Ranking& ranking : rankings) keys += ranking.Keys();
  return keys;
}

}  // namespace top
