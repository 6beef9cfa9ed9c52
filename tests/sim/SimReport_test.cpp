#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "CorruptionTracker.h"
#include "Report.h"
#include "TimelineCsv.h"

namespace MorvikSim {
namespace {

// Events are filed under the first sample at or after them, and quotes in them are doubled.
TEST(SimTimelineCsv, FilesEventsUnderTheirSample) {
  Report r;
  r.samples = {
      {},
      {.t = 10.0,
       .pendingPeak = 3,
       .bytesMirrored = 4096,
       .mirroredInPeriod = 4096,
       .freshness = {}},
      {.t = 20.0, .pendingPeak = 3, .bytesMirrored = 4096, .freshness = {4096, 1, 2.5, 1}}};
  r.events = {{0.0, true, "start"}, {5.0, true, "corrupt a+0x1"}, {10.0, false, "say \"hi\""}};
  std::ostringstream out;
  writeTimelineCsv(out, r);
  const std::string csv = out.str();
  EXPECT_EQ(csv.substr(csv.find('\n') + 1),
            "0.000,0,0,0,0,0,0,0,0,0,\"start\",0,0,0.000,0\n"
            "10.000,0,3,4096,409,0,0,0,0,0,\"corrupt a+0x1; say \"\"hi\"\"\",0,0,0.000,0\n"
            "20.000,0,3,4096,0,0,0,0,0,0,\"\",4096,1,2.500,1\n");
}

TEST(SimChecks, EachBrokenPromiseGetsItsOwnLine) {
  Report r;
  r.auditInterval = 60.0;
  r.switchoverAt = 3600.0;
  r.nosync = true;
  r.atRest = {.corruptBytes = 1, .differingBytes = 5, .differingChunks = 2};
  r.atSwitchover.unaccountedChunks = 1;
  r.freshness.samples = 722;
  r.freshness.unaccountedChunks = 3;
  r.freshness.samplesWithUnaccounted = 2;
  r.audit.unexplainedRepairs = 2;
  // One corruption never found, one found by the audit and never repaired.
  r.corruptionList = {{.injectedAt = 3590.0}, {.foundByAudit = true}};
  r.corruptions.failedHeals[static_cast<int>(HealCause::audit)] = 1;
  r.corruptions.failedHeals[static_cast<int>(HealCause::chunkChange)] = 3;
  evaluateChecks(r);
  const std::vector<std::string> want{
      "the copies differed after the copier came to rest: 5 bytes in 2 chunks (1 of them injected "
      "corruptions)",
      "1 corruption was never found (the last injected 10.0 s before the switchover; audits run "
      "every 1m00s)",
      "1 corruption found by the audit but never repaired",
      "the audit's repair left the corruption it found in place once",
      "the resync after a chunk-size change left a corruption in place 3 times",
      "the audit repaired 2 mismatches that no injected corruption explains",
      "stale chunks of the standby's copy that the copier did not know as pending: 3 over 2 of "
      "722 samples, 1 at the switchover: the mirror lost writes",
  };
  EXPECT_EQ(r.failures, want);
  EXPECT_EQ(r.note,
            "NOSYNC_MORVIK is set, so doSync did nothing: no repair or resync marked a chunk");
}

// Two features of 64 bytes each; a test plays the mirror by changing the standby's bytes.
class SimCorruptionTracker : public ::testing::Test {
 protected:
  void corrupt(std::size_t f, U32 offset, double t) {
    remote_[f][offset] ^= 0x5a;
    tracker_.injected(f, offset, t);
  }
  void repair(std::size_t f, U32 offset) { remote_[f][offset] = local_[f][offset]; }
  const Corruption& at(std::size_t i) const { return tracker_.corruptions().at(i); }
  U64 healedBy(HealCause cause) const {
    return tracker_.summary().healedBy[static_cast<int>(cause)];
  }

  std::vector<std::vector<U8>> local_{2, std::vector<U8>(64, 0)};
  std::vector<std::vector<U8>> remote_{2, std::vector<U8>(64, 0)};
  bool away_ = false;
  CorruptionTracker tracker_{[this](std::size_t f) { return local_[f].data(); },
                             [this](std::size_t f) { return away_ ? nullptr : remote_[f].data(); }};
};

// A write takes the credit only when it covers the byte; a repair that finishes without healing
// is counted as failed, and only the resync that was meant is judged.
TEST_F(SimCorruptionTracker, CreditGoesToTheFirstCauseThatCoversTheByte) {
  corrupt(0, 10, 1.0);
  corrupt(1, 10, 1.0);
  corrupt(1, 20, 1.0);
  tracker_.covered(0, 0, 10, 2.0);   // ends just before
  tracker_.covered(0, 11, 20, 2.0);  // starts just after
  tracker_.resynced(0, HealCause::audit, 3.0, 3, 1);
  tracker_.resyncFinished(4, 3.0);
  EXPECT_EQ(at(0).cause, HealCause::audit);
  tracker_.resyncFinished(3, 3.0);
  EXPECT_EQ(at(0).cause, HealCause::none);
  EXPECT_EQ(at(0).failedResyncs, 1u);
  tracker_.covered(0, 10, 1, 4.0);
  tracker_.resynced(1, HealCause::audit, 4.0, 5, 2);  // after the write: the write keeps it
  tracker_.covered(1, 10, 1, 4.5);
  for (auto [f, offset] : {std::pair{0, 10}, {1, 10}, {1, 20}}) repair(f, offset);
  tracker_.resyncFinished(5, 5.0);
  tracker_.checkHealed(5.0);
  const auto s = tracker_.summary();
  EXPECT_EQ(healedBy(HealCause::write), 1u);
  EXPECT_EQ(healedBy(HealCause::audit), 2u) << "two corruptions, one finding";
  EXPECT_EQ(s.auditFindings, 1u);
  EXPECT_EQ(s.foundByAudit, 2u);
  EXPECT_EQ(s.failedHeals[static_cast<int>(HealCause::audit)], 1u);
  EXPECT_EQ(s.outstanding, 0u);
  EXPECT_DOUBLE_EQ(at(2).healedAt, 5.0);
}

// The standby's memory took its corruptions with it; only its return can heal them, whatever the
// features write meanwhile. Nothing else announced: some chunk copy healed it.
TEST_F(SimCorruptionTracker, ALostStandbyWaitsForItsReturn) {
  corrupt(0, 10, 1.0);
  away_ = true;
  tracker_.standbyLost(2.0);
  tracker_.covered(0, 0, 64, 2.5);
  repair(0, 10);
  tracker_.checkHealed(3.0);  // nothing to compare while away
  EXPECT_EQ(tracker_.outstanding(), 1u);
  away_ = false;
  tracker_.resynced(0, HealCause::standbyReturn, 4.0, 9);
  tracker_.resyncFinished(9, 4.5);
  EXPECT_EQ(healedBy(HealCause::standbyReturn), 1u);
  corrupt(1, 3, 5.0);
  repair(1, 3);
  tracker_.checkHealed(6.0);
  EXPECT_EQ(at(1).cause, HealCause::chunkCopy);
}

}  // namespace
}  // namespace MorvikSim
