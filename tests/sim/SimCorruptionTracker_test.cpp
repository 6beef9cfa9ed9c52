#include <gtest/gtest.h>

#include <vector>

#include "CorruptionTracker.h"

namespace MorvikSim {
namespace {

// Two features of 64 bytes each; a test plays the mirror by changing the standby's bytes.
class SimCorruptionTracker : public ::testing::Test {
 protected:
  SimCorruptionTracker()
      : local_(2, std::vector<U8>(64, 0)),
        remote_(2, std::vector<U8>(64, 0)),
        tracker_([this](std::size_t f) { return local_[f].data(); },
                 [this](std::size_t f) { return away_ ? nullptr : remote_[f].data(); }) {}

  void corrupt(std::size_t f, U32 offset, double t) {
    remote_[f][offset] ^= 0x5a;
    tracker_.injected(f, offset, t);
  }
  void repair(std::size_t f, U32 offset) { remote_[f][offset] = local_[f][offset]; }
  const Corruption& at(std::size_t i) const { return tracker_.corruptions().at(i); }

  std::vector<std::vector<U8>> local_;
  std::vector<std::vector<U8>> remote_;
  bool away_ = false;
  CorruptionTracker tracker_;
};

TEST_F(SimCorruptionTracker, StaysOutstandingUntilTheBytesAgree) {
  corrupt(0, 10, 1.0);
  tracker_.checkHealed(2.0);
  EXPECT_EQ(tracker_.outstanding(), 1u);
  EXPECT_EQ(tracker_.outstandingIn(0), 1u);
  EXPECT_EQ(tracker_.outstandingIn(1), 0u);
  repair(0, 10);
  tracker_.checkHealed(3.0);
  EXPECT_EQ(tracker_.outstanding(), 0u);
  EXPECT_TRUE(at(0).healed);
  EXPECT_DOUBLE_EQ(at(0).healedAt, 3.0);
  // Nothing announced itself: some chunk copy did it.
  EXPECT_EQ(at(0).cause, HealCause::chunkCopy);
}

TEST_F(SimCorruptionTracker, AWriteTakesTheCreditOnlyWhenItCoversTheByte) {
  corrupt(0, 10, 1.0);
  tracker_.covered(0, 0, 10, 2.0);   // ends just before
  tracker_.covered(1, 0, 64, 2.0);   // another feature
  tracker_.covered(0, 11, 20, 2.0);  // starts just after
  EXPECT_EQ(at(0).cause, HealCause::none);
  tracker_.covered(0, 10, 1, 3.0);
  EXPECT_EQ(at(0).cause, HealCause::write);
  repair(0, 10);
  tracker_.checkHealed(4.0);
  const auto s = tracker_.summary();
  EXPECT_EQ(s.healedOtherwise, 1u);
  EXPECT_EQ(s.healedBy[static_cast<int>(HealCause::write)], 1u);
  EXPECT_EQ(s.foundByAudit, 0u);
}

TEST_F(SimCorruptionTracker, TwoCorruptionsFoundByOneRepairAreOneFinding) {
  corrupt(0, 10, 1.0);
  corrupt(0, 20, 2.0);
  corrupt(1, 5, 2.5);
  tracker_.resynced(0, HealCause::audit, 3.0, 7, 1);
  repair(0, 10);
  repair(0, 20);
  tracker_.resyncFinished(7, 3.5);
  tracker_.resynced(1, HealCause::audit, 4.0, 8, 2);
  repair(1, 5);
  tracker_.resyncFinished(8, 4.5);
  const auto s = tracker_.summary();
  EXPECT_EQ(s.injected, 3u);
  EXPECT_EQ(s.foundByAudit, 3u);
  EXPECT_EQ(s.auditFindings, 2u);
  EXPECT_EQ(s.outstanding, 0u);
  EXPECT_DOUBLE_EQ(at(0).healedAt, 3.5);
}

TEST_F(SimCorruptionTracker, TheFirstCauseKeepsTheCredit) {
  corrupt(0, 10, 1.0);
  tracker_.covered(0, 0, 64, 2.0);
  tracker_.resynced(0, HealCause::audit, 3.0, 1, 1);
  repair(0, 10);
  tracker_.resyncFinished(1, 4.0);
  EXPECT_EQ(at(0).cause, HealCause::write);
  EXPECT_TRUE(at(0).foundByAudit);
  EXPECT_EQ(tracker_.summary().foundByAudit, 0u);
}

// A repair that finishes without healing did not do its job; a later write may heal the byte and
// takes the credit, while the failed repair is counted.
TEST_F(SimCorruptionTracker, AResyncThatLeavesTheByteWrongLosesTheCredit) {
  corrupt(0, 10, 1.0);
  tracker_.resynced(0, HealCause::audit, 2.0, 3, 1);
  tracker_.resyncFinished(3, 2.0);
  EXPECT_EQ(at(0).cause, HealCause::none);
  EXPECT_EQ(at(0).failedResyncs, 1u);
  EXPECT_TRUE(at(0).foundByAudit);
  tracker_.covered(0, 8, 4, 5.0);
  repair(0, 10);
  tracker_.checkHealed(5.0);
  const auto s = tracker_.summary();
  EXPECT_EQ(s.failedHeals[static_cast<int>(HealCause::audit)], 1u);
  EXPECT_EQ(s.healedBy[static_cast<int>(HealCause::write)], 1u);
  EXPECT_EQ(s.foundByAudit, 0u);
}

TEST_F(SimCorruptionTracker, OnlyTheResyncThatWasMeantIsJudged) {
  corrupt(0, 10, 1.0);
  tracker_.resynced(0, HealCause::chunkChange, 2.0, 4);
  tracker_.resyncFinished(5, 3.0);  // another resync
  EXPECT_EQ(at(0).cause, HealCause::chunkChange);
  EXPECT_EQ(tracker_.summary().failedHeals[static_cast<int>(HealCause::chunkChange)], 0u);
}

// The standby's memory took its corruptions with it; only its return can heal them, whatever the
// features write meanwhile.
TEST_F(SimCorruptionTracker, ALostStandbyWaitsForItsReturn) {
  corrupt(0, 10, 1.0);
  tracker_.covered(0, 0, 64, 1.5);
  away_ = true;
  tracker_.standbyLost(2.0);
  EXPECT_EQ(at(0).cause, HealCause::standbyReturn);
  tracker_.covered(0, 0, 64, 2.5);
  repair(0, 10);
  tracker_.checkHealed(3.0);  // nothing to compare while away
  EXPECT_EQ(tracker_.outstanding(), 1u);
  away_ = false;
  tracker_.resynced(0, HealCause::standbyReturn, 4.0, 9);
  EXPECT_EQ(at(0).resync, 9u);
  tracker_.resyncFinished(9, 4.5);
  EXPECT_TRUE(at(0).healed);
  EXPECT_EQ(tracker_.summary().healedBy[static_cast<int>(HealCause::standbyReturn)], 1u);
}

}  // namespace
}  // namespace MorvikSim
