// The data operations, their traces, shadow translation, the background copier and every
// assertion of the memory entity, on real simulated regions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/GenericIf.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"
#include "support/Capture.h"
#include "support/Chassis.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikTest::MappedPair;
using MorvikTest::Regions;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr U32 kSize = 64 * 1024;
const std::string kSig = "void MorvikLib::MorvikMemory::";
const std::string kSchedule = "bool MorvikLib::MorvikMemory::scheduleRemoteCopy(U32, U32)";

std::string hex(U64 value) {
  return (std::ostringstream() << std::hex << value).str();
}
const auto pattern = &MorvikTest::Chassis::pattern;
U64 addressOf(const void* p) {
  return static_cast<U64>(reinterpret_cast<std::uintptr_t>(p));
}

// Enables exactly the levels in `mask` (bit n for level n) for one test.
struct TraceLevels {
  explicit TraceLevels(U32 mask) { MorvikLib::traceHandle().levelsIs(mask); }
  ~TraceLevels() { MorvikLib::traceHandle().levelsIs(saved); }
  U32 saved = MorvikLib::traceHandle().levels();
};
constexpr U32 kLevel9 = 1u << 9;

// The values remoteCopyPending takes, one per notification.
class PendingWatcher : public MorvikMemory::Notifiee {
 public:
  std::vector<bool> pending;
  void onRemoteCopyPending() override {
    pending.push_back(
        static_cast<const MorvikMemory*>(notifierEntity().ptr())->remoteCopyPending());
  }
};

class MorvikMemoryDataTest : public testing::Test {
 protected:
  explicit MorvikMemoryDataTest(U32 remoteSize = kSize)
      : regions_(Regions::Kind::simulated, kSize, remoteSize) {
    regions_.setLocal(*memory_);
    regions_.setRemote(*memory_);
    watcher_->notifierIs(memory_);
    watcher_->isRegisteredNotifieeIs(true);
  }

  U64 local() const { return memory_->localMemory().vaddr(); }
  U64 remote() const { return memory_->remoteMemory().vaddr(); }
  std::vector<U8> localAt(U32 offset, U32 size) const {
    return {regions_.localBytes() + offset, regions_.localBytes() + offset + size};
  }
  std::vector<U8> remoteAt(U32 offset, U32 size) const {
    return {regions_.remoteBytes() + offset, regions_.remoteBytes() + offset + size};
  }
  bool mirrored(U32 at, U32 size) const { return localAt(at, size) == remoteAt(at, size); }
  // Changes local memory alone, so a later copy shows which bytes it moved.
  void scribble(U32 offset, U32 size, U8 seed) {
    std::vector<U8> bytes = pattern(size, seed);
    memory_->doWriteLocalTest(offset, bytes.data(), size);
  }
  // Whether `op` sets ignoreChecksum.
  template <class Op>
  bool marks(Op op) {
    memory_->ignoreChecksumIs(false);
    op();
    return memory_->ignoreChecksum();
  }
  std::vector<U64> pendingOffsets() const {
    std::vector<U64> offsets;
    for (U64 at = 0; at < kSize; at += memory_->remoteCopyChunkSize())
      if (memory_->replicationStatus(at)) offsets.push_back(at);
    return offsets;
  }

  Regions regions_;
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("data");
  Kel::Ptr<PendingWatcher> watcher_ = Kel::allocate<PendingWatcher>();
};

TEST_F(MorvikMemoryDataTest, EachOperationChangesTheRightCopiesAndFlags) {
  const std::vector<U8> bytes = pattern(300, 1), theirs = pattern(4096, 2);
  std::vector<U8> back(300);
  EXPECT_TRUE(marks([&] { memory_->doWrite_py(kSize - 300, addressOf(bytes.data()), 300); }));
  EXPECT_TRUE(mirrored(kSize - 300, 300) && localAt(kSize - 300, 300) == bytes) << "to the end";
  EXPECT_TRUE(marks([&] { memory_->doWrite(0, back.data(), 0); })) << "even of nothing";
  EXPECT_FALSE(marks([&] { memory_->doRead_py(kSize - 300, addressOf(back.data()), 300); }));
  EXPECT_EQ(back, bytes);
  // Which bytes a set or a copy changes, in which copy, is checked against the model; a set
  // stores only the value's low byte.
  EXPECT_TRUE(marks([&] { memory_->doSet(500, 418, 33); }));
  EXPECT_TRUE(localAt(500, 33) == std::vector<U8>(33, 0xA2) && mirrored(500, 33));
  EXPECT_TRUE(marks([&] { memory_->doCopy(6000, 0, 128); }));
  // A whole chunk at the start of remote memory is allowed, for remoteSet and the test write.
  EXPECT_FALSE(marks([&] { memory_->remoteSet(0, 0x3FF, 4096); }));
  EXPECT_TRUE(remoteAt(4095, 2) == (std::vector<U8>{0xFF, 0}) && !mirrored(0, 4096));
  EXPECT_FALSE(marks([&] { memory_->doWriteRemoteTest_py(4096, addressOf(theirs.data()), 4096); }));
  ::setenv("SIMULATION_VMID", "", 1);  // read at each call; an empty value counts
  memory_->doReadRemoteTest_py(4096, addressOf(back.data()), 300);
  ::setenv("SIMULATION_VMID", regions_.vmid().c_str(), 1);
  EXPECT_EQ(back, std::vector<U8>(theirs.begin(), theirs.begin() + 300));
  EXPECT_FALSE(mirrored(4096, 1)) << "local memory keeps its own bytes";
  EXPECT_TRUE(marks([&] { memory_->doWriteLocalTest_py(0, addressOf(theirs.data()), 16); }));
  EXPECT_TRUE(localAt(0, 16) == pattern(16, 2) && remoteAt(0, 1) == std::vector<U8>{0xFF});
  // Stores go through the writable shadow of whichever region holds the destination.
  const U64 remoteShadow = memory_->remoteMemoryWritableShadow().vaddr();
  EXPECT_EQ(memory_->getShadow(remote() + kSize - 1, 1), remoteShadow + kSize - 1);
  EXPECT_EQ(memory_->getShadow(local(), kSize), memory_->localMemoryWritableShadow().vaddr());
  EXPECT_EQ(memory_->getShadow(~U64{0}, 1), ~U64{0}) << "outside both: the address itself";
  EXPECT_EQ(memory_->getShadow(0, ~0u), 0u) << "whatever the size";
  Kel::Ptr<MorvikMemory> bare = MorvikLib::morvikMemoryFactory("bare");
  EXPECT_EQ(bare->getShadow(local(), 1), local()) << "nothing mapped: every address is its own";
  scribble(1024, 256, 8);
  // Remote destination, source read in place through local memory's read-only mapping.
  EXPECT_FALSE(marks([&] { memory_->protectedMemoryCopy(remote() + 2048, local() + 1024, 256); }));
  EXPECT_EQ(remoteAt(2048, 256), localAt(1024, 256));
  EXPECT_FALSE(marks([&] { memory_->protectedMemorySet(local() + 7, 0x1FE, 3); }));
  EXPECT_EQ(localAt(7, 4), (std::vector<U8>{0xFE, 0xFE, 0xFE, localAt(10, 1)[0]}));
  EXPECT_THAT(watcher_->pending, IsEmpty());
  EXPECT_THAT(pendingOffsets(), IsEmpty()) << "the test paths and remoteSet never defer";
}

// A write is cut at chunk boundaries; a whole-chunk piece waits even with remote memory mapped.
TEST_F(MorvikMemoryDataTest, OnlyPiecesShorterThanAChunkAreCopiedAtOnce) {
  std::vector<U8> bytes = pattern(10000, 5);
  memory_->doWrite(4000, bytes.data(), 100);
  EXPECT_TRUE(mirrored(4000, 100) && pendingOffsets().empty() && watcher_->pending.empty());
  memory_->doWrite(8192, bytes.data(), 4096);
  EXPECT_THAT(pendingOffsets(), ElementsAre(8192u));
  EXPECT_EQ(watcher_->pending, std::vector<bool>{true});
  EXPECT_FALSE(mirrored(8192, 1));
  memory_->doWrite(0, bytes.data(), 10000);
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 4096u, 8192u));
  EXPECT_TRUE(mirrored(8192, 1808) && !mirrored(10000, 1) && !mirrored(0, 1) && !mirrored(4096, 1));
  // Even an empty write marks the chunk of its offset while there is no peer to copy to.
  memory_->unsetRemote();
  memory_->doWrite(20000, bytes.data(), 0);
  // Without a peer the copier disarms and copies nothing, leaving every chunk pending.
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 4096u, 8192u, 16384u));
}

TEST_F(MorvikMemoryDataTest, TracesOfTheDataPath) {
  const std::string write = kSig + "doWrite(U32, Kel::BytePtr, U32)";
  const auto at = [](U64 base, U32 offset) { return hex(static_cast<U32>(base + offset)); };
  struct {
    U8 data[7];
    U8 beyond[4];
  } buffer = {{'a', 'b', 'c', 0, 'x', 'y', 'z'}, {'Q', 'Q', 'Q', 'Q'}};
  const std::string data64 = " data64 " + std::to_string(addressOf(buffer.data));
  TraceLevels levels{kLevel9};
  MorvikTest::TraceCapture capture;
  memory_->doWrite(16, buffer.data, 7);      // the text stops at the first zero byte
  memory_->doWrite(20, buffer.data + 4, 3);  // or after `size` bytes
  EXPECT_THAT(capture.texts(),
              ElementsAre(write + " byteOffset 16 size 7" + data64 + " data abc",
                          write + " write to local memory : " + hex(local()),
                          write + " memcpy : " + at(local(), 16) + " size 7",
                          write + " write to remote memory : " + hex(remote()),
                          write + " memcpy : " + at(remote(), 16) + " size 7",
                          kSchedule + " Copy data @ 10 size 7",
                          write + " byteOffset 20 size 3 data64 " +
                              std::to_string(addressOf(buffer.data + 4)) + " data xyz",
                          testing::_, testing::_, testing::_, testing::_, testing::_));
  EXPECT_EQ(capture.entries().front().function, "doWrite");
  EXPECT_EQ(capture.entries()[5].function, "scheduleRemoteCopy");

  // With remote memory unmapped the remote lines still come, and remoteSet only traces.
  memory_->unsetRemote();
  MorvikLib::traceHandle().levelsIs(kLevel9 | 1u);
  capture.clear();
  memory_->remoteSet(0, 1, 1 << 20);
  const std::string remoteSet = "void MorvikLib::MorvikMemory::remoteSet(U32, U32, U32) const";
  memory_->doWrite(4096, buffer.data, 2);
  EXPECT_THAT(capture.texts(),
              ElementsAre(remoteSet + " vaddrStart NULL ", testing::_, testing::_,
                          write + " memcpy : " + at(local(), 4096) + " size 2",
                          write + " write to remote memory : 0", write + " memcpy : 1000 size 2",
                          kSchedule + " Scheduled data copy @ 1000 size 2"));
}

// The copier and the sync. Where pieces go and which chunks the copier takes next or a sync marks
// are checked against a model in MorvikMemoryModel_test.cpp; here are their traces and
// notifications.
TEST_F(MorvikMemoryDataTest, CopierTakesOneChunkPerCallAndSyncArmsItUnlessNoSyncIsSet) {
  memory_->replicationStatusIs(4096, true);
  ::setenv("NOSYNC_MORVIK", "", 1);  // an empty value counts
  TraceLevels levels{1u | kLevel9};
  MorvikTest::TraceCapture capture;
  memory_->doSync();
  ::unsetenv("NOSYNC_MORVIK");
  EXPECT_THAT(capture.texts(), ElementsAre(kSig + "doSync() NOSYNC_MORVIK "));
  EXPECT_THAT(pendingOffsets(), ElementsAre(4096u));
  EXPECT_THAT(watcher_->pending, IsEmpty());
  // Nothing is copied while local memory is unmapped.
  memory_->unsetLocal();
  memory_->remoteCopyChunk();
  EXPECT_THAT(pendingOffsets(), ElementsAre(4096u));
  regions_.setLocal(*memory_);
  memory_->replicationStatusIs(5 * 4096, true);
  memory_->remoteCopyPendingIs(true);
  watcher_->pending.clear();
  capture.clear();
  for (int call = 0; call < 4; ++call) memory_->remoteCopyChunk();
  // The last copy still re-arms; the call after it finds nothing and says so once.
  EXPECT_EQ(watcher_->pending, (std::vector<bool>{false, true, false, true, false}));
  const std::string chunk = kSig + "remoteCopyChunk()";
  EXPECT_THAT(
      capture.texts(),
      ElementsAre(chunk, chunk + " Copy of chunk @ 1000 size 1000", chunk + "remoteCopyPending = 1",
                  chunk, chunk + " Copy of chunk @ 5000 size 1000", chunk + "remoteCopyPending = 1",
                  chunk, chunk + "remoteCopyPending = 0", chunk, chunk + "remoteCopyPending = 0"));
  EXPECT_EQ(capture.entries().back().function, "remoteCopyChunk");
  watcher_->pending.clear();
  memory_->doSync();
  EXPECT_EQ(watcher_->pending, std::vector<bool>{true});

  // Flushing traces only with remote memory mapped and ready.
  memory_->unsetRemote();
  capture.clear();
  memory_->doFlushWithRead();
  regions_.setRemote(*memory_);
  memory_->remoteMemoryReadyIs(false);
  memory_->doFlushWithRead();
  memory_->remoteMemoryReadyIs(true);
  memory_->doFlushWithRead();
  EXPECT_THAT(capture.texts(),
              ElementsAre(kSig + "doFlushWithRead() flush pending writes with remote read "));
}

// Remote memory smaller than local memory, so a range can fit one and not the other.
constexpr U32 kRemoteSize = 12288;
struct MorvikMemorySmallRemoteTest : MorvikMemoryDataTest {
  MorvikMemorySmallRemoteTest() : MorvikMemoryDataTest(kRemoteSize) {}
};

// doSync covers the remote region's size, and copies a trailing partial chunk at once.
TEST_F(MorvikMemorySmallRemoteTest, SyncCoversTheRemoteSize) {
  scribble(0, kRemoteSize, 9);
  memory_->doSync();
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 4096u, 8192u));
  memory_->remoteCopyChunkSizeIs(8192);
  memory_->doSync();
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u));
  EXPECT_TRUE(mirrored(8192, 4096) && remoteAt(0, 8192) == std::vector<U8>(8192));
  memory_->remoteCopyChunk();
  EXPECT_TRUE(mirrored(0, kRemoteSize));
}

const char* const kLocalBound = "localMemory().size() >= ( byteOffset + size )";
const char* const kRemoteBound = "remoteMemory().size() >= ( byteOffset + size )";
const char* const kRemoteEnd = "dest + size <= remoteMemory().vaddr() + remoteMemory().size()";
const char* const kLocalEnd = "dest + size <= localMemory().vaddr() + localMemory().size()";
const char* const kChunkLimit = "size <= remoteCopyChunkSize()";
const char* const kSimulation = "inSimulationEnv()";
// Says on standard error when ignoreChecksum changes, so the parent sees how far the child got.
const char* const kChecksumMarked = "<ignoreChecksum changed>";
class ChecksumHerald : public MorvikMemory::Notifiee {
 public:
  void onIgnoreChecksum() override { std::fprintf(stderr, "%s\n", kChecksumMarked); }
};

// The first `size` bytes of a real mapping.
MemoryMapping prefix(const MemoryMapping& m, U32 size) {
  return MemoryMapping(m.name(), m.vaddr(), size, m.paddr(), m.version());
}

using Matcher = testing::Matcher<const std::string&>;

// The whole condition text, as the assertion reports it.
Matcher failed(const std::string& condition) {
  return HasSubstr("Assertion failed: " + condition + "\n");
}

using MorvikMemoryDeathTest = MorvikMemorySmallRemoteTest;

TEST_F(MorvikMemoryDeathTest, EveryAssertionAbortsWithItsConditionText) {
  U8 buffer[8192] = {};
  MorvikMemory& m = *memory_;
  // The data path's traces reach standard error; refused test paths must not have traced yet.
  TraceLevels levels{kLevel9};
  const Matcher untraced = Not(HasSubstr("MorvikLib/9 "));
  const std::pair<std::function<void()>, Matcher> cases[] = {
      {[&] { m.doWrite(kSize - 3, buffer, 4); },
       AllOf(failed(kLocalBound), HasSubstr(kChecksumMarked))},
      {[&] { m.doRead(kSize, buffer, 1); },
       AllOf(failed(kLocalBound), Not(HasSubstr(kChecksumMarked)))},
      {[&] { m.unsetLocal(), m.doRead(0, buffer, 1); }, failed("localMemory().vaddr()")},
      {[&] {
         const MappedPair local = regions_.mapLocal();
         m.setLocal(prefix(local.memory, 0), local.shadow);
         m.doRead(0, buffer, 0);
       },
       failed("localMemory().size()")},
      {[&] { m.unsetLocal(), m.doSync(); },
       AllOf(failed("localMemory().vaddr()"), HasSubstr("remoteCopy"))},
      {[&] { m.remoteSet(kRemoteSize - 10, 0, 11); }, failed(kRemoteEnd)},
      {[&] { m.remoteSet(0, 0, 4097); }, failed(kChunkLimit)},
      {[&] { m.doWriteRemoteTest(0, buffer, 4097); }, failed(kChunkLimit)},
      {[&] {
         // Both sides 12 KiB long: the last 8 KiB chunk is copied half outside.
         const MappedPair local = regions_.mapLocal();
         m.setLocal(prefix(local.memory, kRemoteSize), prefix(local.shadow, kRemoteSize));
         m.remoteCopyChunkSizeIs(8192);
         m.replicationStatusIs(8192, true);
         m.remoteCopyChunk();
       },
       failed(kRemoteEnd)},
      {[&] { m.doSet(kSize - 1, 0, 2); }, failed(kLocalEnd)},
      {[&] { m.doCopy(kSize - 4, 0, 8); }, failed(kLocalEnd)},
      // Through the generic interface too, a well-formed call runs the function itself.
      {[&] {
         ::unsetenv("SIMULATION_VMID");
         Kel::GenericIf::call(Kel::GenericValue::of(memory_), "doReadRemoteTest_py",
                              {Kel::GenericValue::of(U64{0}), Kel::GenericValue::of(U64{0}),
                               Kel::GenericValue::of(U64{1})});
       },
       AllOf(failed(kSimulation), untraced)},
      {[&] { ::unsetenv("SIMULATION_VMID"), m.doWriteRemoteTest(0, buffer, 1); },
       AllOf(failed(kSimulation), untraced)},
      {[&] { ::unsetenv("SIMULATION_VMID"), m.doWriteLocalTest(0, buffer, 1); },
       AllOf(failed(kSimulation), Not(HasSubstr(kChecksumMarked)), untraced)},
      {[&] { m.doReadRemoteTest(kRemoteSize - 1, buffer, 2); }, failed(kRemoteBound)},
      {[&] { m.unsetRemote(), m.doReadRemoteTest(0, buffer, 1); }, failed(kRemoteBound)},
      {[&] { m.doWriteRemoteTest(kRemoteSize - 1, buffer, 2); }, failed(kRemoteBound)},
      // Fits local memory, not the smaller remote one.
      {[&] { m.doWriteLocalTest(kRemoteSize, buffer, 1); },
       AllOf(failed(kRemoteBound), HasSubstr(kChecksumMarked))},
      {[&] { m.setLocal(regions_.mapLocal().memory, {}), m.unsetLocal(); },
       failed("localMemoryWritableShadow().vaddr()")},
      {[&] { m.setRemote(regions_.mapRemote().memory, {}), m.unsetRemote(); },
       failed("remoteMemoryWritableShadow().vaddr()")}};
  m.ignoreChecksumIs(false);
  Kel::Ptr<ChecksumHerald> herald = Kel::allocate<ChecksumHerald>();
  herald->notifierIs(memory_);
  herald->isRegisteredNotifieeIs(true);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    EXPECT_DEATH(cases[i].first(), cases[i].second);
  }
}

}  // namespace
