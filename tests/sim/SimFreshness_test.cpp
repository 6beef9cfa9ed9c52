#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Chassis.h"
#include "CorruptionTracker.h"
#include "Freshness.h"
#include "Kel/ActivityManager.h"
#include "Kel/System.h"
#include "MemoryWatcher.h"
#include "Monitor.h"
#include "support/Loop.h"

namespace MorvikSim {
namespace {

// One feature of four chunks on a real chassis, its copier watched as in a run.
class SimFreshness : public ::testing::Test {
 protected:
  SimFreshness() { chassis_.buildMachines(); }

  Freshness measureAt(double t) {
    KelTest::runUntil(t);
    return freshness_.measure(chassis_, tracker_, t);
  }
  void write(U32 offset, U32 size) {
    std::vector<U8> bytes(size, 0x5a);
    chassis_.memory(0)->doWrite(offset, bytes.data(), size);
    monitor_.operation(OpKind::table, 0, offset, size, 4096, true);
  }

  Layout layout_{{{"alpha", 16384}}, {4096}};
  bool virtualTime_ = (Kel::System::virtualTimeIs(true, 0.0), true);
  Chassis chassis_{"simfresh-" + std::to_string(::getpid()), layout_, 4096};
  CorruptionTracker tracker_{[this](std::size_t f) { return chassis_.localBytes(f); },
                             [this](std::size_t f) { return chassis_.remoteBytes(f); }};
  FreshnessTracker freshness_{layout_, 4096};
  Monitor monitor_{{"alpha"}, tracker_, freshness_};
  Kel::Ptr<MemoryWatcher> watcher_ = MemoryWatcher::create(monitor_, 0, chassis_.memory(0));
};

// A whole chunk waits for the copier and ages until it is copied; bytes written behind the
// library's back are a lost write; while the standby's memory is away, all of it is behind.
TEST_F(SimFreshness, MeasuresWhatTheStandbyLacksAndCatchesLostWrites) {
  EXPECT_EQ(measureAt(1.0).staleChunks, 0u) << "the initial sync is done";
  write(4096, 4096);
  Freshness f = freshness_.measure(chassis_, tracker_, 4.0);
  EXPECT_EQ(f.staleChunks, 1u);
  EXPECT_EQ(f.staleBytes, 4096u);
  EXPECT_DOUBLE_EQ(f.oldestPendingAge, 3.0);
  EXPECT_EQ(f.unaccountedChunks, 0u);
  f = measureAt(5.0);
  EXPECT_EQ(f.staleChunks + f.staleBytes + f.unaccountedChunks, 0u) << "copied";
  EXPECT_DOUBLE_EQ(f.oldestPendingAge, 0.0);
  U8 lost[3] = {1, 2, 3};
  chassis_.memory(0)->doWriteLocalTest(12000, lost, 3);
  f = measureAt(7.0);
  EXPECT_EQ(f.unaccountedChunks, 1u);
  EXPECT_EQ(f.staleBytes, 3u);
  EXPECT_DOUBLE_EQ(f.oldestPendingAge, 2.0) << "behind since the last look at the latest";
  monitor_.standbyLost();
  chassis_.standbyAway(false);
  f = measureAt(9.0);
  EXPECT_EQ(f.staleChunks, 4u);
  EXPECT_EQ(f.staleBytes, 16384u);
  EXPECT_EQ(f.unaccountedChunks, 0u) << "nothing to compare while away";
  EXPECT_DOUBLE_EQ(f.oldestPendingAge, 4.0) << "the lost write is older than the standby's loss";
}

}  // namespace
}  // namespace MorvikSim
