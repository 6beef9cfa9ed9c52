#include <gtest/gtest.h>

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
    options_.duration = 180.0, options_.auditInterval = 10.0, options_.rate = 20.0;
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

  Report run() {
    validateOptions(options_);
    Report report = Simulator(options_).run();
    // Every timer of the run is gone with it.
    EXPECT_TRUE(Kel::activityManager()->clock()->idle());
    return report;
  }

  SimOptions options_;
};

TEST_F(SimRun, EachRepairGetsTheCreditForTheCorruptionItHealed) {
  // One corruption, at a spot of the feature that its writes never touch, and one other fault.
  const struct {
    const char* at;
    const char* feature;
    const char* other;
    HealCause cause;
    U64 repairs;
  } cases[] = {{"30s", "alpha", nullptr, HealCause::audit, 1},
               {"52s", "beta", "away@53s,for=20s,record=null", HealCause::standbyReturn, 0},
               {"40s", "alpha", "chunk@41s", HealCause::chunkChange, 0},
               {"20s", "beta", "silent@12s,feature=beta,for=80s", HealCause::retryResync, 0},
               // The standby answers again, but not the request it missed: the audit's second retry
               // resyncs, and its new request, answered at once, finds the mismatch and resyncs
               // again in the same pass. The first resync is not over for that.
               {"90s", "beta", "silent@12s,feature=beta,for=65s", HealCause::retryResync, 1}};
  for (const auto& c : cases) {
    const std::string corrupt = std::string("corrupt@") + c.at + "," + coldSpot(c.feature);
    SCOPED_TRACE(corrupt);
    options_.faults = {parseFault(corrupt)};
    if (c.other) options_.faults.push_back(parseFault(c.other));
    const Report r = run();
    ASSERT_EQ(r.corruptionList.size(), 1u);
    EXPECT_EQ(r.corruptionList[0].cause, c.cause);
    // A corruption left in place would fail the run.
    EXPECT_TRUE(r.passed()) << (r.failures.empty() ? "" : r.failures.front());
    EXPECT_EQ(r.corruptions.auditFindings, c.cause == HealCause::audit ? 1u : 0u);
    EXPECT_EQ(r.audit.repairs, c.repairs);
    EXPECT_EQ(r.doWrite.count, r.workload.ops[0] + r.workload.ops[1]) << "this run's doWrites";
  }
}

// The active stops right after its last operation, a whole-chunk table: that chunk never reached
// the standby, and the copier knew it was due.
TEST_F(SimRun, ASwitchoverLosesTheChunkLeftToTheCopier) {
  options_.mix = MixWeights{0.0, 1.0, 0.0, 0.0};
  options_.duration = 60.0;
  const Report r = run();
  EXPECT_EQ(r.atSwitchover.pendingChunks, 1u);
  EXPECT_EQ(r.atSwitchover.staleChunks, 1u);
  EXPECT_EQ(r.atSwitchover.pendingBytes, 4096u);
  EXPECT_TRUE(r.passed()) << "a stale chunk the copier did not know of would fail it";
}

}  // namespace
}  // namespace MorvikSim
