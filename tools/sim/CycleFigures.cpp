#include "CycleFigures.h"

#include <algorithm>
#include <cmath>

namespace MorvikSim {

void CycleFigures::record(std::uint64_t cycles) {
  ++count_;
  total_ += cycles;
  min_ = std::min(min_, cycles);
  max_ = std::max(max_, cycles);
  ++buckets_[bucketOf(cycles)];
}

std::uint64_t CycleFigures::percentileCycles(double percent) const {
  if (count_ == 0) return 0;
  const double fraction = std::clamp(std::isnan(percent) ? 0.0 : percent, 0.0, 100.0) / 100.0;
  const auto wanted = static_cast<std::uint64_t>(std::ceil(fraction * static_cast<double>(count_)));
  const std::uint64_t rank = std::max<std::uint64_t>(wanted, 1);
  std::uint64_t seen = 0;
  std::size_t bucket = 0;
  for (; bucket < kBuckets - 1; ++bucket) {
    seen += buckets_[bucket];
    if (seen >= rank) break;
  }
  return std::clamp(bucketCeiling(bucket), minCycles(), maxCycles());
}

}  // namespace MorvikSim
