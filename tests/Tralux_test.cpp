// Call-site descriptors, the registry, block timing and per-thread trace files.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "Tralux/Tralux.h"

namespace {

using Tralux::CycleFigures;
using Tralux::MsgDesc;

std::unique_ptr<MsgDesc> finishedDesc(std::uint32_t* id, std::string_view text) {
  auto desc = std::make_unique<MsgDesc>(nullptr, id, "Tralux_test", 1, true);
  *desc << text;
  desc->finish();
  return desc;
}

TEST(TraluxMsgDesc, FinishRegistersOnceUnderAFreshIdUntilDestroyed) {
  std::uint32_t firstId = 0, secondId = 0;
  MsgDesc first(nullptr, &firstId, "MorvikLib", 42, true);
  first << "TraluxTest" << std::string_view(" sh") << "ared" << 4 << ' ' << -7;
  EXPECT_EQ(Tralux::findCallSite("TraluxTest shared4 -7"), nullptr);
  first.finish();
  first.finish();
  EXPECT_NE(firstId, 0u);
  EXPECT_EQ(first.messageId(), firstId);
  EXPECT_STREQ(first.file(), "MorvikLib");
  EXPECT_EQ(first.line(), 42);
  auto second = finishedDesc(&secondId, "TraluxTest shared4 -7");
  EXPECT_NE(secondId, firstId);
  EXPECT_EQ(Tralux::findCallSite("TraluxTest shared4 -7"), &first) << "the earliest site wins";
  const MsgDesc* gone = second.get();
  second.reset();
  for (const MsgDesc* site : Tralux::registeredCallSites()) EXPECT_NE(site, gone);
  EXPECT_EQ(Tralux::findCallSite("TraluxTest shared4 -7 "), nullptr);
}

TEST(TraluxMsgDescDeathTest, PiecesAfterFinishAbort) {
  std::uint32_t id = 0;
  auto desc = finishedDesc(&id, "TraluxTest frozen");
  EXPECT_DEATH(*desc << "late", "Tralux assertion failed: !finished\\(\\)");
}

TEST(TraluxBlockTimer, RecordsNormalExitsAndExitsByExceptionWhileEnabled) {
  std::uint32_t id = 0;
  auto desc = finishedDesc(&id, "TraluxTest exits");
  for (int run = 0; run < 3; ++run) Tralux::BlockTimer timer(*desc);
  EXPECT_THROW(
      {
        Tralux::BlockTimer timer(*desc);
        throw std::runtime_error("leaving by exception");
      },
      std::runtime_error);
  desc->enabledIs(false);
  { Tralux::BlockTimer timer(*desc); }
  EXPECT_EQ(desc->count(), 4u);
  std::uint64_t inBuckets = 0;
  for (std::size_t b = 0; b < CycleFigures::kBuckets; ++b) inBuckets += desc->bucketCount(b);
  EXPECT_EQ(inBuckets, 4u);
  EXPECT_LE(desc->minCycles(), desc->maxCycles());
  EXPECT_GE(desc->totalCycles(), desc->maxCycles());
}

TEST(TraluxCycleFigures, BucketsSplitAtPowersOfTwoAndPercentilesReadThem) {
  const std::pair<std::uint64_t, std::size_t> buckets[] = {
      {0, 0},           {1, 1},     {2, 2}, {3, 2}, {4, 3}, {(1ull << 30) - 1, 30},
      {1ull << 30, 31}, {~0ull, 31}};
  for (const auto& [cycles, bucket] : buckets) EXPECT_EQ(CycleFigures::bucketOf(cycles), bucket);
  CycleFigures figures;
  EXPECT_EQ(figures.percentileCycles(99), 0u);
  for (std::uint64_t cycles = 1; cycles <= 100; ++cycles) figures.record(cycles);
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
  figures.reset();
  figures.record(1000);
  EXPECT_EQ(figures.minCycles(), 1000u);
  EXPECT_EQ(figures.percentileCycles(1), 1000u);
}

}  // namespace
