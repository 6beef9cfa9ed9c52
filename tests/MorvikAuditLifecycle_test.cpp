#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "support/AllocCounts.h"
#include "support/Chassis.h"
#include "support/Timeline.h"

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikTest::Chassis;

std::uint64_t auditsMade() {
  return KelTest::made<MorvikAuditSm>();
}

Chassis::Options audited() {
  Chassis::Options options;
  options.features = {{"alpha", 8192}};
  options.audit = true;
  options.machines = false;
  return options;
}

void role(Chassis& c, U32 r) {
  c.status()->activeSupeIs(static_cast<Morvik::ActiveSupeType>(r));
}
void entry(Chassis& c, const Kel::Name& name) {
  c.audit()->auditStatusIs(name, Kel::allocate<Morvik::AuditStatus>(name));
}

using Step = void (*)(Chassis&);
const Step none = [](Chassis&) {};
const Step role0 = [](Chassis& c) { role(c, 0); };
const Step role1 = [](Chassis& c) { role(c, 1); };
const Step role2 = [](Chassis& c) { role(c, 2); };
const Step role7 = [](Chassis& c) { role(c, 7); };
const Step standbyThenActive = [](Chassis& c) { role(c, 2), role(c, 1); };
const Step remoteAway = [](Chassis& c) { c.remoteMemoryIs(false); };
const Step remoteUnknown = [](Chassis& c) {
  c.status()->remoteMemoryIs(c.remoteRegion(0, c.total()));
};
const Step remoteAgain = [](Chassis& c) { c.remoteMemoryIs(true); };
const Step freshEntry = [](Chassis& c) { entry(c, c.auditName(0)); };
const Step otherEntry = [](Chassis& c) { entry(c, Kel::Name("otherAudit")); };
const Step entryGone = [](Chassis& c) { c.audit()->auditStatusDel(c.auditName(0)); };
const Step featureTrigger = [](Chassis& c) { c.status()->featureAuditTriggerIs(1); };

TEST(MorvikAuditLifecycle, ConstructionMakesTwoAuditsAndKeepsTheSecond) {
  Chassis chassis(audited());
  chassis.traceLevelsIs({8});
  MorvikTest::Timeline traces("");
  const std::uint64_t before = auditsMade();
  chassis.buildMachines();
  EXPECT_EQ(auditsMade() - before, 2u);
  EXPECT_EQ(KelTest::live<MorvikAuditSm>(), 1);
  const Kel::Ptr<MorvikAuditSm>& audit = chassis.sm(0)->morvikAuditSm();
  ASSERT_TRUE(audit);
  EXPECT_EQ(audit->auditStatus(), chassis.auditStatus(0));
  // The first role evaluation finds no remote memory yet; the remapping and the second role
  // evaluation each make one.
  const std::string asked = " name alpha triggerName alphaAudit morvikAudit audit activeSupe 1";
  const std::string found = " name alpha auditName alphaAudit auditStatus alphaAudit";
  EXPECT_EQ(traces.of("void MorvikLib::MorvikMemorySm::resetAuditSm(Kel::Name)"),
            (std::vector<std::string>{asked, asked, found, asked, found}));
}

enum Outcome { dropped, kept, replaced };

TEST(MorvikAuditLifecycle, EachChangeKeepsReplacesOrDropsTheAuditAsTheTableSays) {
  const struct {
    const char* name;
    Step prepare, change;
    Outcome outcome;
    std::uint64_t made;  // audits made by the change
  } cases[] = {
      {"roleNone", none, role0, dropped, 0},
      {"roleStandby", none, role2, replaced, 1},
      {"anyOtherRole", none, role7, replaced, 1},
      {"twoRoleChanges", none, standbyThenActive, replaced, 2},
      {"sameRole", none, role1, kept, 0},
      {"roleBackFromNone", role0, role1, replaced, 1},
      {"remoteAway", none, remoteAway, dropped, 0},
      {"remoteUnknown", none, remoteUnknown, dropped, 0},
      {"remoteRepublished", none, remoteAgain, replaced, 1},
      {"remoteBack", remoteAway, remoteAgain, replaced, 1},
      {"roleWhileRemoteAway", remoteAway, role2, dropped, 0},
      // A standby does not look at remote memory, and leaves the audit as it is.
      {"remoteChangeOnAStandby", role2, remoteAway, kept, 0},
      {"otherEntry", none, otherEntry, kept, 0},
      {"otherEntryWithoutAudit", entryGone, otherEntry, kept, 0},
      {"entryReplaced", none, freshEntry, replaced, 1},
      {"entryGone", none, entryGone, dropped, 0},
      {"entryBack", entryGone, freshEntry, replaced, 1},
      // Role 0 is tested before the entry's name.
      {"entryChangeInRoleNone", role0, freshEntry, dropped, 0},
      {"otherEntryInRoleNone", role0, otherEntry, dropped, 0},
      {"featureTrigger", none, featureTrigger, kept, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Chassis chassis(audited());
    chassis.buildMachines();
    c.prepare(chassis);
    const MorvikAuditSm* previous = chassis.sm(0)->morvikAuditSm().ptr();
    const std::uint64_t made = auditsMade();
    c.change(chassis);
    EXPECT_EQ(auditsMade() - made, c.made);
    const Kel::Ptr<MorvikAuditSm>& audit = chassis.sm(0)->morvikAuditSm();
    EXPECT_EQ(KelTest::live<MorvikAuditSm>(), audit ? 1 : 0) << "the previous one went";
    EXPECT_EQ(c.outcome == kept ? previous != nullptr : c.outcome == replaced,
              static_cast<bool>(audit));
    // Made while the previous one lived, a new one is another object.
    if (c.outcome == kept || c.made == 1) {
      EXPECT_EQ(c.outcome == kept, audit.ptr() == previous);
    }
    if (audit) {
      EXPECT_EQ(audit->auditStatus(), chassis.audit()->auditStatus(chassis.auditName(0)));
    }
  }
}

}  // namespace
