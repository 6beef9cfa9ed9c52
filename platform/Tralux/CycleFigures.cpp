#include "Tralux/CycleFigures.h"

#include <algorithm>
#include <cmath>

namespace Tralux {

std::uint64_t CycleFigures::minCycles() const {
  const std::uint64_t min = min_.load(kOrder);
  return min == kNoMin ? 0 : min;
}

std::uint64_t CycleFigures::bucketCount(std::size_t bucket) const {
  return bucket < kBuckets ? buckets_[bucket].load(kOrder) : 0;
}

std::uint64_t CycleFigures::percentileCycles(double percent) const {
  // The buckets, not count(), decide the rank: a racing writer may have left the two apart.
  std::uint64_t samples = 0;
  for (const auto& bucket : buckets_) samples += bucket.load(kOrder);
  if (samples == 0) return 0;
  const double fraction = std::clamp(std::isnan(percent) ? 0.0 : percent, 0.0, 100.0) / 100.0;
  const auto wanted =
      static_cast<std::uint64_t>(std::ceil(fraction * static_cast<double>(samples)));
  const std::uint64_t rank = std::max<std::uint64_t>(wanted, 1);
  std::uint64_t seen = 0;
  std::size_t bucket = 0;
  for (; bucket < kBuckets - 1; ++bucket) {
    seen += buckets_[bucket].load(kOrder);
    if (seen >= rank) break;
  }
  return std::clamp(bucketCeiling(bucket), minCycles(), std::max(minCycles(), maxCycles()));
}

void CycleFigures::reset() noexcept {
  count_.store(0, kOrder);
  total_.store(0, kOrder);
  min_.store(kNoMin, kOrder);
  max_.store(0, kOrder);
  for (auto& bucket : buckets_) bucket.store(0, kOrder);
}

}  // namespace Tralux
