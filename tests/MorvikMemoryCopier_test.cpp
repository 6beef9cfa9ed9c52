#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/TraceCapture.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MorvikMemory;
using MorvikTest::MappedPair;
using MorvikTest::Regions;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr U32 kSize = 64 * 1024;

const std::string kSigSchedule = "bool MorvikLib::MorvikMemory::scheduleRemoteCopy(U32, U32)";
const std::string kSigChunk = "void MorvikLib::MorvikMemory::remoteCopyChunk()";
const std::string kSigSync = "void MorvikLib::MorvikMemory::doSync()";
const std::string kSigFlush = "void MorvikLib::MorvikMemory::doFlushWithRead()";

// Switches the library's trace levels for one test and puts the old ones back.
class TraceLevels {
 public:
  explicit TraceLevels(std::initializer_list<int> levels)
      : saved_(MorvikLib::traceHandle().levels()) {
    MorvikLib::traceHandle().allLevelsIs(false);
    for (int level : levels) MorvikLib::traceHandle().levelIs(level, true);
  }
  ~TraceLevels() {
    for (int level = 0; level < Kel::TraceHandle::kLevels; ++level) {
      MorvikLib::traceHandle().levelIs(level, (saved_ >> level) & 1u);
    }
  }

 private:
  U32 saved_;
};

// The values remoteCopyPending takes, one per notification.
class PendingWatcher : public MorvikMemory::Notifiee {
 public:
  std::vector<bool> values;
  void onRemoteCopyPending() override {
    values.push_back(static_cast<const MorvikMemory*>(notifierEntity().ptr())->remoteCopyPending());
  }
};

std::vector<U8> pattern(std::size_t size, U8 seed) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(seed + i * 13 + (i >> 9));
  return bytes;
}

std::string copied(U32 offset, U32 size) {
  std::ostringstream out;
  out << kSigSchedule << " Copy data @ " << std::hex << offset << " size " << size;
  return out.str();
}

std::string scheduled(U32 offset, U32 size) {
  std::ostringstream out;
  out << kSigSchedule << " Scheduled data copy @ " << std::hex << offset << " size " << size;
  return out.str();
}

class MorvikMemoryCopierTest : public testing::Test {
 protected:
  explicit MorvikMemoryCopierTest(U32 localSize = kSize, U32 remoteSize = kSize)
      : regions_(Regions::Kind::simulated, localSize, remoteSize) {
    mapLocal();
    mapRemote();
    watcher_->notifierIs(memory_);
    watcher_->isRegisteredNotifieeIs(true);
  }

  void mapLocal() {
    const MappedPair local = regions_.mapLocal();
    memory_->setLocal(local.memory, local.shadow);
  }
  void mapRemote() {
    const MappedPair remote = regions_.mapRemote();
    memory_->setRemote(remote.memory, remote.shadow);
  }

  // Changes local memory alone, so a later mirror shows which bytes it moved.
  std::vector<U8> scribbleLocal(U32 offset, U32 size, U8 seed) {
    std::vector<U8> bytes = pattern(size, seed);
    memory_->doWriteLocalTest(offset, bytes.data(), size);
    return bytes;
  }
  bool remoteMatchesLocal(U32 offset, U32 size) const {
    return std::memcmp(regions_.localBytes() + offset, regions_.remoteBytes() + offset, size) == 0;
  }
  bool remoteIsZero(U32 offset, U32 size) const {
    for (U32 i = 0; i < size; ++i) {
      if (regions_.remoteBytes()[offset + i]) return false;
    }
    return true;
  }
  std::vector<U64> pendingOffsets(U32 upTo = kSize) const {
    std::vector<U64> offsets;
    const U32 chunk = memory_->remoteCopyChunkSize();
    for (U64 offset = 0; offset < upTo; offset += chunk) {
      if (memory_->replicationStatus(offset)) offsets.push_back(offset);
    }
    return offsets;
  }
  void drain() {
    do memory_->remoteCopyChunk();
    while (memory_->remoteCopyPending());
  }

  Regions regions_;
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("copier");
  Kel::Ptr<PendingWatcher> watcher_ = Kel::allocate<PendingWatcher>();
};

struct SplitCase {
  U32 chunkSize;
  U32 offset;
  U32 size;
  std::vector<std::string> pieces;
  bool pending;
};

TEST_F(MorvikMemoryCopierTest, WritesAreCutAtChunkBoundariesAndOnlyShortPiecesGoAtOnce) {
  const SplitCase cases[] = {
      {4096, 4000, 100, {copied(4000, 96), copied(4096, 4)}, false},
      {4096, 8192, 4096, {scheduled(8192, 4096)}, true},
      {4096, 0, 10000, {scheduled(0, 4096), scheduled(4096, 4096), copied(8192, 1808)}, true},
      {4096, 0, 4095, {copied(0, 4095)}, false},
      {4096, 4000, 96, {copied(4000, 96)}, false},
      {4096, 4000, 96 + 4096, {copied(4000, 96), scheduled(4096, 4096)}, true},
      {4096,
       4000,
       96 + 8192 + 104,
       {copied(4000, 96), scheduled(4096, 4096), scheduled(8192, 4096), copied(12288, 104)},
       true},
      {4096, 12345, 0, {copied(12345, 0)}, false},
      {4096, kSize - 1, 1, {copied(kSize - 1, 1)}, false},
      {256, 200, 400, {copied(200, 56), scheduled(256, 256), copied(512, 88)}, true},
      {65536, 1, kSize - 1, {copied(1, kSize - 1)}, false},
  };
  TraceLevels levels{9};
  for (const SplitCase& c : cases) {
    SCOPED_TRACE(std::to_string(c.offset) + "+" + std::to_string(c.size) + " in chunks of " +
                 std::to_string(c.chunkSize));
    memory_->remoteCopyChunkSizeIs(c.chunkSize);
    memory_->replicationStatusBitmapDelAll();
    memory_->remoteCopyPendingIs(false);
    watcher_->values.clear();
    std::vector<U8> bytes = pattern(c.size, static_cast<U8>(c.offset));
    Kel::TraceCapture capture;
    memory_->doWrite(c.offset, bytes.data(), c.size);
    std::vector<std::string> pieces;
    for (const auto& entry : capture.entries()) {
      if (entry.function == "scheduleRemoteCopy") pieces.push_back(entry.text);
    }
    EXPECT_THAT(pieces, ElementsAreArray(c.pieces));
    EXPECT_EQ(memory_->remoteCopyPending(), c.pending);
    EXPECT_EQ(watcher_->values, c.pending ? std::vector<bool>{true} : std::vector<bool>{});
    drain();
    EXPECT_TRUE(remoteMatchesLocal(0, kSize));
  }
}

TEST_F(MorvikMemoryCopierTest, AWholeChunkIsDeferredThoughRemoteMemoryIsMapped) {
  std::vector<U8> bytes = pattern(4096, 1);
  memory_->doWrite(8192, bytes.data(), 4096);
  EXPECT_THAT(pendingOffsets(), ElementsAre(8192u));
  EXPECT_TRUE(memory_->remoteCopyPending());
  EXPECT_TRUE(remoteIsZero(8192, 4096));
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(8192, 4096));
  EXPECT_THAT(pendingOffsets(), IsEmpty());
}

TEST_F(MorvikMemoryCopierTest, ALongWriteDefersItsWholeChunksAndMirrorsItsTailAtOnce) {
  std::vector<U8> bytes = pattern(10000, 2);
  memory_->doWrite(0, bytes.data(), 10000);
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 4096u));
  EXPECT_TRUE(remoteIsZero(0, 8192));
  EXPECT_TRUE(remoteMatchesLocal(8192, 1808));
}

TEST_F(MorvikMemoryCopierTest, PendingChunksAreCopiedLowestFirstOnePerCall) {
  scribbleLocal(0, 8 * 4096, 3);
  memory_->replicationStatusIs(5 * 4096, true);
  memory_->replicationStatusIs(1 * 4096, true);
  memory_->remoteCopyPendingIs(true);
  watcher_->values.clear();
  TraceLevels levels{9};
  Kel::TraceCapture capture;

  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(4096, 4096));
  EXPECT_TRUE(remoteIsZero(5 * 4096, 4096));
  EXPECT_THAT(pendingOffsets(), ElementsAre(5 * 4096u));
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(5 * 4096, 4096));
  EXPECT_THAT(pendingOffsets(), IsEmpty());
  EXPECT_TRUE(memory_->remoteCopyPending()) << "the last copy still re-arms";
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
  memory_->remoteCopyChunk();
  EXPECT_EQ(watcher_->values, (std::vector<bool>{false, true, false, true, false}));
  EXPECT_TRUE(remoteIsZero(0, 4096)) << "never pending, never copied";

  EXPECT_THAT(capture.texts(), ElementsAre(kSigChunk, kSigChunk + " Copy of chunk @ 1000 size 1000",
                                           kSigChunk + "remoteCopyPending = 1", kSigChunk,
                                           kSigChunk + " Copy of chunk @ 5000 size 1000",
                                           kSigChunk + "remoteCopyPending = 1", kSigChunk,
                                           kSigChunk + "remoteCopyPending = 0", kSigChunk,
                                           kSigChunk + "remoteCopyPending = 0"));
  for (const auto& entry : capture.entries()) {
    EXPECT_EQ(entry.level, 9);
    EXPECT_EQ(entry.function, "remoteCopyChunk");
  }
}

TEST_F(MorvikMemoryCopierTest, ChunksMarkedBehindTheCopierAreFoundOnTheNextCall) {
  scribbleLocal(0, kSize, 4);
  memory_->replicationStatusIs(6 * 4096, true);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(6 * 4096, 4096));
  // Behind the last copy, by each way the bitmap can change.
  memory_->replicationStatusIs(2 * 4096, true);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(2 * 4096, 4096));
  memory_->replicationStatusBitmapIs(0, 0x02);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(4096, 4096));
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending()) << "searched to the end: nothing left";
  memory_->replicationStatusBitmapIs(0, 0x01);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(0, 4096)) << "found after a search that found nothing";
  EXPECT_TRUE(memory_->remoteCopyPending());
  EXPECT_TRUE(remoteIsZero(3 * 4096, 3 * 4096));
}

TEST_F(MorvikMemoryCopierTest, ChunksRemovedFromTheBitmapAreNotCopied) {
  scribbleLocal(0, kSize, 5);
  memory_->replicationStatusIs(3 * 4096, true);
  memory_->replicationStatusIs(9 * 4096, true);
  memory_->replicationStatusBitmapDel(0);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteIsZero(3 * 4096, 4096));
  EXPECT_TRUE(remoteMatchesLocal(9 * 4096, 4096));
  memory_->replicationStatusIs(4 * 4096, true);
  memory_->replicationStatusBitmapDelAll();
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
  EXPECT_TRUE(remoteIsZero(4 * 4096, 4096));
}

TEST_F(MorvikMemoryCopierTest, OnlyChunksBelowTheLocalSizeAreCopied) {
  memory_->replicationStatusIs(kSize, true);  // one chunk past the local region
  memory_->replicationStatusIs(U64{1} << 40, true);
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
  EXPECT_TRUE(memory_->replicationStatus(kSize)) << "stays pending";
  EXPECT_TRUE(memory_->replicationStatus(U64{1} << 40));
}

TEST_F(MorvikMemoryCopierTest, OldBitsStandForNewRangesAfterAChunkSizeChange) {
  scribbleLocal(0, kSize, 6);
  memory_->replicationStatusIs(0 * 4096, true);
  memory_->replicationStatusIs(5 * 4096, true);
  memory_->replicationStatusIs(6 * 4096, true);
  memory_->remoteCopyChunk();
  ASSERT_TRUE(remoteMatchesLocal(0, 4096));
  // Chunk 5 now covers [10240, 12288) and chunk 6 covers [12288, 14336).
  memory_->remoteCopyChunkSizeIs(2048);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(10240, 2048));
  EXPECT_TRUE(remoteIsZero(4096, 6144));
  EXPECT_TRUE(remoteIsZero(12288, kSize - 12288));
  // Chunk 6 now covers [49152, 57344).
  memory_->remoteCopyChunkSizeIs(8192);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(49152, 8192));
  EXPECT_TRUE(remoteIsZero(12288, 49152 - 12288));
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
}

TEST_F(MorvikMemoryCopierTest, ALowerChunkIsFoundAfterTheChunkSizeGrows) {
  scribbleLocal(0, kSize, 7);
  memory_->remoteCopyChunkSizeIs(1024);
  memory_->replicationStatusIs(2 * 1024, true);
  memory_->replicationStatusIs(9 * 1024, true);
  memory_->remoteCopyChunk();
  ASSERT_TRUE(remoteMatchesLocal(2048, 1024));
  memory_->remoteCopyChunkSizeIs(4096);
  memory_->replicationStatusIs(0, true);
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(0, 4096)) << "chunk 0, below the last copy";
  EXPECT_TRUE(remoteIsZero(4096, 4096));
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(9 * 4096, 4096)) << "chunk 9 of 4 KiB";
  EXPECT_TRUE(remoteIsZero(9 * 1024, 1024));
}

TEST_F(MorvikMemoryCopierTest, WithRemoteUnmappedEveryWriteIsDeferredUntilResync) {
  memory_->unsetRemote();
  std::vector<U8> small = pattern(10, 1);
  std::vector<U8> large = pattern(9000, 2);
  memory_->doWrite(100, small.data(), 10);
  memory_->doWrite(20000, large.data(), 9000);
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 16384u, 20480u, 24576u, 28672u));
  EXPECT_TRUE(memory_->remoteCopyPending());
  watcher_->values.clear();
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
  memory_->remoteCopyChunk();
  EXPECT_EQ(watcher_->values, std::vector<bool>{false});
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 16384u, 20480u, 24576u, 28672u));

  mapRemote();
  memory_->doSync();
  drain();
  EXPECT_TRUE(remoteMatchesLocal(0, kSize));
  EXPECT_THAT(pendingOffsets(), IsEmpty());
}

TEST_F(MorvikMemoryCopierTest, WithLocalUnmappedPendingChunksStayPending) {
  memory_->replicationStatusIs(4096, true);
  memory_->unsetLocal();
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending());
  EXPECT_TRUE(memory_->replicationStatus(4096));
  mapLocal();
  memory_->remoteCopyChunk();
  EXPECT_TRUE(memory_->remoteCopyPending());
  EXPECT_FALSE(memory_->replicationStatus(4096));
}

TEST_F(MorvikMemoryCopierTest, SyncMarksEveryWholeChunkOfTheRemoteSizeAndCopiesByTheCopier) {
  memory_->replicationStatusIs(3 * kSize, true);  // stale, beyond both regions
  scribbleLocal(0, kSize, 8);
  watcher_->values.clear();
  memory_->doSync();
  std::vector<U64> all;
  for (U64 offset = 0; offset < kSize; offset += 4096) all.push_back(offset);
  EXPECT_THAT(pendingOffsets(), ElementsAreArray(all));
  EXPECT_FALSE(memory_->replicationStatus(3 * kSize)) << "the set is rebuilt from scratch";
  EXPECT_TRUE(remoteIsZero(0, kSize)) << "nothing is copied at once";
  EXPECT_EQ(watcher_->values, std::vector<bool>{true});
  int passes = 0;
  while (memory_->remoteCopyPending()) {
    memory_->remoteCopyChunk();
    ++passes;
  }
  EXPECT_EQ(passes, static_cast<int>(all.size()) + 1);
  EXPECT_TRUE(remoteMatchesLocal(0, kSize));
}

class MorvikMemorySmallRemoteTest : public MorvikMemoryCopierTest {
 protected:
  MorvikMemorySmallRemoteTest() : MorvikMemoryCopierTest(kSize, 8192) {}
};

TEST_F(MorvikMemorySmallRemoteTest, SyncCoversTheRemoteRegionsSizeNotTheLocalOne) {
  scribbleLocal(0, 8192, 9);
  memory_->doSync();
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u, 4096u));
  drain();
  EXPECT_TRUE(remoteMatchesLocal(0, 8192));
}

class MorvikMemoryOddRemoteTest : public MorvikMemoryCopierTest {
 protected:
  MorvikMemoryOddRemoteTest() : MorvikMemoryCopierTest(kSize, 12288) {}
};

TEST_F(MorvikMemoryOddRemoteTest, SyncCopiesATrailingPartialChunkAtOnce) {
  memory_->remoteCopyChunkSizeIs(8192);
  scribbleLocal(0, 12288, 10);
  memory_->doSync();
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u));
  EXPECT_TRUE(remoteMatchesLocal(8192, 4096));
  EXPECT_TRUE(remoteIsZero(0, 8192));
  memory_->remoteCopyChunk();
  EXPECT_TRUE(remoteMatchesLocal(0, 12288));
}

TEST_F(MorvikMemoryCopierTest, SyncWithRemoteUnmappedMarksChunkZero) {
  memory_->unsetRemote();
  memory_->doSync();
  EXPECT_THAT(pendingOffsets(), ElementsAre(0u));
  EXPECT_TRUE(memory_->remoteCopyPending());
}

TEST_F(MorvikMemoryCopierTest, NoSyncLeavesEverythingAsItWasAndTraces) {
  memory_->replicationStatusIs(4096, true);
  memory_->replicationStatusIs(2 * kSize, true);
  watcher_->values.clear();
  for (const char* value : {"", "1"}) {
    SCOPED_TRACE(std::string("NOSYNC_MORVIK=") + value);
    regions_.envIs("NOSYNC_MORVIK", value);
    TraceLevels levels{0};
    Kel::TraceCapture capture;
    memory_->doSync();
    EXPECT_THAT(capture.texts(), ElementsAre(kSigSync + " NOSYNC_MORVIK "));
    EXPECT_EQ(capture.entries().front().level, 0);
    EXPECT_EQ(capture.entries().front().function, "doSync");
    EXPECT_THAT(pendingOffsets(), ElementsAre(4096u));
    EXPECT_TRUE(memory_->replicationStatus(2 * kSize));
    EXPECT_FALSE(memory_->remoteCopyPending());
    EXPECT_THAT(watcher_->values, IsEmpty());
  }
  regions_.envIs("NOSYNC_MORVIK", nullptr);
  memory_->doSync();
  EXPECT_FALSE(memory_->replicationStatus(2 * kSize)) << "the variable is read at every call";
}

TEST_F(MorvikMemoryCopierTest, FlushTracesOnlyWithRemoteReadyAndMapped) {
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doFlushWithRead();
  EXPECT_THAT(capture.texts(), ElementsAre(kSigFlush + " flush pending writes with remote read "));
  EXPECT_EQ(capture.entries().front().function, "doFlushWithRead");
  capture.clear();
  memory_->remoteMemoryReadyIs(false);
  memory_->doFlushWithRead();
  memory_->unsetRemote();
  memory_->remoteMemoryReadyIs(true);
  memory_->doFlushWithRead();
  EXPECT_THAT(capture.texts(), IsEmpty());
}

}  // namespace
