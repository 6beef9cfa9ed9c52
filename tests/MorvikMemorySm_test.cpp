#include <gtest/gtest.h>

#include <functional>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "support/AllocCounts.h"
#include "support/Chassis.h"
#include "support/Timeline.h"

namespace {

using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;

constexpr U32 kChunk = 4096;
const std::string kSm = "void MorvikLib::MorvikMemorySm::";

// Runs an action when the watched entity's role changes.
template <class T>
class RoleHook : public T::NotifieeConst {
 public:
  std::function<void()> action;
  void onActiveSupe() override { action(); }
  static Kel::Ptr<RoleHook> on(const Kel::Ptr<T>& entity) {
    auto hook = Kel::allocate<RoleHook>();
    hook->notifierIs(entity);
    hook->isRegisteredNotifieeIs(true);
    return hook;
  }
};

// Every feature writes its whole share (whole chunks: the copier's) and a short piece across a
// chunk boundary (at once); returns what the mirrored memory must hold.
std::vector<U8> writeAll(Chassis& chassis, U8 seed) {
  std::vector<U8> expected;
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    std::vector<U8> bytes = Chassis::pattern(chassis.feature(i).size, seed + i);
    chassis.memory(i)->doWrite(0, bytes.data(), static_cast<U32>(bytes.size()));
    std::vector<U8> piece = Chassis::pattern(100, seed + 50);
    const U32 middle = static_cast<U32>(bytes.size() / 2 - 50);
    chassis.memory(i)->doWrite(middle, piece.data(), 100);
    std::copy(piece.begin(), piece.end(), bytes.begin() + middle);
    expected.insert(expected.end(), bytes.begin(), bytes.end());
  }
  return expected;
}

TEST(MorvikMemorySmTest, WritesReachThePeerAndThoseMadeWhileItIsAwayFollowTheResync) {
  for (bool zeroAddress : {false, true}) {
    SCOPED_TRACE(zeroAddress ? "a range of address 0" : "no range");
    Chassis chassis;
    std::vector<U8> expected = writeAll(chassis, 11);
    Chassis::runUntilRest();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), chassis.remoteBytes()));
    chassis.status()->remoteMemoryIs(zeroAddress ? chassis.remoteRegion(0, chassis.total())
                                                 : nullptr);
    for (std::size_t i = 0; i < chassis.features(); ++i) {
      EXPECT_EQ(chassis.memory(i)->remoteMemory().vaddr(), 0u);
      EXPECT_FALSE(chassis.memory(i)->remoteMemoryReady());
    }
    const std::vector<U8> before = std::exchange(expected, writeAll(chassis, 77));
    Chassis::runUntilRest();
    EXPECT_TRUE(std::equal(before.begin(), before.end(), chassis.remoteBytes()));
    chassis.remoteMemoryIs(true);
    Chassis::runUntilRest();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), chassis.remoteBytes()));
    EXPECT_EQ(chassis.memory(2)->remoteMemoryChangedGenId(), 2u);
  }
}

class MorvikMemorySmPasses : public testing::TestWithParam<std::vector<U32>> {};

// Per machine, a resync of n chunks takes n firings that each copy one chunk, one that clears
// remoteCopyPending and re-arms, and one that finds the flag false and rests. Machines share
// passes.
TEST_P(MorvikMemorySmPasses, AResyncOfNChunksTakesNCopierPassesAndTwoToComeToRest) {
  Chassis::Options options;
  options.features.clear();
  options.machines = false;
  U32 most = 0, sum = 0;
  for (U32 n : GetParam()) {
    options.features.push_back({"f" + std::to_string(options.features.size()), U64{n} * kChunk});
    most = std::max(most, n);
    sum += n;
  }
  const auto machines = static_cast<U32>(options.features.size());
  Chassis chassis(options);
  auto passes = [before = Kel::activityManager()->passes()]() mutable {
    Chassis::runUntilRest();
    return Kel::activityManager()->passes() -
           std::exchange(before, Kel::activityManager()->passes());
  };
  chassis.buildMachines();
  EXPECT_EQ(passes(), most + 2u) << "the resync that follows the first mapping";
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    // Behind the copier's back, so that only the resync can make the copies equal again.
    std::vector<U8> bytes = Chassis::pattern(chassis.feature(i).size, static_cast<U8>(i));
    chassis.memory(i)->doWriteLocalTest(0, bytes.data(), static_cast<U32>(bytes.size()));
  }
  ASSERT_FALSE(chassis.copiesEqual());
  chassis.traceLevelsIs({9});
  MorvikTest::Timeline traces("");
  for (std::size_t i = 0; i < chassis.features(); ++i) chassis.memory(i)->doSync();
  EXPECT_EQ(passes(), most + 2u);
  const auto chunk = traces.of("void MorvikLib::MorvikMemory::remoteCopyChunk()");
  EXPECT_EQ(std::count(chunk.begin(), chunk.end(), ""), sum + 2 * machines) << "firings";
  EXPECT_EQ(std::count(chunk.begin(), chunk.end(), "remoteCopyPending = 1"), sum);
  EXPECT_EQ(std::count(chunk.begin(), chunk.end(), "remoteCopyPending = 0"), 2 * machines);
  EXPECT_EQ(traces.of(kSm + "scheduleClockTimeout()").size(), 2 * sum + 2 * machines);
  EXPECT_TRUE(chassis.copiesEqual());
}

INSTANTIATE_TEST_SUITE_P(Chunks, MorvikMemorySmPasses,
                         testing::Values(std::vector<U32>{1}, std::vector<U32>{2},
                                         std::vector<U32>{33}, std::vector<U32>{2, 5, 1},
                                         std::vector<U32>{16384}));

// Once the pending set, the clock's schedule and the copier's lists have grown, a steady stream of
// writes (short pieces mirrored at once, whole chunks left to the copier) and whole resyncs
// allocate nothing.
TEST(MorvikMemorySmTest, SteadyWritesAndResyncsAllocateNothing) {
  Chassis chassis;
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  const U32 size = static_cast<U32>(chassis.feature(1).size);
  std::vector<U8> bytes = Chassis::pattern(size, 3);
  auto writeAndResync = [&] {
    for (U32 offset = 0; offset + 100 <= size; offset += 300) {
      memory->doWrite(offset, bytes.data(), 100);
    }
    memory->doWrite(0, bytes.data(), size);
    Chassis::runUntilRest();
    memory->doSync();
    Chassis::runUntilRest();
  };
  writeAndResync();
  const std::uint64_t before = KelTest::heapAllocations();
  for (int round = 0; round < 3; ++round) writeAndResync();
  EXPECT_EQ(KelTest::heapAllocations() - before, 0u);
  EXPECT_TRUE(chassis.copiesEqual());
}

TEST(MorvikMemorySmTest, OnlyRoleTwoKeepsRemoteMemoryAwayAndClearsActiveSupe) {
  for (U32 role : {0u, 1u, 2u, 3u, 0x7fffffffu, 0xffffffffu}) {
    SCOPED_TRACE(role);
    const bool active = role != 2;
    Chassis::Options options;
    options.role = static_cast<Morvik::ActiveSupeType>(role);
    Chassis chassis(options);
    for (std::size_t i = 0; i < chassis.features(); ++i) {
      const Kel::Ptr<MorvikMemory>& memory = chassis.memory(i);
      EXPECT_EQ(memory->activeSupe(), active);
      EXPECT_TRUE(memory->localMemoryReady());
      EXPECT_EQ(memory->remoteMemory().vaddr() != 0, active);
      EXPECT_EQ(memory->remoteMemoryReady(), active);
      EXPECT_EQ(memory->remoteMemoryVersion(), active ? 7u : 0u);
    }
  }
}

TEST(MorvikMemorySmTest, TheEnvironmentIsReadAtTheMomentOfUse) {
  Chassis::Options options;
  options.remoteKnown = false;
  options.peerMemory = 0;
  Chassis chassis(options);
  // Outside simulation a peer whose own base is unknown is not usable.
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  chassis.envIs("SIMULATION_VMID", nullptr);
  chassis.remoteMemoryIs(true);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
  chassis.envIs("SIMULATION_VMID", chassis.vmid().c_str());
  chassis.remoteMemoryIs(true);
  EXPECT_NE(memory->remoteMemory().vaddr(), 0u);
}

// A status or memory replaced from inside its own notification: the replaced reactor finishes
// the change it is handling, and from then on only the new input is heard.
TEST(MorvikMemorySmTest, AnInputReplacedFromInsideItsOwnNotificationIsHeardNoMore) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  auto first = RoleHook<Morvik::Status>::on(chassis.status());  // runs before the reactors
  chassis.buildMachines();
  auto other = Kel::allocate<Morvik::Status>(Kel::Name("otherStatus"));
  other->activeSupeIs(Morvik::activeSupeActive);
  first->action = [&] {
    for (std::size_t i = 0; i < chassis.features(); ++i) chassis.sm(i)->morvikStatusIs(other);
  };
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_TRUE(chassis.memory(0)->activeSupe()) << "the replaced reactor heard the change";
  chassis.status()->activeSupeIs(Morvik::activeSupeActive);
  other->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(chassis.memory(0)->activeSupe());

  const Kel::Ptr<MorvikLib::MorvikMemorySm>& sm = chassis.sm(2);
  Kel::Ptr<MorvikMemory> old = chassis.memory(2);
  auto hook = RoleHook<MorvikMemory>::on(old);
  auto replacement = MorvikLib::morvikMemoryFactory(Kel::Name("gamma"));
  hook->action = [&] { sm->morvikMemoryIs(replacement); };
  other->activeSupeIs(Morvik::activeSupeActive);
  EXPECT_EQ(sm->morvikMemory(), replacement);
  EXPECT_TRUE(replacement->localMemoryReady()) << "a new memory is mapped locally at once";
  Chassis::runUntilRest();
  sm->morvikMemoryDel();  // re-runs the local setup, which has nothing to work on
  EXPECT_FALSE(sm->morvikMemory());
}

}  // namespace

// The memory's watcher lets the machine go while the machine's own role handler is setting the
// memory: the handler finishes on a live machine, which goes when the handler returns.
TEST(MorvikMemorySmTest, AMachineDroppedInsideItsOwnHandlerGoesWhenTheHandlerReturns) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("alpha"));
  Kel::Ptr<MorvikLib::MorvikMemorySm> sm = chassis.newMachine(0, memory);
  auto hook = RoleHook<MorvikMemory>::on(memory);
  hook->action = [&sm] { sm = nullptr; };
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(sm);
  EXPECT_FALSE(memory->activeSupe());
  EXPECT_EQ(KelTest::live<MorvikLib::MorvikMemorySm>(), 0);
}
