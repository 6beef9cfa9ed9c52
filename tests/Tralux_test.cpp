// Call-site descriptors, the registry, block timing and per-thread trace files.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

#include "Tralux/Tralux.h"

namespace {

using Tralux::CycleFigures;
using Tralux::MsgDesc;

std::size_t sitesWithText(std::string_view text) {
  auto sites = Tralux::registeredCallSites();
  return std::count_if(sites.begin(), sites.end(),
                       [text](const MsgDesc* desc) { return desc->text() == text; });
}

bool isRegistered(const MsgDesc* wanted) {
  auto sites = Tralux::registeredCallSites();
  return std::find(sites.begin(), sites.end(), wanted) != sites.end();
}

std::unique_ptr<MsgDesc> finishedDesc(std::uint32_t* id, std::string_view text) {
  auto desc = std::make_unique<MsgDesc>(nullptr, id, "Tralux_test", 1, true);
  *desc << text;
  desc->finish();
  return desc;
}

// Shaped like a timed library call: the descriptor is declared the first time only.
MsgDesc& timedCallSite() {
  static std::uint32_t messageId = 0;
  static MsgDesc desc(Tralux::defaultTraluxHandle().mtTraceFile(), &messageId, "Tralux_test",
                      __LINE__, true);
  static const bool declared = [] {
    desc << "TraluxTest "
         << "timedCallSite";
    desc.finish();
    return true;
  }();
  static_cast<void>(declared);
  Tralux::BlockTimer timer(desc);
  return desc;
}

TEST(TraluxMsgDesc, IdsAreUniqueNonZeroAndWrittenThroughTheCallersPointer) {
  constexpr std::size_t kSites = 8;
  std::array<std::uint32_t, kSites> ids{};
  std::vector<std::unique_ptr<MsgDesc>> descs;
  std::set<std::uint32_t> seen;
  for (std::size_t i = 0; i < kSites; ++i) {
    descs.push_back(std::make_unique<MsgDesc>(nullptr, &ids[i], "Tralux_test", 1, true));
    EXPECT_EQ(descs[i]->messageId(), 0u);
    *descs[i] << "TraluxTest unique";
    descs[i]->finish();
    EXPECT_NE(ids[i], 0u);
    EXPECT_EQ(ids[i], descs[i]->messageId());
    seen.insert(ids[i]);
  }
  EXPECT_EQ(seen.size(), kSites);
}

TEST(TraluxMsgDesc, TextJoinsPiecesAndSourceIsKept) {
  std::uint32_t id = 0;
  MsgDesc desc(nullptr, &id, "MorvikLib", 42, true);
  desc << "do" << std::string_view("Wr") << "ite" << 42 << ' ' << -7 << 3u
       << static_cast<const char*>(nullptr);
  desc.finish();
  EXPECT_EQ(desc.text(), "doWrite42 -73");
  EXPECT_STREQ(desc.file(), "MorvikLib");
  EXPECT_EQ(desc.line(), 42);
}

TEST(TraluxMsgDesc, FinishingTwiceKeepsTheIdAndOneRegistration) {
  std::uint32_t id = 0;
  auto desc = finishedDesc(&id, "TraluxTest finishTwice");
  const std::uint32_t first = id;
  desc->finish();
  EXPECT_EQ(id, first);
  EXPECT_EQ(desc->messageId(), first);
  EXPECT_EQ(sitesWithText("TraluxTest finishTwice"), 1u);
}

TEST(TraluxMsgDesc, CallSiteIsRegisteredOnceHoweverOftenItRuns) {
  MsgDesc& desc = timedCallSite();
  const std::uint32_t id = desc.messageId();
  desc.resetFigures();
  for (int run = 0; run < 5; ++run) EXPECT_EQ(&timedCallSite(), &desc);
  EXPECT_EQ(desc.messageId(), id);
  EXPECT_EQ(sitesWithText("TraluxTest timedCallSite"), 1u);
  EXPECT_EQ(desc.count(), 5u);
}

TEST(TraluxMsgDesc, RegistryFollowsTheDescriptorsLifetime) {
  std::uint32_t id = 0;
  auto desc = std::make_unique<MsgDesc>(nullptr, &id, "Tralux_test", 1, true);
  *desc << "TraluxTest lifetime";
  EXPECT_EQ(Tralux::findCallSite("TraluxTest lifetime"), nullptr);
  EXPECT_FALSE(isRegistered(desc.get()));
  desc->finish();
  EXPECT_EQ(Tralux::findCallSite("TraluxTest lifetime"), desc.get());
  auto sites = Tralux::registeredCallSites();
  EXPECT_TRUE(std::is_sorted(sites.begin(), sites.end(), [](const MsgDesc* a, const MsgDesc* b) {
    return a->messageId() < b->messageId();
  }));
  const MsgDesc* gone = desc.get();
  desc.reset();
  EXPECT_EQ(Tralux::findCallSite("TraluxTest lifetime"), nullptr);
  EXPECT_FALSE(isRegistered(gone));
}

TEST(TraluxMsgDesc, FindPrefersTheEarliestOfSitesSharingAText) {
  std::uint32_t firstId = 0;
  std::uint32_t secondId = 0;
  auto first = finishedDesc(&firstId, "TraluxTest shared");
  auto second = finishedDesc(&secondId, "TraluxTest shared");
  EXPECT_EQ(Tralux::findCallSite("TraluxTest shared"), first.get());
  first.reset();
  EXPECT_EQ(Tralux::findCallSite("TraluxTest shared"), second.get());
  EXPECT_EQ(Tralux::findCallSite("TraluxTest shared "), nullptr);
}

TEST(TraluxMsgDescDeathTest, PiecesAfterFinishAbort) {
  std::uint32_t id = 0;
  auto desc = finishedDesc(&id, "TraluxTest frozen");
  EXPECT_DEATH(*desc << "late", "Tralux assertion failed: !finished\\(\\)");
  EXPECT_DEATH(*desc << 7, "Tralux assertion failed: !finished\\(\\)");
}

void checkFigureInvariants(const MsgDesc& desc) {
  EXPECT_LE(desc.minCycles(), desc.maxCycles());
  EXPECT_GE(desc.totalCycles(), desc.maxCycles());
  EXPECT_GE(desc.totalCycles(), desc.count() * desc.minCycles());
  EXPECT_LE(desc.percentileCycles(50), desc.maxCycles());
  EXPECT_GE(desc.percentileCycles(50), desc.minCycles());
}

TEST(TraluxBlockTimer, RecordsNormalExitsAndExitsByException) {
  std::uint32_t id = 0;
  auto desc = finishedDesc(&id, "TraluxTest exits");
  for (int run = 0; run < 3; ++run) Tralux::BlockTimer timer(*desc);
  for (int run = 0; run < 2; ++run) {
    EXPECT_THROW(
        {
          Tralux::BlockTimer timer(*desc);
          throw std::runtime_error("leaving by exception");
        },
        std::runtime_error);
  }
  EXPECT_EQ(desc->count(), 5u);
  std::uint64_t inBuckets = 0;
  for (std::size_t b = 0; b < CycleFigures::kBuckets; ++b) inBuckets += desc->bucketCount(b);
  EXPECT_EQ(inBuckets, 5u);
  checkFigureInvariants(*desc);
}

TEST(TraluxBlockTimer, DisabledDescriptorRecordsNothingUntilEnabled) {
  std::uint32_t id = 0;
  MsgDesc desc(nullptr, &id, "Tralux_test", 1, false);
  desc << "TraluxTest disabled";
  desc.finish();
  { Tralux::BlockTimer timer(desc); }
  EXPECT_EQ(desc.count(), 0u);
  desc.enabledIs(true);
  { Tralux::BlockTimer timer(desc); }
  EXPECT_EQ(desc.count(), 1u);
}

// A second thread on one site may lose samples but must never tear a figure (run under TSan).
TEST(TraluxBlockTimer, TwoThreadsOnOneSiteKeepTheFiguresSane) {
  std::uint32_t id = 0;
  auto desc = finishedDesc(&id, "TraluxTest twoThreads");
  constexpr int kRuns = 1000;
  auto work = [&desc] {
    for (int run = 0; run < kRuns; ++run) Tralux::BlockTimer timer(*desc);
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_GE(desc->count(), 1u);
  EXPECT_LE(desc->count(), 2u * kRuns);
  EXPECT_LE(desc->minCycles(), desc->maxCycles());
}

TEST(TraluxCycleFigures, BucketsSplitAtPowersOfTwo) {
  constexpr std::uint64_t kTop = std::uint64_t{1} << 30;
  const struct {
    std::uint64_t cycles;
    std::size_t bucket;
  } cases[] = {
      {0, 0}, {1, 1}, {2, 2},         {3, 2},     {4, 3},
      {7, 3}, {8, 4}, {kTop - 1, 30}, {kTop, 31}, {std::numeric_limits<std::uint64_t>::max(), 31}};
  for (const auto& c : cases) {
    EXPECT_EQ(CycleFigures::bucketOf(c.cycles), c.bucket) << c.cycles;
    EXPECT_LE(c.cycles, CycleFigures::bucketCeiling(c.bucket)) << c.cycles;
    if (c.bucket > 0) {
      EXPECT_GT(c.cycles, CycleFigures::bucketCeiling(c.bucket - 1)) << c.cycles;
    }
  }
}

TEST(TraluxCycleFigures, KnownSamplesGiveKnownFigures) {
  CycleFigures figures;
  for (std::uint64_t cycles = 1; cycles <= 100; ++cycles) figures.record(cycles);
  EXPECT_EQ(figures.count(), 100u);
  EXPECT_EQ(figures.totalCycles(), 5050u);
  EXPECT_EQ(figures.minCycles(), 1u);
  EXPECT_EQ(figures.maxCycles(), 100u);
  const std::uint64_t perBucket[] = {0, 1, 2, 4, 8, 16, 32, 37, 0};
  for (std::size_t b = 0; b < std::size(perBucket); ++b)
    EXPECT_EQ(figures.bucketCount(b), perBucket[b]) << b;
  const struct {
    double percent;
    std::uint64_t cycles;
  } cases[] = {{0, 1},    {1, 1},     {2, 3},  {50, 63},   {63, 63},
               {64, 100}, {100, 100}, {-5, 1}, {250, 100}, {std::nan(""), 1}};
  for (const auto& c : cases) EXPECT_EQ(figures.percentileCycles(c.percent), c.cycles) << c.percent;
  std::uint64_t previous = 0;
  for (double percent = 0; percent <= 100; percent += 2.5) {
    EXPECT_GE(figures.percentileCycles(percent), previous) << percent;
    previous = figures.percentileCycles(percent);
  }
}

TEST(TraluxCycleFigures, EmptySingleAndResetFigures) {
  CycleFigures figures;
  EXPECT_EQ(figures.minCycles(), 0u);
  EXPECT_EQ(figures.percentileCycles(99), 0u);
  figures.record(0);
  EXPECT_EQ(figures.count(), 1u);
  EXPECT_EQ(figures.maxCycles(), 0u);
  EXPECT_EQ(figures.percentileCycles(100), 0u);
  figures.record(50);
  figures.reset();
  EXPECT_EQ(figures.count(), 0u);
  EXPECT_EQ(figures.totalCycles(), 0u);
  EXPECT_EQ(figures.bucketCount(0), 0u);
  EXPECT_EQ(figures.percentileCycles(100), 0u);
  figures.record(1000);
  EXPECT_EQ(figures.minCycles(), 1000u);
  EXPECT_EQ(figures.maxCycles(), 1000u);
  EXPECT_EQ(figures.percentileCycles(1), 1000u);
}

TEST(TraluxCycleFigures, HugeSamplesLandInTheTopBucket) {
  CycleFigures figures;
  const std::uint64_t huge = std::uint64_t{1} << 40;
  figures.record(5);
  figures.record(huge);
  EXPECT_EQ(figures.bucketCount(CycleFigures::kBuckets - 1), 1u);
  EXPECT_EQ(figures.bucketCount(CycleFigures::kBuckets), 0u);
  EXPECT_EQ(figures.percentileCycles(100), huge);
  EXPECT_EQ(figures.percentileCycles(50), 7u);
}

TEST(TraluxTraceHandle, EachThreadHasItsOwnFile) {
  Tralux::TraceHandle handle("test");
  Tralux::TraceFile* mine = handle.mtTraceFile();
  EXPECT_EQ(handle.mtTraceFile(), mine);
  EXPECT_EQ(mine->owner(), std::this_thread::get_id());
  EXPECT_EQ(&mine->handle(), &handle);
  Tralux::TraceFile* theirs = nullptr;
  std::thread::id theirId;
  std::thread other([&] {
    theirs = handle.mtTraceFile();
    theirId = std::this_thread::get_id();
  });
  other.join();
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(theirs->owner(), theirId);
  EXPECT_EQ(handle.traceFileCount(), 2u);
  Tralux::TraceHandle another("another");
  EXPECT_NE(another.mtTraceFile(), mine);
  EXPECT_EQ(&Tralux::defaultTraluxHandle(), &Tralux::defaultTraluxHandle());
  EXPECT_EQ(Tralux::defaultTraluxHandle().mtTraceFile(),
            Tralux::defaultTraluxHandle().mtTraceFile());
}

TEST(TraluxTraceHandle, DescriptorIsDeclaredOnceToItsOwnFile) {
  Tralux::TraceHandle handle("test");
  Tralux::TraceFile* mine = handle.mtTraceFile();
  Tralux::TraceFile* theirs = nullptr;
  std::thread other([&] { theirs = handle.mtTraceFile(); });
  other.join();
  std::uint32_t id = 0;
  MsgDesc desc(mine, &id, "Tralux_test", 1, true);
  desc << "TraluxTest declared";
  EXPECT_EQ(mine->declaredMessages(), 0u);
  desc.finish();
  desc.finish();
  EXPECT_EQ(desc.traceFile(), mine);
  EXPECT_EQ(mine->declaredMessages(), 1u);
  EXPECT_EQ(theirs->declaredMessages(), 0u);
}

TEST(TraluxTraceHandle, NewHandleNeverPicksUpADeadHandlesFile) {
  for (int round = 0; round < 4; ++round) {
    auto handle = std::make_unique<Tralux::TraceHandle>("shortLived");
    Tralux::TraceFile* file = handle->mtTraceFile();
    EXPECT_EQ(&file->handle(), handle.get());
    EXPECT_EQ(handle->traceFileCount(), 1u);
  }
}

TEST(TraluxTsc, RateIsPositiveCachedAndConvertsBack) {
  const double rate = Tralux::cyclesPerNanosecond();
  EXPECT_GT(rate, 0.0);
  EXPECT_EQ(Tralux::cyclesPerNanosecond(), rate);
  EXPECT_DOUBLE_EQ(Tralux::cyclesToNanoseconds(rate * 1000.0), 1000.0);
}

}  // namespace
