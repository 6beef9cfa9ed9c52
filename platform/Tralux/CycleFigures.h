// Elapsed-cycle figures of one timed call site: count, total, extremes and a log2 histogram.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Tralux {

// The call site is timed from one activity thread, so every figure is updated with a relaxed
// load followed by a relaxed store rather than a read-modify-write: that keeps the hot path free
// of locked instructions. Should a second thread time the same call site, each figure stays a
// value one of the threads wrote (no data race, nothing torn) but concurrent samples may be lost,
// and count, total and histogram may then disagree slightly; readers must not assume they sum up.
class CycleFigures {
 public:
  static constexpr std::size_t kBuckets = 32;

  void record(std::uint64_t cycles) noexcept {
    bump(count_, 1);
    bump(total_, cycles);
    if (cycles < min_.load(std::memory_order_relaxed)) min_.store(cycles, kOrder);
    if (cycles > max_.load(std::memory_order_relaxed)) max_.store(cycles, kOrder);
    bump(buckets_[bucketOf(cycles)], 1);
  }

  std::uint64_t count() const { return count_.load(kOrder); }
  std::uint64_t totalCycles() const { return total_.load(kOrder); }
  // 0 while nothing has been recorded.
  std::uint64_t minCycles() const;
  std::uint64_t maxCycles() const { return max_.load(kOrder); }
  std::uint64_t bucketCount(std::size_t bucket) const;
  // An upper estimate from the histogram, kept within [minCycles, maxCycles]; 0 when empty.
  // percent runs from 0 to 100 and is clamped into that range.
  std::uint64_t percentileCycles(double percent) const;
  void reset() noexcept;

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
  static constexpr std::memory_order kOrder = std::memory_order_relaxed;
  static constexpr std::uint64_t kNoMin = std::numeric_limits<std::uint64_t>::max();

  static void bump(std::atomic<std::uint64_t>& figure, std::uint64_t by) noexcept {
    figure.store(figure.load(kOrder) + by, kOrder);
  }

  std::atomic<std::uint64_t> count_{0};
  std::atomic<std::uint64_t> total_{0};
  std::atomic<std::uint64_t> min_{kNoMin};
  std::atomic<std::uint64_t> max_{0};
  std::array<std::atomic<std::uint64_t>, kBuckets> buckets_{};
};

}  // namespace Tralux
