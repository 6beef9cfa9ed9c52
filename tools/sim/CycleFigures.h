#ifndef MORVIK_SIM_CYCLEFIGURES_H
#define MORVIK_SIM_CYCLEFIGURES_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace MorvikSim {

// Elapsed-cycle figures of one timed call site: count, total, extremes and a log2 histogram, so
// that a run of any length keeps them in constant space. Fed from the activity thread only.
class CycleFigures {
 public:
  static constexpr std::size_t kBuckets = 32;

  void record(std::uint64_t cycles);

  std::uint64_t count() const { return count_; }
  std::uint64_t totalCycles() const { return total_; }
  // 0 while nothing has been recorded.
  std::uint64_t minCycles() const { return count_ == 0 ? 0 : min_; }
  std::uint64_t maxCycles() const { return max_; }
  std::uint64_t bucketCount(std::size_t bucket) const {
    return bucket < kBuckets ? buckets_[bucket] : 0;
  }
  // An upper estimate from the histogram, kept within [minCycles, maxCycles]; 0 when empty.
  // percent runs from 0 to 100 and is clamped into that range.
  std::uint64_t percentileCycles(double percent) const;

  // Bucket 0 holds 0 cycles; bucket b holds [2^(b-1), 2^b - 1]; the last one everything above.
  static constexpr std::size_t bucketOf(std::uint64_t cycles) {
    const auto width = static_cast<std::size_t>(std::bit_width(cycles));
    return width < kBuckets ? width : kBuckets - 1;
  }
  static constexpr std::uint64_t bucketCeiling(std::size_t bucket) {
    if (bucket >= kBuckets - 1) return std::numeric_limits<std::uint64_t>::max();
    return (std::uint64_t{1} << bucket) - 1;
  }

 private:
  std::uint64_t count_ = 0;
  std::uint64_t total_ = 0;
  std::uint64_t min_ = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t max_ = 0;
  std::array<std::uint64_t, kBuckets> buckets_{};
};

}  // namespace MorvikSim

#endif
