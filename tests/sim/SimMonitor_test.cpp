#include <gtest/gtest.h>

#include <vector>

#include "AnswerWatcher.h"
#include "AuditWatcher.h"
#include "CorruptionTracker.h"
#include "Kel/Allocate.h"
#include "MemoryWatcher.h"
#include "Monitor.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "MorvikLib/MorvikMemory.h"

namespace MorvikSim {
namespace {

// The watchers against the library's own entity and records: the monitor must count what the
// copier really has to do, from the notifications the library really sends.
class SimMonitor : public ::testing::Test {
 protected:
  SimMonitor()
      : tracker_([](std::size_t) { return nullptr; }, [](std::size_t) { return nullptr; }),
        monitor_({"alpha", "beta"}, tracker_),
        memory_(MorvikLib::morvikMemoryFactory(Kel::Name("alpha"))),
        watcher_(MemoryWatcher::create(monitor_, 0, memory_)) {}

  CorruptionTracker tracker_;
  Monitor monitor_;
  Kel::Ptr<MorvikLib::MorvikMemory> memory_;
  Kel::Ptr<MemoryWatcher> watcher_;
};

TEST_F(SimMonitor, CountsPendingChunksAcrossBitmapMembers) {
  memory_->replicationStatusIs(0, true);
  memory_->replicationStatusIs(4096, true);
  memory_->replicationStatusIs(8 * 4096, true);  // the next member of the bitmap
  memory_->replicationStatusIs(4096, true);      // already pending: nothing changes
  EXPECT_EQ(monitor_.pending(), 3u);
  EXPECT_EQ(monitor_.pendingIn(0), 3u);
  EXPECT_EQ(monitor_.pendingIn(1), 0u);
  EXPECT_EQ(monitor_.pendingPeak(), 3u);
  EXPECT_EQ(monitor_.chunksCopiedTotal(), 0u);
}

// The copier clears one bit of a member that stays; a resync deletes whole members and marks them
// again. Only the first is a copy.
TEST_F(SimMonitor, ClearedBitsAreCopiesDeletedMembersAreNot) {
  memory_->replicationStatusIs(0, true);
  memory_->replicationStatusIs(4096, true);
  memory_->replicationStatusIs(0, false);
  EXPECT_EQ(monitor_.pending(), 1u);
  EXPECT_EQ(monitor_.chunksCopiedTotal(), 1u);
  EXPECT_EQ(monitor_.chunkBytes(), 4096u);
  memory_->replicationStatusBitmapDelAll();
  EXPECT_EQ(monitor_.pending(), 0u);
  EXPECT_EQ(monitor_.chunksCopiedTotal(), 1u);
  // A copy is as big as the chunk size at the time of the copy.
  memory_->remoteCopyChunkSizeIs(16384);
  memory_->replicationStatusIs(0, true);
  memory_->replicationStatusIs(0, false);
  EXPECT_EQ(monitor_.chunkBytes(), 4096u + 16384u);
}

TEST_F(SimMonitor, AResyncEndsWhenItsFeatureHasDrained) {
  memory_->replicationStatusIs(0, true);
  memory_->replicationStatusIs(4096, true);
  monitor_.resyncStarted(ResyncKind::chunkChange, {0, 1}, "all");
  ASSERT_EQ(monitor_.resyncs().size(), 1u);
  EXPECT_EQ(monitor_.resyncs()[0].chunks, 2u);
  memory_->replicationStatusIs(0, false);
  EXPECT_FALSE(monitor_.resyncs()[0].done);
  memory_->replicationStatusIs(4096, false);
  EXPECT_TRUE(monitor_.resyncs()[0].done);
  // Nothing pending: a resync that marks nothing is over at once.
  monitor_.resyncStarted(ResyncKind::auditRepair, {1}, "beta");
  EXPECT_TRUE(monitor_.resyncs()[1].done);
  EXPECT_EQ(monitor_.resyncs()[1].chunks, 0u);
  EXPECT_EQ(monitor_.drains().drains, 1u);
  EXPECT_EQ(monitor_.drains().peakChunks, 2u);
}

TEST_F(SimMonitor, PeaksRestartAtEachSample) {
  memory_->replicationStatusIs(0, true);
  memory_->replicationStatusIs(4096, true);
  memory_->replicationStatusIs(0, false);
  EXPECT_EQ(monitor_.takePeakSinceMark(), 2u);
  EXPECT_EQ(monitor_.takePeakSinceMark(), 1u);
  memory_->replicationStatusIs(4096, false);
  EXPECT_EQ(monitor_.takePeakSinceMark(), 1u);
  EXPECT_EQ(monitor_.takePeakSinceMark(), 0u);
}

// A new cycle over an unanswered one only happens after the audit gave up and resynced.
TEST_F(SimMonitor, ANewCycleOverAnUnansweredOneIsARetryResync) {
  auto request = Kel::allocate<Morvik::AuditRequest>(Kel::Name("alphaAudit"));
  auto status = Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
  auto cycles = AuditWatcher::create(monitor_, 0, request, status);
  auto answers = AnswerWatcher::create(monitor_, status);
  request->requestIdInc(1);  // the first cycle has nothing before it
  status->checksumResultIs(0);
  status->resultIdIs(1);
  status->resyncTriggerInc(1);
  request->requestIdInc(1);  // cycle 1 was answered
  EXPECT_EQ(monitor_.audit().retryResyncs, 0u);
  request->requestIdInc(1);  // cycle 2 was not
  EXPECT_EQ(monitor_.audit().retryResyncs, 1u);
  status->checksumResultIs(1);
  status->resultIdIs(3);
  status->resyncTriggerInc(1);
  request->auditErrorsFixedInc(1);
  const AuditCounts counts = monitor_.audit();
  EXPECT_EQ(counts.cycles, 3u);
  EXPECT_EQ(counts.answers, 2u);
  EXPECT_EQ(counts.mismatches, 1u);
  EXPECT_EQ(counts.repairs, 1u);
  EXPECT_EQ(counts.unexplainedRepairs, 1u);  // nothing was injected
  ASSERT_EQ(monitor_.events().size(), 2u);
  EXPECT_EQ(monitor_.events()[0].text, "retry resync alpha");
  EXPECT_EQ(monitor_.events()[1].text, "audit repair alpha");
}

}  // namespace
}  // namespace MorvikSim
