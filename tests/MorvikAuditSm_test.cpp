#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "support/AllocCounts.h"
#include "support/Chassis.h"
#include "support/Timeline.h"

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikTest::Chassis;
using Times = std::vector<double>;

const std::string kSm = "void MorvikLib::MorvikAuditSm::";
const std::string kTick = kSm + "handleAuditClockTimeout() feature status";
const std::string kResync = kSm + "handleAuditResync()";
constexpr double kStart = 1000.0;

// Runs an action whenever the request's trigger advances.
class TriggerHook : public Morvik::AuditRequest::NotifieeConst {
 public:
  void onAuditTrigger() override {
    if (action) action();
  }
  std::function<void()> action;
};

class MorvikAuditFrame : public testing::Test {
 protected:
  MorvikAuditFrame() {
    chassis_.traceLevelsIs({0, 5});
    Chassis::runUntilRest();
  }
  Kel::Ptr<MorvikAuditSm> newAudit() {
    return MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), chassis_.memory(0),
                                           chassis_.status(), chassis_.manifest(), request_,
                                           answer_, Kel::activityManager()->clock());
  }
  Kel::Ptr<TriggerHook> hookOnTrigger(std::function<void()> action) {
    Kel::Ptr<TriggerHook> hook = Kel::allocate<TriggerHook>();
    hook->notifierIs(request_);
    hook->isRegisteredNotifieeIs(true);
    hook->action = std::move(action);
    return hook;
  }
  Times ticks() const { return timeline_.timesOf(kTick); }
  std::size_t traces(const std::string& prefix) const { return timeline_.of(prefix).size(); }

  Chassis chassis_;
  MorvikTest::Timeline timeline_{kSm};
  Kel::Ptr<Morvik::AuditRequest> request_ =
      Kel::allocate<Morvik::AuditRequest>(Kel::Name("alphaAudit"));
  Kel::Ptr<Morvik::AuditStatus> answer_ =
      Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
};

TEST_F(MorvikAuditFrame, TheFirstTickComesAfterFiveSecondsThenEveryIntervalAfterTheLastTick) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  EXPECT_EQ(timeline_.of(), std::vector<std::string>{kSm + "handleInitialized()"});
  EXPECT_EQ(sm->clockReactor()->timeMin(), kStart + 5.0);
  Chassis::runUntil(kStart + 200.0);
  EXPECT_EQ(ticks(), (Times{1005.0, 1065.0, 1125.0, 1185.0}));
  EXPECT_EQ(sm->clockReactor()->timeMin(), 1245.0);
}

TEST_F(MorvikAuditFrame, ANewAuditStatusRunsTheResyncHandlerOnce) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  auto other = Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
  sm->auditStatusIs(other);
  sm->auditStatusIs(other);
  // The memory's ignoreChecksum is still set from its creation.
  EXPECT_EQ(timeline_.of(kResync), std::vector<std::string>{" checksum failed, but ignoring "});
  answer_->resyncTriggerInc(1);
  EXPECT_EQ(traces(kResync), 1u);
  other->resyncTriggerInc(1);
  EXPECT_EQ(traces(kResync), 2u);
  sm->auditStatusDel();
  other->resyncTriggerInc(1);
  EXPECT_EQ(traces(kResync), 2u);
}

TEST_F(MorvikAuditFrame, AMachineDroppedInsideItsOwnHandlerGoesWhenTheHandlerReturns) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  // The first cycle's trigger is the tick's last write; its watcher lets the machine go.
  auto hook = hookOnTrigger([&sm] { sm = nullptr; });
  Chassis::runUntil(kStart + 5.0);
  EXPECT_EQ(request_->auditTrigger(), 1u);
  EXPECT_EQ(KelTest::live<MorvikAuditSm>(), 0);
  EXPECT_EQ(KelTest::live<MorvikAuditSm::KelClock>(), 0);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
}

}  // namespace
