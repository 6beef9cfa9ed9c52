// When the memory state machine keeps, replaces or drops its audit.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/AllocTracker.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Kel/TraceCapture.h"
#include "Morvik/AuditStatus.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "MorvikLib/Trace.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikTest::Chassis;

const std::string kReset = "void MorvikLib::MorvikMemorySm::resetAuditSm(Kel::Name)";

class LeakGuard {
 public:
  LeakGuard() {
    Kel::activityManager();
    MorvikLib::traceHandle();
    live_ = Kel::AllocTracker::totalLive();
  }
  ~LeakGuard() {
    EXPECT_EQ(Kel::AllocTracker::totalLive(), live_) << "tracked objects leaked";
    EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm>(), 0);
    EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  }

 private:
  std::int64_t live_;
};

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

// Audit machines made so far in this process.
std::uint64_t auditsMade() {
  for (const auto& entry : Kel::AllocTracker::snapshot()) {
    if (entry.typeName == "MorvikLib::MorvikAuditSm") return entry.allocated;
  }
  return 0;
}

std::int64_t auditsLive() {
  return Kel::AllocTracker::live<MorvikAuditSm>();
}

Chassis::Options audited(bool entries = true) {
  Chassis::Options options;
  options.features = {{"alpha", 8192}};
  options.audit = true;
  options.auditStatus = entries;
  options.machines = false;
  return options;
}

class MorvikAuditLifecycleBare : public testing::Test {
 public:
  LeakGuard guard_;
  TraceLevels levels_{8};
  Kel::TraceCapture capture_;
};

class MorvikAuditLifecycle : public MorvikAuditLifecycleBare {
 public:
  const Kel::Ptr<MorvikLib::MorvikMemorySm>& sm() const { return chassis_.sm(0); }
  const Kel::Ptr<MorvikAuditSm>& audit() const { return sm()->morvikAuditSm(); }
  std::vector<std::string> resetTraces() const {
    std::vector<std::string> texts;
    for (const std::string& t : capture_.texts())
      if (t.rfind(kReset, 0) == 0) texts.push_back(t.substr(kReset.size()));
    return texts;
  }

  Chassis chassis_{audited()};
};

TEST_F(MorvikAuditLifecycle, ConstructionMakesTwoAuditsAndKeepsTheSecond) {
  const std::uint64_t before = auditsMade();
  chassis_.buildMachines();
  EXPECT_EQ(auditsMade() - before, 2u);
  EXPECT_EQ(auditsLive(), 1);
  ASSERT_TRUE(audit());
  EXPECT_EQ(audit()->name(), chassis_.auditName(0));
  EXPECT_EQ(audit()->morvikMemory(), chassis_.memory(0));
  EXPECT_EQ(audit()->morvikStatus(), chassis_.status());
  EXPECT_EQ(audit()->morvikManifest(), chassis_.manifest());
  EXPECT_EQ(audit()->auditRequest(), chassis_.auditRequest(0));
  EXPECT_EQ(audit()->auditStatus(), chassis_.auditStatus(0));
  EXPECT_EQ(audit()->clock(), Kel::activityManager()->clock());
  // The first role evaluation finds no remote memory yet; the remapping and the second role
  // evaluation each make one.
  const std::string asked = " name alpha triggerName alphaAudit morvikAudit audit activeSupe 1";
  const std::string found = " name alpha auditName alphaAudit auditStatus alphaAudit";
  EXPECT_EQ(resetTraces(), (std::vector<std::string>{asked, asked, found, asked, found}));
}

TEST_F(MorvikAuditLifecycle, AFreshAuditStartsOverFromItsInitialState) {
  chassis_.buildMachines();
  Kel::activityManager()->runUntil(Kel::System::currentTime() + 200.0);
  EXPECT_EQ(chassis_.auditRequest(0)->requestId(), 1u);
  EXPECT_EQ(audit()->resultRetryCount(), 3u);
  chassis_.status()->activeSupeIs(Morvik::activeSupeStandby);
  ASSERT_TRUE(audit());
  EXPECT_EQ(audit()->resultRetryCount(), 0u);
  EXPECT_EQ(audit()->clockReactor()->timeMin(), Kel::System::currentTime() + 5.0);
  EXPECT_EQ(auditsLive(), 1);
}

enum class Outcome { dropped, kept, replaced };

struct LifecycleCase {
  const char* name;
  std::function<void(Chassis&)> prepare;
  std::function<void(Chassis&)> change;
  Outcome outcome;
  // Audits made by the change.
  std::uint64_t made;
};

void nothing(Chassis&) {}
void roleNone(Chassis& c) {
  c.status()->activeSupeIs(Morvik::activeSupeNone);
}
void roleStandby(Chassis& c) {
  c.status()->activeSupeIs(Morvik::activeSupeStandby);
}
void roleActive(Chassis& c) {
  c.status()->activeSupeIs(Morvik::activeSupeActive);
}
void roleOther(Chassis& c) {
  c.status()->activeSupeIs(static_cast<Morvik::ActiveSupeType>(7));
}
void remoteAway(Chassis& c) {
  c.remoteMemoryIs(false);
}
void remoteUnknown(Chassis& c) {
  c.remoteMemoryUnknownIs();
}
void remoteAgain(Chassis& c) {
  c.remoteMemoryIs(true);
}
void freshEntry(Chassis& c) {
  c.audit()->auditStatusIs(c.auditName(0), Kel::allocate<Morvik::AuditStatus>(c.auditName(0)));
}
void otherEntry(Chassis& c) {
  c.audit()->auditStatusIs(Kel::Name("otherAudit"),
                           Kel::allocate<Morvik::AuditStatus>(Kel::Name("otherAudit")));
}
void entryGone(Chassis& c) {
  c.audit()->auditStatusDel(c.auditName(0));
}
void featureTrigger(Chassis& c) {
  c.status()->featureAuditTriggerIs(1);
}

template <class... Steps>
std::function<void(Chassis&)> all(Steps... steps) {
  return [=](Chassis& c) { (steps(c), ...); };
}

class MorvikAuditLifecycleTable : public MorvikAuditLifecycle,
                                  public testing::WithParamInterface<LifecycleCase> {};

TEST_P(MorvikAuditLifecycleTable, TheChangeKeepsReplacesOrDropsTheAudit) {
  const LifecycleCase& c = GetParam();
  chassis_.buildMachines();
  c.prepare(chassis_);
  const MorvikAuditSm* previous = audit().ptr();
  const std::uint64_t made = auditsMade();
  c.change(chassis_);
  EXPECT_EQ(auditsMade() - made, c.made);
  switch (c.outcome) {
    case Outcome::dropped:
      EXPECT_FALSE(audit());
      EXPECT_EQ(auditsLive(), 0);
      break;
    case Outcome::kept:
      EXPECT_EQ(audit().ptr(), previous);
      EXPECT_EQ(auditsLive(), previous ? 1 : 0);
      break;
    case Outcome::replaced:
      ASSERT_TRUE(audit());
      // Made while the previous one still lived: another object. (After two changes the first
      // one's memory may well be reused.)
      if (c.made == 1) {
        EXPECT_NE(audit().ptr(), previous);
      }
      // The previous one is released.
      EXPECT_EQ(auditsLive(), 1);
      EXPECT_EQ(audit()->auditStatus(), chassis_.audit()->auditStatus(chassis_.auditName(0)));
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(
    MorvikAudit, MorvikAuditLifecycleTable,
    testing::Values(
        LifecycleCase{"roleNone", nothing, roleNone, Outcome::dropped, 0},
        LifecycleCase{"roleStandby", nothing, roleStandby, Outcome::replaced, 1},
        LifecycleCase{"anyOtherRole", nothing, roleOther, Outcome::replaced, 1},
        LifecycleCase{"twoRoleChanges", nothing, all(roleStandby, roleActive), Outcome::replaced,
                      2},
        LifecycleCase{"sameRole", nothing, roleActive, Outcome::kept, 0},
        LifecycleCase{"roleBackFromNone", roleNone, roleActive, Outcome::replaced, 1},
        LifecycleCase{"remoteAway", nothing, remoteAway, Outcome::dropped, 0},
        LifecycleCase{"remoteUnknown", nothing, remoteUnknown, Outcome::dropped, 0},
        LifecycleCase{"remoteRepublished", nothing, remoteAgain, Outcome::replaced, 1},
        LifecycleCase{"remoteBack", remoteAway, remoteAgain, Outcome::replaced, 1},
        LifecycleCase{"roleWhileRemoteAway", remoteAway, roleStandby, Outcome::dropped, 0},
        // A standby does not look at remote memory, and leaves the audit as it is.
        LifecycleCase{"remoteChangeOnAStandby", roleStandby, remoteAway, Outcome::kept, 0},
        LifecycleCase{"otherEntry", nothing, otherEntry, Outcome::kept, 0},
        LifecycleCase{"otherEntryWithoutAudit", entryGone, otherEntry, Outcome::kept, 0},
        LifecycleCase{"entryReplaced", nothing, freshEntry, Outcome::replaced, 1},
        LifecycleCase{"entryGone", nothing, entryGone, Outcome::dropped, 0},
        LifecycleCase{"entryBack", entryGone, freshEntry, Outcome::replaced, 1},
        // Role 0 is tested before the entry's name.
        LifecycleCase{"entryChangeInRoleNone", roleNone, freshEntry, Outcome::dropped, 0},
        LifecycleCase{"otherEntryInRoleNone", roleNone, otherEntry, Outcome::dropped, 0},
        LifecycleCase{"featureTrigger", nothing, featureTrigger, Outcome::kept, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MorvikAuditLifecycleBare, WithoutAuditStatusEntriesNoAuditUntilOneArrives) {
  Chassis chassis(audited(false));
  const std::uint64_t before = auditsMade();
  chassis.buildMachines();
  EXPECT_FALSE(chassis.sm(0)->morvikAuditSm());
  EXPECT_EQ(auditsMade(), before);
  freshEntry(chassis);
  ASSERT_TRUE(chassis.sm(0)->morvikAuditSm());
  EXPECT_EQ(chassis.sm(0)->morvikAuditSm()->auditStatus(),
            chassis.audit()->auditStatus(chassis.auditName(0)));
}

TEST_F(MorvikAuditLifecycleBare, WithoutAuditRecordsThereIsNeverAnAudit) {
  Chassis::Options options = audited();
  options.audit = false;
  Chassis chassis(options);
  const std::uint64_t before = auditsMade();
  chassis.buildMachines();
  roleStandby(chassis);
  remoteAgain(chassis);
  roleActive(chassis);
  EXPECT_FALSE(chassis.sm(0)->morvikAuditSm());
  EXPECT_EQ(auditsMade(), before);
}

TEST_F(MorvikAuditLifecycleBare, EveryFeatureHasAnAuditOfItsOwn) {
  Chassis::Options options = audited();
  options.features = {{"alpha", 4096}, {"beta", 8192}};
  Chassis chassis(options);
  chassis.buildMachines();
  ASSERT_TRUE(chassis.sm(0)->morvikAuditSm() && chassis.sm(1)->morvikAuditSm());
  EXPECT_EQ(chassis.sm(1)->morvikAuditSm()->name(), Kel::Name("betaAudit"));
  // An entry of the other feature's audit leaves this one alone.
  const MorvikAuditSm* alpha = chassis.sm(0)->morvikAuditSm().ptr();
  const MorvikAuditSm* beta = chassis.sm(1)->morvikAuditSm().ptr();
  freshEntry(chassis);
  EXPECT_NE(chassis.sm(0)->morvikAuditSm().ptr(), alpha);
  EXPECT_EQ(chassis.sm(1)->morvikAuditSm().ptr(), beta);
}

TEST_F(MorvikAuditLifecycle, ReleasingTheMachinesReleasesTheAudit) {
  chassis_.buildMachines();
  Kel::activityManager()->runUntil(Kel::System::currentTime() + 100.0);
  EXPECT_EQ(auditsLive(), 1);
  chassis_.releaseMachines();
  EXPECT_EQ(auditsLive(), 0);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
}

}  // namespace
