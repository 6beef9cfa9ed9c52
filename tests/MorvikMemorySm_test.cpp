#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/AllocTracker.h"
#include "Kel/Allocate.h"
#include "Kel/Exception.h"
#include "Kel/System.h"
#include "Kel/TraceCapture.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/MorvikMemorySmReactors.h"
#include "MorvikLib/Trace.h"
#include "ostra/OstraKey.h"
#include "ostra/ostra.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MorvikMemory;
using MorvikLib::MorvikMemorySm;
using MorvikTest::Chassis;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr U32 kChunk = 4096;
const std::string kSm = "void MorvikLib::MorvikMemorySm::";
const std::string kSigChunk = "void MorvikLib::MorvikMemory::remoteCopyChunk()";

// Switches the library's trace levels for one test and puts the old ones back.
class TraceLevels {
 public:
  explicit TraceLevels(std::initializer_list<int> levels)
      : saved_(MorvikLib::traceHandle().levels()) {
    MorvikLib::traceHandle().allLevelsIs(false);
    for (int level : levels) MorvikLib::traceHandle().levelIs(level, true);
  }
  ~TraceLevels() { MorvikLib::traceHandle().levelsIs(saved_); }

 private:
  U32 saved_;
};

std::vector<std::string> textsAt(const Kel::TraceCapture& capture, int level) {
  std::vector<std::string> texts;
  for (const auto& entry : capture.entries()) {
    if (entry.handle == "MorvikLib" && entry.level == level) texts.push_back(entry.text);
  }
  return texts;
}

std::size_t occurrences(const std::vector<std::string>& texts, const std::string& text) {
  return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

std::vector<U8> pattern(std::size_t size, U8 seed) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(seed + i * 7 + (i >> 8));
  return bytes;
}

std::uint64_t passes() {
  return Kel::activityManager()->passes();
}

// What the whole mirrored memory must hold: every feature's writes at its own byte offset.
class Model {
 public:
  explicit Model(Chassis& chassis) : chassis_(chassis), bytes_(chassis.total(), 0) {}

  void write(std::size_t feature, U32 offset, const std::vector<U8>& data) {
    std::vector<U8> copy = data;
    chassis_.memory(feature)->doWrite(offset, copy.data(), static_cast<U32>(copy.size()));
    std::memcpy(at(feature, offset), data.data(), data.size());
  }
  void set(std::size_t feature, U32 offset, U32 value, U32 size) {
    chassis_.memory(feature)->doSet(offset, value, size);
    std::memset(at(feature, offset), static_cast<U8>(value), size);
  }
  void copy(std::size_t feature, U32 dst, U32 src, U32 size) {
    chassis_.memory(feature)->doCopy(dst, src, size);
    std::memcpy(at(feature, dst), at(feature, src), size);
  }
  bool peerHoldsIt() { return std::memcmp(chassis_.remoteBytes(), bytes_.data(), size()) == 0; }
  bool localHoldsIt() { return std::memcmp(chassis_.localBytes(), bytes_.data(), size()) == 0; }
  std::size_t size() const { return bytes_.size(); }

 private:
  U8* at(std::size_t feature, U32 offset) {
    return bytes_.data() + chassis_.byteOffset(feature) + offset;
  }

  Chassis& chassis_;
  std::vector<U8> bytes_;
};

// Every feature writes with each data operation: short pieces, pieces across a chunk boundary,
// whole chunks, a copy inside the feature.
void writeAll(Model& model, U8 seed) {
  model.write(0, 4000, pattern(100, seed));
  model.write(0, 0, pattern(2 * kChunk - 100, seed + 1));
  model.set(1, kChunk, seed, kChunk);
  model.write(1, 2 * kChunk - 50, pattern(kChunk + 100, seed + 2));
  model.write(2, 10, pattern(200, seed + 3));
  model.copy(2, 2000, 10, 200);
  model.set(2, kChunk - 1, seed + 4, 1);
}

// Hears a memory entity and records what the state machine did to it.
class MemoryWatcher : public MorvikMemory::Notifiee {
 public:
  static Kel::Ptr<MemoryWatcher> on(const Kel::Ptr<MorvikMemory>& memory) {
    Kel::Ptr<MemoryWatcher> watcher = Kel::allocate<MemoryWatcher>();
    watcher->notifierIs(memory);
    watcher->isRegisteredNotifieeIs(true);
    return watcher;
  }
  const MorvikMemory& memory() const {
    return *static_cast<const MorvikMemory*>(notifierEntity().ptr());
  }
  void onRemoteMemory() override { remoteVaddrs.push_back(memory().remoteMemory().vaddr()); }
  void onRemoteMemoryReady() override { remoteReady.push_back(memory().remoteMemoryReady()); }
  void onLocalMemory() override { ++localChanges; }
  void onRemoteMemoryChangedGenId() override { ++genIdChanges; }
  void onActiveSupe() override {
    if (activeSupeAction) std::exchange(activeSupeAction, nullptr)();
  }
  void onRemoteCopyPending() override {
    if (pendingAction) std::exchange(pendingAction, nullptr)();
  }

  std::vector<U64> remoteVaddrs;
  std::vector<bool> remoteReady;
  int localChanges = 0;
  int genIdChanges = 0;
  std::function<void()> activeSupeAction;
  std::function<void()> pendingAction;
};

// Hears the status and runs a one-shot action when the role changes.
class StatusWatcher : public Morvik::Status::Notifiee {
 public:
  static Kel::Ptr<StatusWatcher> on(const Kel::Ptr<Morvik::Status>& status) {
    Kel::Ptr<StatusWatcher> watcher = Kel::allocate<StatusWatcher>();
    watcher->notifierIs(status);
    watcher->isRegisteredNotifieeIs(true);
    return watcher;
  }
  void onActiveSupe() override {
    if (action) std::exchange(action, nullptr)();
  }
  std::function<void()> action;
};

class ManifestWatcher : public Morvik::Manifest::Notifiee {
 public:
  static Kel::Ptr<ManifestWatcher> on(const Kel::Ptr<Morvik::Manifest>& manifest) {
    Kel::Ptr<ManifestWatcher> watcher = Kel::allocate<ManifestWatcher>();
    watcher->notifierIs(manifest);
    watcher->isRegisteredNotifieeIs(true);
    return watcher;
  }
  void onLocalMemory() override {
    if (action) std::exchange(action, nullptr)();
  }
  std::function<void()> action;
};

// Takes its baseline once the process-wide objects (the activity manager's clock) exist, and
// fails the test if the scenario leaves any tracked object behind.
class MorvikMemorySmTest : public testing::Test {
 protected:
  MorvikMemorySmTest() : liveAtStart_(baseline()) {}
  void TearDown() override {
    EXPECT_EQ(Kel::AllocTracker::totalLive(), liveAtStart_) << "tracked objects leaked";
    EXPECT_EQ(Kel::AllocTracker::live<MorvikMemorySm>(), 0);
    EXPECT_EQ(Kel::AllocTracker::live<MorvikMemorySm::KelWrClock>(), 0);
    EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  }

 private:
  static std::int64_t baseline() {
    Kel::activityManager();
    MorvikLib::traceHandle();
    return Kel::AllocTracker::totalLive();
  }

  std::int64_t liveAtStart_;
};

// --- End to end -------------------------------------------------------------------------------

TEST_F(MorvikMemorySmTest, EveryFeaturesWritesReachThePeerAtTheirOwnOffsets) {
  Chassis chassis;
  Chassis::runUntilRest();
  Model model(chassis);
  writeAll(model, 11);
  // Whole chunks wait for the copier; the short pieces are there already.
  EXPECT_FALSE(model.peerHoldsIt());
  Chassis::runUntilRest();
  EXPECT_TRUE(model.localHoldsIt());
  EXPECT_TRUE(model.peerHoldsIt());
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    EXPECT_FALSE(chassis.memory(i)->remoteCopyPending());
    EXPECT_EQ(chassis.memory(i)->remoteMemoryChangedGenId(), 1u);
  }
}

enum class Gone { nullRange, zeroAddress };

class MorvikMemorySmPeerAway : public MorvikMemorySmTest,
                               public testing::WithParamInterface<Gone> {};

TEST_P(MorvikMemorySmPeerAway, WritesMadeWhileThePeerIsAwayArriveAfterTheResync) {
  Chassis chassis;
  Chassis::runUntilRest();
  Model model(chassis);
  writeAll(model, 21);
  Chassis::runUntilRest();
  ASSERT_TRUE(model.peerHoldsIt());
  if (GetParam() == Gone::nullRange) {
    chassis.remoteMemoryIs(false);
  } else {
    chassis.remoteMemoryUnknownIs();
  }
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    EXPECT_EQ(chassis.memory(i)->remoteMemory().vaddr(), 0u);
    EXPECT_FALSE(chassis.memory(i)->remoteMemoryReady());
    EXPECT_EQ(chassis.memory(i)->remoteMemoryChangedGenId(), 1u);
  }
  const std::vector<U8> before(chassis.remoteBytes(), chassis.remoteBytes() + chassis.total());
  writeAll(model, 77);
  Chassis::runUntilRest();
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes(), before.data(), before.size()));
  chassis.remoteMemoryIs(true);
  Chassis::runUntilRest();
  EXPECT_TRUE(model.peerHoldsIt());
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    EXPECT_TRUE(chassis.memory(i)->remoteMemoryReady());
    EXPECT_EQ(chassis.memory(i)->remoteMemoryChangedGenId(), 2u);
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, MorvikMemorySmPeerAway,
                         testing::Values(Gone::nullRange, Gone::zeroAddress));

// --- The copier's passes ----------------------------------------------------------------------

// A resync of n chunks: n passes that each copy one chunk and leave remoteCopyPending true; one
// pass that finds nothing but still re-arms the clock as it clears the flag; one pass that finds
// nothing with the flag already false, after which nothing is scheduled.
class MorvikMemorySmPasses : public MorvikMemorySmTest, public testing::WithParamInterface<U32> {};

TEST_P(MorvikMemorySmPasses, AResyncOfNChunksTakesNCopierPassesAndTwoToComeToRest) {
  const U32 n = GetParam();
  Chassis::Options options;
  options.features = {{"solo", U64{n} * kChunk}};
  options.machines = false;
  Chassis chassis(options);
  std::uint64_t before = passes();
  chassis.buildMachines();
  Chassis::runUntilRest();
  EXPECT_EQ(passes() - before, n + 2u);

  TraceLevels levels{9};
  Kel::TraceCapture capture;
  before = passes();
  chassis.memory(0)->doSync();
  Chassis::runUntilRest();
  EXPECT_EQ(passes() - before, n + 2u);
  const std::vector<std::string> texts = textsAt(capture, 9);
  EXPECT_EQ(occurrences(texts, kSigChunk), n + 2u) << "one remoteCopyChunk per firing";
  EXPECT_EQ(occurrences(texts, kSigChunk + "remoteCopyPending = 1"), n);
  EXPECT_EQ(occurrences(texts, kSigChunk + "remoteCopyPending = 0"), 2u);
  EXPECT_EQ(occurrences(texts, kSm + "scheduleClockTimeout()"), 2 * n + 2u);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes(), chassis.localBytes(), chassis.total()));
}

INSTANTIATE_TEST_SUITE_P(Chunks, MorvikMemorySmPasses, testing::Values(1u, 2u, 8u, 33u));

TEST_F(MorvikMemorySmTest, MachinesShareTheLoopEachPassCopiesOneChunkOfEveryBusyMachine) {
  Chassis::Options options;
  options.features = {{"two", 2 * kChunk}, {"five", 5 * kChunk}, {"one", kChunk}};
  options.machines = false;
  Chassis chassis(options);
  const std::uint64_t before = passes();
  chassis.buildMachines();
  Chassis::runUntilRest();
  EXPECT_EQ(passes() - before, 5 + 2u);
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes(), chassis.localBytes(), chassis.total()));
}

TEST_F(MorvikMemorySmTest, NothingPendingMeansNoPassAtAll) {
  Chassis chassis;
  Chassis::runUntilRest();
  const std::uint64_t before = passes();
  std::vector<U8> bytes = pattern(100, 5);
  chassis.memory(1)->doWrite(4000, bytes.data(), 100);
  EXPECT_EQ(Chassis::runUntilRest(), 0u);
  EXPECT_EQ(passes(), before);
}

// --- Roles ------------------------------------------------------------------------------------

class MorvikMemorySmRoles : public MorvikMemorySmTest, public testing::WithParamInterface<U32> {};

TEST_P(MorvikMemorySmRoles, OnlyTwoKeepsRemoteMemoryAwayAndClearsActiveSupe) {
  const U32 role = GetParam();
  const bool active = role != 2;
  Chassis::Options options;
  options.role = static_cast<Morvik::ActiveSupeType>(role);
  Chassis chassis(options);
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    SCOPED_TRACE(chassis.feature(i).name);
    const Kel::Ptr<MorvikMemory>& memory = chassis.memory(i);
    EXPECT_EQ(memory->activeSupe(), active);
    EXPECT_TRUE(memory->localMemoryReady());
    EXPECT_EQ(memory->remoteMemory().vaddr() != 0, active);
    EXPECT_EQ(memory->remoteMemoryReady(), active);
    EXPECT_EQ(memory->remoteMemoryChangedGenId(), active ? 1u : 0u);
    EXPECT_EQ(memory->remoteMemoryVersion(), active ? 7u : 0u);
  }
  Chassis::runUntilRest();
}

INSTANTIATE_TEST_SUITE_P(Values, MorvikMemorySmRoles,
                         testing::Values(0u, 1u, 2u, 3u, 4u, 0x7fffffffu, 0xffffffffu));

TEST_F(MorvikMemorySmTest, BecomingStandbyClearsActiveSupeButLeavesTheMappingAlone) {
  Chassis chassis;
  Chassis::runUntilRest();
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(0);
  const MorvikLib::MemoryMapping mapped = memory->remoteMemory();
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(memory->activeSupe());
  EXPECT_EQ(memory->remoteMemory(), mapped);
  // A new range on the standby changes nothing: not even the stale mapping goes.
  chassis.remoteMemoryIs(true);
  EXPECT_EQ(memory->remoteMemory(), mapped);
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 1u);
  EXPECT_FALSE(memory->remoteCopyPending());
  chassis.status()->activeSupeIs(static_cast<Morvik::ActiveSupeType>(3));
  EXPECT_TRUE(memory->activeSupe());
  // The role alone maps nothing; the next range does.
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 1u);
  chassis.remoteMemoryIs(true);
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 2u);
  Chassis::runUntilRest();
}

TEST_F(MorvikMemorySmTest, AStandbyThatBecomesActiveMapsOnTheNextRange) {
  Chassis::Options options;
  options.role = Morvik::activeSupeStandby;
  Chassis chassis(options);
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(2);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
  chassis.status()->activeSupeIs(Morvik::activeSupeActive);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
  chassis.remoteMemoryIs(true);
  EXPECT_NE(memory->remoteMemory().vaddr(), 0u);
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 1u);
  Chassis::runUntilRest();
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes(), chassis.localBytes(), chassis.total()));
}

// --- The environment is read at the moment of use ---------------------------------------------

// The owner that ostra recorded for a region of the chassis's machine. ostra keeps it in the
// region's header: magic (8 bytes), layout, header size (4 each), length, paddr (8 each), the two
// key lengths (4 each), then the owner text.
std::string regionOwner(const Chassis& chassis, const char* region) {
  const std::string object = ostra::objectNameFor(chassis.vmid(), region);
  const int fd = ::shm_open(object.c_str(), O_RDONLY, 0);
  if (fd < 0) return "<no region>";
  char magic[8] = {};
  char owner[256] = {};
  const bool read = ::pread(fd, magic, sizeof magic, 0) == sizeof magic &&
                    ::pread(fd, owner, sizeof owner - 1, 40) > 0;
  ::close(fd);
  if (!read || std::memcmp(magic, "STRAREG1", 8) != 0) return "<unreadable>";
  return owner;
}

TEST_F(MorvikMemorySmTest, TheOwnerOfTheLocalRegionIsTheAgentNamedAtAllocationTime) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  struct Case {
    const char* agent;
    std::string owner;
  };
  const Case cases[] = {
      {nullptr, "@MorvikLib.kin"}, {"ssoAgent", "ssoAgent"}, {"", ""}, {nullptr, "@MorvikLib.kin"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.owner);
    chassis.envIs("AGENT_PROCESS_NAME", c.agent);
    {
      auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("alpha"));
      auto sm = chassis.newMachine(0, memory);
      EXPECT_TRUE(memory->localMemoryReady());
      EXPECT_EQ(regionOwner(chassis, "MorvikLocal"), c.owner);
    }
    ostra_free("MorvikLocal");
  }
}

TEST_F(MorvikMemorySmTest, SimulationIsDecidedAtEveryCall) {
  Chassis::Options options;
  options.machines = false;
  options.remoteKnown = false;
  options.peerMemory = 0;
  Chassis chassis(options);
  chassis.buildMachines();
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  ASSERT_TRUE(memory->localMemoryReady());
  // Outside simulation a peer whose own base is unknown is not usable.
  chassis.envIs("SIMULATION_VMID", nullptr);
  chassis.remoteMemoryIs(true);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
  chassis.envIs("SIMULATION_VMID", chassis.vmid().c_str());
  chassis.remoteMemoryIs(true);
  EXPECT_NE(memory->remoteMemory().vaddr(), 0u);
  Chassis::runUntilRest();
  if (::access("/dev/mem", F_OK) == 0) GTEST_SKIP() << "a real /dev/mem is never mapped here";
  chassis.envIs("SIMULATION_VMID", nullptr);
  auto fresh = MorvikLib::morvikMemoryFactory(Kel::Name("alpha"));
  try {
    chassis.newMachine(0, fresh);
    ADD_FAILURE() << "the hardware path mapped something";
  } catch (const Kel::ErrnoException& e) {
    EXPECT_STREQ(e.context().charPtr(), "opening file");
  }
  chassis.envIs("SIMULATION_VMID", chassis.vmid().c_str());
  auto sm = chassis.newMachine(0, fresh);
  EXPECT_TRUE(fresh->localMemoryReady());
  EXPECT_TRUE(fresh->remoteMemoryReady());
  sm = nullptr;
  fresh = nullptr;
  Chassis::runUntilRest();
}

// --- Reactors ---------------------------------------------------------------------------------

TEST_F(MorvikMemorySmTest, EachNewRangeRemapsOnceResyncsOnceAndAdvancesTheGenerationOnce) {
  Chassis chassis;
  Chassis::runUntilRest();
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  auto watcher = MemoryWatcher::on(memory);
  const U64 old = memory->remoteMemory().vaddr();
  chassis.envIs("NOSYNC_MORVIK", "");
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  chassis.remoteMemoryIs(true);
  EXPECT_EQ(watcher->remoteVaddrs.size(), 2u);
  EXPECT_EQ(watcher->remoteVaddrs.at(0), 0u) << "unmapped first";
  EXPECT_EQ(watcher->remoteVaddrs.at(1), memory->remoteMemory().vaddr());
  EXPECT_NE(memory->remoteMemory().vaddr(), 0u);
  EXPECT_NE(old, 0u);
  EXPECT_THAT(watcher->remoteReady, ElementsAre(false, true));
  EXPECT_EQ(watcher->genIdChanges, 1);
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 2u);
  // One doSync per machine, each seen through its NOSYNC_MORVIK trace.
  EXPECT_EQ(
      occurrences(textsAt(capture, 0), "void MorvikLib::MorvikMemory::doSync() NOSYNC_MORVIK "),
      chassis.features());
  chassis.envIs("NOSYNC_MORVIK", nullptr);
  // Taking the range away unmaps, resyncs nothing and leaves the generation alone.
  chassis.remoteMemoryIs(false);
  EXPECT_EQ(watcher->remoteVaddrs.back(), 0u);
  EXPECT_EQ(watcher->genIdChanges, 1);
  EXPECT_FALSE(memory->remoteCopyPending());
}

TEST_F(MorvikMemorySmTest, TheRoleReachesTheMemoryThroughTheStatusReactor) {
  Chassis chassis;
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  const std::vector<U32> roles = {2, 0, 2, 5, 1};
  for (U32 role : roles) {
    chassis.status()->activeSupeIs(static_cast<Morvik::ActiveSupeType>(role));
    EXPECT_EQ(chassis.memory(0)->activeSupe(), role != 2);
  }
  std::vector<std::string> expected;
  for (U32 role : roles) {
    for (std::size_t i = 0; i < chassis.features(); ++i) {
      expected.push_back(kSm + "handleSupStateChange() set activeSupe to " + std::to_string(role));
    }
  }
  EXPECT_THAT(textsAt(capture, 0), ElementsAreArray(expected));
  Chassis::runUntilRest();
}

TEST_F(MorvikMemorySmTest, TheLocalRangeMapsOnceWhateverTheManifestSaysLater) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  Kel::Ptr<Morvik::FeatureManifest> entry = chassis.manifest()->manifest(Kel::Name("beta"));
  chassis.manifest()->manifestDel(Kel::Name("beta"));
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  auto watcher = MemoryWatcher::on(memory);
  auto sm = chassis.newMachine(1, memory);
  EXPECT_THAT(
      textsAt(capture, 0),
      ElementsAre(kSm + "handleInitialized()", kSm + "handleSupStateChange() set activeSupe to 1",
                  kSm + "handleMorvikRemoteMemVersion()Plugin: beta: not found in manifest",
                  kSm + "handleSupStateChange() set activeSupe to 1"));
  EXPECT_FALSE(memory->localMemoryReady());
  auto range = [&](U64 addr) {
    return Kel::allocate<Morvik::Region>(Kel::Name("localMemory"), Morvik::PhysicalAddress(addr),
                                         chassis.total(), 0, Kel::String("/dev/mem"));
  };
  capture.clear();
  chassis.manifest()->localMemoryIs(range(0x18000000));
  EXPECT_THAT(textsAt(capture, 0),
              ElementsAre(kSm + "handleLocalMemoryChange() Local Memory, not yet ready "));
  // The manifest's own entries are not watched: only a new local range retries.
  chassis.manifest()->manifestIs(Kel::Name("beta"), entry);
  EXPECT_FALSE(memory->localMemoryReady());
  chassis.manifest()->localMemoryIs(range(0x20000000));
  EXPECT_TRUE(memory->localMemoryReady());
  EXPECT_EQ(memory->localMemory().size(), 16384u);
  EXPECT_EQ(watcher->localChanges, 1);
  const U64 simPaddr = memory->localMemorySimPaddr();
  const MorvikLib::MemoryMapping mapped = memory->localMemory();
  chassis.manifest()->localMemoryIs(range(0x30000000));
  EXPECT_EQ(watcher->localChanges, 1);
  EXPECT_EQ(memory->localMemory(), mapped);
  EXPECT_EQ(memory->localMemorySimPaddr(), simPaddr);
  sm->handleLocalMemoryChange();
  EXPECT_EQ(watcher->localChanges, 1);
  // Local memory alone: the remote side waits for the next range.
  EXPECT_FALSE(memory->remoteMemoryReady());
  chassis.remoteMemoryIs(true);
  EXPECT_TRUE(memory->remoteMemoryReady());
  Chassis::runUntilRest();
  sm = nullptr;
  watcher = nullptr;
  memory = nullptr;
}

TEST_F(MorvikMemorySmTest, ACopyRequestArmsTheWriteClockForNow) {
  Chassis::Options options;
  options.remoteKnown = false;
  Chassis chassis(options);
  const Kel::Ptr<MorvikMemorySm>& sm = chassis.sm(0);
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(0);
  // Nothing asked for a copy yet: the clock is made on first use.
  EXPECT_FALSE(sm->wrClockReactor());
  memory->remoteCopyPendingIs(true);
  ASSERT_TRUE(sm->wrClockReactor());
  EXPECT_EQ(sm->wrClock(), Kel::activityManager()->clock());
  EXPECT_TRUE(sm->wrClockReactor()->timeRequested());
  EXPECT_EQ(sm->wrClockReactor()->timeMin(), Kel::System::currentTime());
  Kel::activityManager()->runUntil(Kel::System::currentTime() + 42.5);
  EXPECT_FALSE(sm->wrClockReactor()->timeRequested());
  // Either change re-arms it for the time of the change.
  memory->remoteCopyPendingIs(true);
  EXPECT_EQ(sm->wrClockReactor()->timeMin(), 1042.5);
  EXPECT_EQ(sm->wrClock(), Kel::activityManager()->clock());
  // Unmapped remote memory: the chunk stays pending; the copier clears the flag and rests.
  std::vector<U8> bytes = pattern(kChunk, 3);
  memory->doWrite(0, bytes.data(), kChunk);
  Chassis::runUntilRest();
  EXPECT_FALSE(memory->remoteCopyPending());
  EXPECT_TRUE(memory->replicationStatus(0));
}

TEST_F(MorvikMemorySmTest, ANewChunkSizeResyncsInChunksOfThatSize) {
  Chassis chassis;
  Chassis::runUntilRest();
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  std::vector<U8> bytes = pattern(16384, 9);
  memory->doWriteLocalTest(0, bytes.data(), 16384);
  const std::uint64_t before = passes();
  memory->remoteCopyChunkSizeIs(8192);
  EXPECT_TRUE(memory->remoteCopyPending());
  EXPECT_TRUE(memory->replicationStatus(0));
  EXPECT_TRUE(memory->replicationStatus(8192));
  EXPECT_EQ(memory->replicationStatusBitmap(0), 0x3u);
  Chassis::runUntilRest();
  EXPECT_EQ(passes() - before, 2 + 2u);
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes() + chassis.byteOffset(1), bytes.data(), 16384));
}

TEST_F(MorvikMemorySmTest, AStatusReplacedFromInsideItsOwnNotificationIsHeardNoMore) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  // Registered before the machines' reactors, so it runs first in every visit.
  auto first = StatusWatcher::on(chassis.status());
  chassis.buildMachines();
  auto other = Kel::allocate<Morvik::Status>(Kel::Name("otherStatus"));
  other->activeSupeIs(Morvik::activeSupeActive);
  first->action = [&] {
    for (std::size_t i = 0; i < chassis.features(); ++i) chassis.sm(i)->morvikStatusIs(other);
  };
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    EXPECT_EQ(chassis.sm(i)->morvikStatus(), other);
    EXPECT_TRUE(chassis.memory(i)->activeSupe()) << "the replaced reactor heard the change";
  }
  other->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(chassis.memory(0)->activeSupe());
  chassis.status()->activeSupeIs(Morvik::activeSupeActive);
  EXPECT_FALSE(chassis.memory(0)->activeSupe());
  // A watcher behind the reactors replaces it after it has heard.
  auto last = StatusWatcher::on(other);
  last->action = [&] { chassis.sm(0)->morvikStatusIs(chassis.status()); };
  other->activeSupeIs(Morvik::activeSupeActive);
  EXPECT_TRUE(chassis.memory(0)->activeSupe());
  EXPECT_EQ(chassis.sm(0)->morvikStatus(), chassis.status());
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(chassis.memory(0)->activeSupe());
  Chassis::runUntilRest();
  first = nullptr;
  last = nullptr;
  other = nullptr;
}

// The status reactor replaces itself from inside its own handler while its visit still holds it;
// a nested change of the old status within that same handler must not reach it.
TEST_F(MorvikMemorySmTest, AReactorReplacedInsideItsOwnHandlerMissesNestedChanges) {
  Chassis::Options options;
  options.features = {{"alpha", kChunk}};
  Chassis chassis(options);
  auto watcher = MemoryWatcher::on(chassis.memory(0));
  auto other = Kel::allocate<Morvik::Status>(Kel::Name("otherStatus"));
  other->activeSupeIs(Morvik::activeSupeActive);
  watcher->activeSupeAction = [&] {
    chassis.sm(0)->morvikStatusIs(other);
    chassis.status()->activeSupeIs(static_cast<Morvik::ActiveSupeType>(3));
  };
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(chassis.memory(0)->activeSupe());
  EXPECT_THAT(textsAt(capture, 0), ElementsAre(kSm + "handleSupStateChange() set activeSupe to 2"));
  EXPECT_EQ(chassis.status()->activeSupe(), 3u);
  Chassis::runUntilRest();
  watcher = nullptr;
  other = nullptr;
}

TEST_F(MorvikMemorySmTest, AMemoryReplacedFromInsideItsOwnNotificationIsHeardNoMore) {
  Chassis chassis;
  Chassis::runUntilRest();
  const Kel::Ptr<MorvikMemorySm>& sm = chassis.sm(2);
  Kel::Ptr<MorvikMemory> old = chassis.memory(2);
  auto watcher = MemoryWatcher::on(old);
  auto replacement = MorvikLib::morvikMemoryFactory(Kel::Name("gamma"));
  // handleSupStateChange tells the memory the role; the memory's watcher swaps the memory there.
  watcher->activeSupeAction = [&] { sm->morvikMemoryIs(replacement); };
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_EQ(sm->morvikMemory(), replacement);
  EXPECT_TRUE(replacement->localMemoryReady()) << "a new memory is mapped locally at once";
  EXPECT_FALSE(replacement->remoteMemoryReady());
  const auto bitmap = old->replicationStatusBitmap(0);
  old->remoteCopyChunkSizeIs(8192);
  EXPECT_EQ(old->replicationStatusBitmap(0), bitmap) << "the old memory's reactor resynced it";
  // Deleting the memory re-runs the local setup, which has nothing to work on.
  sm->morvikMemoryDel();
  EXPECT_FALSE(sm->morvikMemory());
  auto third = MorvikLib::morvikMemoryFactory(Kel::Name("gamma"));
  sm->morvikMemoryIs(third);
  EXPECT_TRUE(third->localMemoryReady());
  third->remoteCopyPendingIs(true);
  EXPECT_TRUE(sm->wrClockReactor()->timeRequested());
  Chassis::runUntilRest();
  chassis.releaseMachines();
  watcher = nullptr;
  old = nullptr;
  replacement = nullptr;
  third = nullptr;
}

TEST_F(MorvikMemorySmTest, AManifestReplacedFromInsideItsOwnNotificationMapsFromTheNewOne) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  auto other = Kel::allocate<Morvik::Manifest>(Kel::Name("otherManifest"));
  for (const auto& [name, entry] : chassis.manifest()->manifest()) other->manifestIs(name, entry);
  // Filed under another name, so the whole keeps its size.
  chassis.manifest()->manifestIs(Kel::Name("gammaOld"),
                                 chassis.manifest()->manifest(Kel::Name("gamma")));
  chassis.manifest()->manifestDel(Kel::Name("gamma"));
  auto first = ManifestWatcher::on(chassis.manifest());
  chassis.buildMachines();
  ASSERT_FALSE(chassis.memory(2)->localMemoryReady());
  first->action = [&] { chassis.sm(2)->morvikManifestIs(other); };
  chassis.manifest()->localMemoryIs(nullptr);
  EXPECT_EQ(chassis.sm(2)->morvikManifest(), other);
  EXPECT_TRUE(chassis.memory(2)->localMemoryReady());
  EXPECT_EQ(chassis.memory(2)->localMemory().size(), 4096u);
  Chassis::runUntilRest();
  chassis.releaseMachines();
  first = nullptr;
  other = nullptr;
}

TEST_F(MorvikMemorySmTest, AClockReplacedFromInsideItsOwnFiringTakesOverTheCopier) {
  Chassis::Options options;
  options.features = {{"solo", 4 * kChunk}};
  Chassis chassis(options);
  const Kel::Ptr<MorvikMemorySm>& sm = chassis.sm(0);
  auto watcher = MemoryWatcher::on(chassis.memory(0));
  auto own = Kel::allocate<Kel::Clock>(Kel::Name("ownClock"));
  // The first firing clears remoteCopyPending; the memory's watcher moves the machine then.
  watcher->pendingAction = [&] { sm->wrClockIs(own); };
  EXPECT_EQ(Kel::activityManager()->runPass(), 1u);
  EXPECT_EQ(sm->wrClock(), own);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  std::size_t passes = 1;
  while (own->runPass(Kel::System::currentTime())) ++passes;
  EXPECT_EQ(passes, 4 + 2u);
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes(), chassis.localBytes(), chassis.total()));
  sm->wrClockDel();
  EXPECT_FALSE(sm->wrClockReactor());
  chassis.releaseMachines();
  watcher = nullptr;
  own = nullptr;
}

TEST_F(MorvikMemorySmTest, AClockReplacedBetweenFiringsTakesTheOwedFiringAlong) {
  Chassis::Options options;
  options.features = {{"solo", 3 * kChunk}};
  Chassis chassis(options);
  const Kel::Ptr<MorvikMemorySm>& sm = chassis.sm(0);
  ASSERT_TRUE(chassis.memory(0)->remoteCopyPending());
  auto own = Kel::allocate<Kel::Clock>(Kel::Name("ownClock"));
  sm->wrClockIs(own);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  EXPECT_TRUE(sm->wrClockReactor()->timeRequested());
  EXPECT_EQ(sm->wrClockReactor()->timeMin(), 1000.0);
  std::size_t passes = 0;
  while (own->runPass(Kel::System::currentTime())) ++passes;
  EXPECT_EQ(passes, 3 + 2u);
  EXPECT_EQ(0, std::memcmp(chassis.remoteBytes(), chassis.localBytes(), chassis.total()));
  // Nothing owed: the next clock starts idle.
  sm->wrClockIs(Kel::activityManager()->clock());
  EXPECT_FALSE(sm->wrClockReactor()->timeRequested());
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  chassis.releaseMachines();
  own = nullptr;
}

TEST_F(MorvikMemorySmTest, ReleasingAMachineMidResyncLeavesNothingScheduledOrLive) {
  {
    Chassis chassis;
    EXPECT_FALSE(Kel::activityManager()->clock()->idle());
    EXPECT_EQ(Kel::AllocTracker::live<MorvikMemorySm>(), 3);
    EXPECT_EQ(Kel::AllocTracker::live<MorvikMemorySm::KelWrClock>(), 3);
    Kel::activityManager()->runPass();
  }
  // TearDown checks the tracker and the clock.
}

TEST_F(MorvikMemorySmTest, AChassisWithAuditRecordsGivesEveryActiveMachineItsAudit) {
  Chassis::Options options;
  options.audit = true;
  Chassis chassis(options);
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    SCOPED_TRACE(chassis.feature(i).name);
    ASSERT_TRUE(chassis.auditRequest(i));
    EXPECT_EQ(chassis.sm(i)->morvikAuditRequest(), chassis.auditRequest(i));
    EXPECT_EQ(chassis.audit()->auditStatus(chassis.auditName(i)), chassis.auditStatus(i));
    EXPECT_TRUE(chassis.sm(i)->morvikAuditSm());
  }
  // Without a remote range there is nothing to audit.
  chassis.remoteMemoryIs(false);
  for (std::size_t i = 0; i < chassis.features(); ++i) EXPECT_FALSE(chassis.sm(i)->morvikAuditSm());
  Chassis::runUntilRest();
}

TEST_F(MorvikMemorySmTest, ConstructionTracesTheSetupInOrder) {
  Chassis::Options options;
  options.features = {{"alpha", 2 * kChunk}, {"beta", 5 * kChunk}};
  options.machines = false;
  Chassis chassis(options);
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  auto sm = chassis.newMachine(1, memory);
  const U64 paddr = memory->localMemorySimPaddr() + 2 * kChunk;
  char dma[16];
  std::snprintf(dma, sizeof dma, "0x%x", static_cast<unsigned>(paddr));
  char physical[24];
  std::snprintf(physical, sizeof physical, "0x%llx", static_cast<unsigned long long>(paddr));
  EXPECT_THAT(
      textsAt(capture, 0),
      ElementsAre(kSm + "handleInitialized()", kSm + "handleSupStateChange() set activeSupe to 1",
                  kSm + "handleMorvikRemoteMemVersion() manifest beta byteOffset 2000 size 5000",
                  kSm + "handleMorvikRemoteMemVersion() morvikMemory beta",
                  kSm + "handleLocalMemoryChange() Dma addr " + dma + " Paddr " + physical,
                  kSm + "handleRemoteMemoryChange()",
                  kSm + "handleSupStateChange() set activeSupe to 1"));
  Chassis::runUntilRest();
  sm = nullptr;
  memory = nullptr;
}

TEST_F(MorvikMemorySmTest, AStandbyTracesWhyItLeavesRemoteMemoryAlone) {
  Chassis::Options options;
  options.role = Morvik::activeSupeStandby;
  options.features = {{"alpha", kChunk}};
  Chassis chassis(options);
  TraceLevels levels{0, 5};
  Kel::TraceCapture capture;
  chassis.remoteMemoryIs(true);
  EXPECT_THAT(
      textsAt(capture, 0),
      ElementsAre(
          kSm + "handleMorvikRemoteMemVersion() manifest alpha byteOffset 0 size 1000",
          kSm + "handleMorvikRemoteMemVersion() morvikMemory alpha",
          kSm + "handleRemoteMemoryChange()",
          kSm + "handleRemoteMemoryChange() not active sso supe, won't use remote memory "));
  EXPECT_THAT(textsAt(capture, 5), ElementsAre(kSm + "handleMorvikRemoteMemVersion() name alpha",
                                               kSm + "handleLocalMemoryChange() alpha"));
}

}  // namespace
