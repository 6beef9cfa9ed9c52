// Every broken invariant of the audit and of its lifecycle ends the process with its own text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikTest::Chassis;
using testing::HasSubstr;

// The pieces an audit is built from; each case leaves out or spoils one.
struct Parts {
  Kel::Ptr<MorvikLib::MorvikMemory> memory;
  Kel::Ptr<Morvik::Status const> status;
  Kel::Ptr<Morvik::AuditRequest> request;
  Kel::Ptr<Morvik::AuditStatus> answer;
};

Parts complete(Chassis& c) {
  return {c.memory(0), c.status(), Kel::allocate<Morvik::AuditRequest>(Kel::Name("alphaAudit")),
          Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"))};
}

Kel::Ptr<MorvikAuditSm> build(Chassis& c, const Parts& p) {
  return MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), p.memory, p.status, c.manifest(),
                                         p.request, p.answer, Kel::activityManager()->clock());
}

Kel::Ptr<Morvik::Status const> statusInRole(Morvik::ActiveSupeType role) {
  auto status = Kel::allocate<Morvik::Status>(Kel::Name("status"));
  status->activeSupeIs(role);
  return status;
}

void firstTick() {
  Kel::activityManager()->runUntil(Kel::System::currentTime() + 5.0);
}

struct DeathCase {
  const char* name;
  const char* text;
  const char* function;
  bool audited;
  // Runs in the child and must end it.
  std::function<void(Chassis&)> fatal;
};

const char* const kTick = "void MorvikLib::MorvikAuditSm::handleAuditClockTimeout()";
const char* const kAudit = "void MorvikLib::MorvikAuditSm::auditMemory()";
const char* const kResync = "void MorvikLib::MorvikAuditSm::handleAuditResync()";
const char* const kReset = "void MorvikLib::MorvikMemorySm::resetAuditSm(Kel::Name)";

std::vector<DeathCase> deathCases() {
  return {
      {"tickWithoutStatus", "morvikStatus()->activeSupe()", kTick, false,
       [](Chassis& c) {
         Parts p = complete(c);
         p.status = nullptr;
         build(c, p)->handleAuditClockTimeout();
       }},
      {"tickInRoleNone", "morvikStatus()->activeSupe()", kTick, false,
       [](Chassis& c) {
         Parts p = complete(c);
         p.status = statusInRole(Morvik::activeSupeNone);
         Kel::Ptr<MorvikAuditSm> sm = build(c, p);
         firstTick();
       }},
      {"tickAfterTheStatusWentAway", "morvikStatus()->activeSupe()", kTick, false,
       [](Chassis& c) {
         Kel::Ptr<MorvikAuditSm> sm = build(c, complete(c));
         sm->morvikStatusDel();
         firstTick();
       }},
      {"featureTriggerInRoleNone", "morvikStatus()->activeSupe()", kTick, false,
       [](Chassis& c) {
         Kel::Ptr<MorvikAuditSm> sm = build(c, complete(c));
         auto status = Kel::allocate<Morvik::Status>(Kel::Name("status"));
         status->featureAuditTriggerIs(1);
         sm->morvikStatusIs(status);
       }},
      {"tickWithoutRequest", "auditRequest()", kAudit, false,
       [](Chassis& c) {
         Parts p = complete(c);
         p.request = nullptr;
         Kel::Ptr<MorvikAuditSm> sm = build(c, p);
         firstTick();
       }},
      {"verdictWithoutMemory", "morvikMemory()", kResync, false,
       [](Chassis& c) {
         Parts p = complete(c);
         p.memory = nullptr;
         Kel::Ptr<MorvikAuditSm> sm = build(c, p);
         p.answer->resyncTriggerInc(1);
       }},
      {"newAnswerWithoutMemory", "morvikMemory()", kResync, false,
       [](Chassis& c) {
         Parts p = complete(c);
         p.memory = nullptr;
         Kel::Ptr<MorvikAuditSm> sm = build(c, p);
         sm->auditStatusIs(Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit")));
       }},
      {"auditRecordDroppedUnderAnAudit", "!morvikAuditSm()", kReset, true,
       [](Chassis& c) {
         c.sm(0)->morvikAuditDel();
         c.sm(0)->resetAuditSm(c.auditName(0));
       }},
      {"auditWithoutRecords", "!morvikAuditSm()", kReset, false,
       [](Chassis& c) {
         c.sm(0)->morvikAuditSmIs(build(c, complete(c)));
         c.sm(0)->resetAuditSm(Kel::Name("anyAudit"));
       }},
  };
}

class MorvikAuditDeathTest : public testing::TestWithParam<DeathCase> {};

TEST_P(MorvikAuditDeathTest, EndsWithTheConditionText) {
  const DeathCase& c = GetParam();
  Chassis::Options options;
  options.features = {{"alpha", 8192}};
  options.audit = c.audited;
  Chassis chassis(options);
  Chassis::runUntilRest();
  ASSERT_EQ(static_cast<bool>(chassis.sm(0)->morvikAuditSm()), c.audited);
  const std::string expected = std::string("Assertion failed: ") + c.text + "\n  in " + c.function;
  EXPECT_DEATH(c.fatal(chassis), HasSubstr(expected));
}

INSTANTIATE_TEST_SUITE_P(MorvikAudit, MorvikAuditDeathTest, testing::ValuesIn(deathCases()),
                         [](const auto& info) { return std::string(info.param.name); });

// The same spoiled parts do no harm where the step never gets to them.
TEST(MorvikAuditSpoiledParts, ASkippedStepNeverLooksForTheRequest) {
  Chassis::Options options;
  options.features = {{"alpha", 8192}};
  Chassis chassis(options);
  Parts p = complete(chassis);
  p.request = nullptr;
  Kel::Ptr<MorvikAuditSm> sm = build(chassis, p);
  // The background copy of the initial resync is still running.
  ASSERT_TRUE(chassis.memory(0)->remoteCopyPending());
  sm->auditMemory();
  sm->auditEnabledIs(false);
  Chassis::runUntilRest();
  sm->auditMemory();
  EXPECT_EQ(sm->resultRetryCount(), 0u);
}

}  // namespace
