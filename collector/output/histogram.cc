#include "collector/output/histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace output {
namespace {

constexpr int kSubBits = 6;
constexpr uint64_t kExact = uint64_t{2} << kSubBits;  // below it a bucket holds one value

size_t BucketOf(uint64_t value) {
  if (value < kExact) return value;
  const int shift = static_cast<int>(std::bit_width(value)) - 1 - kSubBits;
  return (static_cast<size_t>(shift) << kSubBits) + (value >> shift);
}

// The middle of a bucket's values.
int64_t ValueOf(size_t bucket) {
  if (bucket < kExact) return static_cast<int64_t>(bucket);
  const auto shift = static_cast<int>((bucket >> kSubBits) - 1);
  const uint64_t first = (bucket - (static_cast<size_t>(shift) << kSubBits)) << shift;
  return static_cast<int64_t>(first + (uint64_t{1} << shift) / 2);
}

}  // namespace

void Histogram::Add(int64_t value) {
  value = std::max<int64_t>(value, 0);
  const size_t bucket = BucketOf(static_cast<uint64_t>(value));
  if (bucket >= buckets.size()) buckets.resize(bucket + 1);
  ++buckets[bucket];
  ++total;
  largest = std::max(largest, value);
}

void Histogram::Add(const Histogram& other) {
  if (other.buckets.size() > buckets.size()) buckets.resize(other.buckets.size());
  for (size_t i = 0; i < other.buckets.size(); ++i) buckets[i] += other.buckets[i];
  total += other.total;
  largest = std::max(largest, other.largest);
}

int64_t Histogram::Quantile(double share) const {
  const auto rank = static_cast<uint64_t>(std::ceil(std::clamp(share, 0.0, 1.0) * static_cast<double>(total)));
  uint64_t seen = 0;
  for (size_t bucket = 0; bucket < buckets.size(); ++bucket) {
    seen += buckets[bucket];
    if (seen >= std::max<uint64_t>(rank, 1)) return std::min(ValueOf(bucket), largest);
  }
  return 0;
}

void Histogram::ForEach(const std::function<void(int64_t, uint64_t)>& visit) const {
  for (size_t bucket = 0; bucket < buckets.size(); ++bucket) {
    if (buckets[bucket] > 0) visit(std::min(ValueOf(bucket), largest), buckets[bucket]);
  }
}

}  // namespace output
