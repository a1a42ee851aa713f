#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "collector/output/heavy_hitters.h"
#include "collector/output/histogram.h"
#include "collector/output/largest.h"
#include "collector/output/metric_groups.h"
#include "collector/plugin/exchange.h"

namespace output {

// How many queries were sent in each second, for the average and the busiest second. Seconds may come in any order
// as long as they are not further apart than the time-outs that reorder them.
class Rate {
 public:
  void Add(int64_t time_ns);

  int64_t first_ns() const { return first; }
  int64_t last_ns() const { return last; }
  double Seconds() const {
    return static_cast<double>(static_cast<uint64_t>(last) - static_cast<uint64_t>(first)) / 1e9;
  }
  uint64_t Peak() const { return peak; }

 private:
  static constexpr size_t kSecondsKept = 1024;
  struct Second {
    int64_t second = -1;
    uint64_t count = 0;
  };

  int64_t first = 0;
  int64_t last = 0;
  bool any = false;
  uint64_t peak = 0;
  std::array<Second, kSecondsKept> seconds{};
};

// What people want to know first of a capture, in bounded memory whatever the number of exchanges and names.
class Summary {
 public:
  // Exchanges of one server, one type, or all of them.
  struct Tally {
    uint64_t answered = 0;  // got a response, whatever it said
    uint64_t failed = 0;    // of these, responses that were no success
    uint64_t timed_out = 0;
    uint64_t open = 0;
    Histogram times_us;  // of the answered ones

    uint64_t Ended() const { return answered + timed_out; }
    void Add(const plugin::Exchange& exchange);
    void Add(const Tally& other);
  };
  struct Nothing {};
  using Tallies = HeavyHitters<Tally>;
  using Counts = HeavyHitters<Nothing>;

  // No name or client that makes up more than a 2,048th of all is missing from its list; where more than 32 will be
  // `listed`, rarer ones are not, either. Each that is counted takes room in the cache: eight times as many would
  // make `summary` 12 to 15 % slower.
  explicit Summary(size_t listed = 0);

  // The parser's record of the exchange that is added next, for the groups.
  void Find(const RequestMetricSpecification* metrics, const EndRequest& record) { groups.Find(metrics, record); }
  void Add(const plugin::Exchange& exchange);

  // Has to be called before the plug-in goes, if Find was.
  void Release() { groups.Release(); }

  // The summary for people, and the same numbers and some more in JSON. Lists have at most `top` entries.
  std::string Text(size_t top) const;
  nlohmann::ordered_json Json(size_t top) const;
  std::string JsonText(size_t top) const;  // indented, with a line feed at its end

  const Tally& Total() const { return all; }

 private:
  void AddNames(const plugin::Exchange& exchange);

  static constexpr size_t kMostServers = 1024;
  static constexpr size_t kMostTypes = 512;
  static constexpr size_t kMostSlow = 100;

  Tally all;
  uint64_t udp = 0;
  uint64_t malformed = 0;
  Rate rate;
  MetricGroups groups;
  Tallies servers{kMostServers};  // by address
  Tally other_servers;            // of those that made room for others
  Tallies types{kMostTypes};      // by number
  Tally other_types;
  Counts clients;  // by address
  Counts names;    // by labels in lower case
  Counts failing;
  Counts unanswered;
  Largest slowest{kMostSlow};
  std::string name;  // of the exchange at hand
};

}  // namespace output
