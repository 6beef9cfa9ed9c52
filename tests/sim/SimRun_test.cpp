#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "FaultParser.h"
#include "HotZones.h"
#include "Kel/ActivityManager.h"
#include "Layout.h"
#include "Options.h"
#include "Simulator.h"

namespace MorvikSim {
namespace {

// Whole runs of the simulator on a small chassis, each with one planted fault, checking that the
// report puts the credit (or the blame) where it belongs. Writes stay in the features' hot parts,
// so a corruption planted elsewhere is left to the mirror's own repairs.
class SimRun : public ::testing::Test {
 protected:
  SimRun() {
    options_.features = {{"alpha", 64u << 10}, {"beta", 128u << 10}};
    options_.chunkSizes = {4096, 16384};
    options_.duration = 180.0;
    options_.auditInterval = 10.0;
    options_.rate = 20.0;
    options_.locality = 1.0;
    options_.faultSet = SimOptions::FaultSet::none;
    options_.quiet = true;
  }

  // An offset of the feature that its writes never touch.
  std::string coldSpot(const std::string& feature) const {
    const Layout layout(options_.features, options_.chunkSizes);
    const std::size_t f = layout.find(feature);
    return "feature=" + feature + ",offset=" +
           std::to_string(coldOffset(hotZones(options_, layout)[f], layout.size(f), 12345));
  }

  void fault(const std::string& fault) { options_.faults.push_back(parseFault(fault)); }

  Report run() {
    validateOptions(options_);
    Report report = Simulator(options_).run();
    // Every timer of the run is gone with it.
    EXPECT_TRUE(Kel::activityManager()->clock()->idle());
    return report;
  }

  static bool mentions(const Report& r, const std::string& text) {
    return std::any_of(r.failures.begin(), r.failures.end(),
                       [&](const std::string& f) { return f.find(text) != std::string::npos; });
  }

  SimOptions options_;
};

TEST_F(SimRun, TheAuditFindsACorruptionWithinOneInterval) {
  fault("corrupt@30s," + coldSpot("alpha"));
  const Report r = run();
  ASSERT_EQ(r.corruptionList.size(), 1u);
  const Corruption& c = r.corruptionList[0];
  EXPECT_EQ(c.cause, HealCause::audit);
  EXPECT_TRUE(c.healed);
  EXPECT_LE(c.healedAt - c.injectedAt, options_.auditInterval);
  EXPECT_EQ(r.corruptions.auditFindings, 1u);
  EXPECT_EQ(r.audit.repairs, 1u);
  EXPECT_EQ(r.audit.unexplainedRepairs, 0u);
  EXPECT_EQ(r.audit.eventLogs, 1u);
  EXPECT_TRUE(r.passed()) << r.failures.front();
  EXPECT_EQ(r.atRest.differingBytes, 0u);
}

TEST_F(SimRun, WithoutResyncsTheRunFailsAndSaysWhy) {
  options_.nosync = true;
  fault("corrupt@30s," + coldSpot("alpha"));
  const Report r = run();
  EXPECT_FALSE(r.passed());
  EXPECT_TRUE(mentions(r, "1 corruption found by the audit but never repaired"));
  EXPECT_TRUE(mentions(r, "the audit's repair left the corruption it found in place"));
  EXPECT_TRUE(mentions(r, "the copies differed after the copier came to rest: 1 byte in 1 chunk"));
  EXPECT_EQ(r.note, "NOSYNC_MORVIK is set, so every resync did nothing");
  EXPECT_EQ(r.corruptions.outstanding, 1u);
  // The audit keeps finding it, every cycle.
  EXPECT_GE(r.audit.repairs, 10u);
}

TEST_F(SimRun, TheStandbysReturnHealsWhatWentAwayWithIt) {
  fault("corrupt@52s," + coldSpot("beta"));
  fault("away@53s,for=20s,record=null");
  const Report r = run();
  ASSERT_EQ(r.corruptionList.size(), 1u);
  EXPECT_EQ(r.corruptionList[0].cause, HealCause::standbyReturn);
  EXPECT_TRUE(r.corruptionList[0].healed);
  EXPECT_TRUE(r.passed());
  const auto back = std::find_if(r.resyncs.begin(), r.resyncs.end(), [](const Resync& s) {
    return s.kind == ResyncKind::standbyReturn;
  });
  ASSERT_NE(back, r.resyncs.end());
  EXPECT_TRUE(back->done);
  // The standby came back blank: every chunk of both features was copied again.
  EXPECT_EQ(back->chunks, (192u << 10) / 4096);
}

TEST_F(SimRun, AChunkSizeChangeResyncsAndHeals) {
  fault("corrupt@40s," + coldSpot("alpha"));
  fault("chunk@41s");
  const Report r = run();
  ASSERT_EQ(r.corruptionList.size(), 1u);
  EXPECT_EQ(r.corruptionList[0].cause, HealCause::chunkChange);
  EXPECT_EQ(r.chunkSizeEnd, 16384u);
  EXPECT_TRUE(r.passed());
}

TEST_F(SimRun, TheAuditResyncsASilentStandby) {
  fault("silent@12s,feature=beta,for=80s");
  fault("corrupt@20s," + coldSpot("beta"));
  const Report r = run();
  ASSERT_EQ(r.corruptionList.size(), 1u);
  EXPECT_EQ(r.corruptionList[0].cause, HealCause::retryResync);
  EXPECT_GE(r.audit.retryResyncs, 1u);
  EXPECT_TRUE(r.passed());
}

// The active stops right after its last operation, a whole-chunk table: that chunk never reached
// the standby, and the copier knew it was due.
TEST_F(SimRun, ASwitchoverLosesTheChunkLeftToTheCopier) {
  options_.mix = MixWeights{0.0, 1.0, 0.0, 0.0};
  options_.duration = 60.0;
  const Report r = run();
  EXPECT_EQ(r.atSwitchover.pendingChunks, 1u);
  EXPECT_EQ(r.atSwitchover.pendingBytes, 4096u);
  EXPECT_EQ(r.atSwitchover.staleChunks, 1u);
  EXPECT_GT(r.atSwitchover.staleBytes, 0u);
  EXPECT_EQ(r.atSwitchover.unaccountedChunks, 0u);
  EXPECT_EQ(r.atRest.differingBytes, 0u);
  EXPECT_TRUE(r.passed());
  EXPECT_GE(r.switchoverAt, 60.0);
}

TEST_F(SimRun, NoWorkloadStillEndsInASwitchover) {
  options_.rate = 0.0;
  options_.duration = 30.0;
  const Report r = run();
  EXPECT_DOUBLE_EQ(r.switchoverAt, 30.0);
  EXPECT_EQ(r.workload.operations(), 0u);
  EXPECT_EQ(r.audit.cycles, 2u * 3u);  // ticks at 5, 15 and 25 s in each feature
  EXPECT_TRUE(r.passed());
}

}  // namespace
}  // namespace MorvikSim
