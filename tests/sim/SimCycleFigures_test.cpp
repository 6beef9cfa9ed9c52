#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

#include "CycleFigures.h"

namespace MorvikSim {
namespace {

TEST(SimCycleFigures, BucketsSplitAtPowersOfTwoAndPercentilesReadThem) {
  const std::pair<std::uint64_t, std::size_t> buckets[] = {
      {0, 0},           {1, 1},     {2, 2}, {3, 2}, {4, 3}, {(1ull << 30) - 1, 30},
      {1ull << 30, 31}, {~0ull, 31}};
  for (const auto& [cycles, bucket] : buckets) EXPECT_EQ(CycleFigures::bucketOf(cycles), bucket);
  CycleFigures figures;
  EXPECT_EQ(figures.percentileCycles(99), 0u);
  EXPECT_EQ(figures.minCycles(), 0u);
  for (std::uint64_t cycles = 100; cycles >= 1; --cycles) figures.record(cycles);
  EXPECT_EQ(figures.minCycles(), 1u);
  EXPECT_EQ(figures.totalCycles(), 5050u);
  EXPECT_EQ(figures.bucketCount(7), 37u);
  const std::pair<double, std::uint64_t> percentiles[] = {
      {0, 1}, {2, 3}, {50, 63}, {63, 63}, {64, 100}, {100, 100}, {-5, 1}, {250, 100}};
  for (const auto& [percent, cycles] : percentiles) {
    EXPECT_EQ(figures.percentileCycles(percent), cycles) << percent;
  }
  figures.record(1ull << 40);
  EXPECT_EQ(figures.bucketCount(CycleFigures::kBuckets - 1), 1u);
  EXPECT_EQ(figures.percentileCycles(100), 1ull << 40);
}

}  // namespace
}  // namespace MorvikSim
