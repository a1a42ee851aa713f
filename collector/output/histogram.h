#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace output {

// Counts values of any size in little memory, for percentiles that are off by less than one percent. Values below
// 128 have a bucket each; above, each power of two is cut into 64 buckets.
class Histogram {
 public:
  // Negative values (a clock that stepped back) count as 0.
  void Add(int64_t value);
  void Add(const Histogram& other);

  uint64_t count() const { return total; }
  int64_t max() const { return largest; }  // exact; 0 without values

  // The value that this share (0 to 1) of all values does not exceed: 0.5 is the median. 0 without values.
  int64_t Quantile(double share) const;

  // Calls visit(value, count) for the buckets that hold any, the smallest values first. The value stands for all of
  // the bucket's, as in Quantile.
  void ForEach(const std::function<void(int64_t, uint64_t)>& visit) const;

 private:
  std::vector<uint64_t> buckets;  // as many as the largest value needs
  uint64_t total = 0;
  int64_t largest = 0;
};

}  // namespace output
