// The audit machine's frame: construction, the timer, the reactors and their setters, teardown.
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Kel/TraceSink.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "MorvikLib/Trace.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikTest::Chassis;

const std::string kTick = "void MorvikLib::MorvikAuditSm::handleAuditClockTimeout() feature status";
const std::string kTrigger = "void MorvikLib::MorvikAuditSm::handleFeatureAuditTrigger()";
const std::string kResync = "void MorvikLib::MorvikAuditSm::handleAuditResync()";
const std::string kAudit = "void MorvikLib::MorvikAuditSm::auditMemory()";
constexpr double kStart = 1000.0;

// Fails the test when the scenario leaves tracked objects or clock requests behind. Declared
// first, so it checks after every other member has gone.
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

// Records each trace line with the framework time at which it was written.
class TimedTraces : public Kel::TraceSink {
 public:
  struct Line {
    double time;
    int level;
    std::string text;
  };
  TimedTraces() { install(this); }
  ~TimedTraces() override { uninstall(this); }
  void entryIs(const Entry& entry) override {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({Kel::System::currentTime(), entry.level, entry.text});
  }
  // Times of the lines that begin with prefix.
  std::vector<double> timesOf(const std::string& prefix) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<double> times;
    for (const Line& l : lines_)
      if (l.text.rfind(prefix, 0) == 0) times.push_back(l.time);
    return times;
  }
  std::vector<std::string> textsOf(const std::string& prefix) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> texts;
    for (const Line& l : lines_)
      if (l.text.rfind(prefix, 0) == 0) texts.push_back(l.text);
    return texts;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

// Runs an action whenever the request's trigger advances.
class TriggerHook : public Morvik::AuditRequest::Notifiee {
 public:
  void onAuditTrigger() override {
    if (action) action();
  }
  std::function<void()> action;
};

Chassis::Options oneFeature() {
  Chassis::Options options;
  options.features = {{"alpha", 8192}};
  return options;
}

class MorvikAuditFrame : public testing::Test {
 protected:
  MorvikAuditFrame() : chassis_(oneFeature()) {
    Chassis::runUntilRest();
    request_ = Kel::allocate<Morvik::AuditRequest>(Kel::Name("alphaAudit"));
    answer_ = Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
  }

  Kel::Ptr<MorvikAuditSm> newAudit(const Kel::Ptr<Morvik::Status const>& status,
                                   const Kel::Ptr<Kel::Clock const>& clock) {
    return MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), chassis_.memory(0), status,
                                           chassis_.manifest(), request_, answer_, clock);
  }
  Kel::Ptr<MorvikAuditSm> newAudit() {
    return newAudit(chassis_.status(), Kel::activityManager()->clock());
  }
  Kel::Ptr<Morvik::Status> statusWithTrigger(U32 trigger) {
    auto status = Kel::allocate<Morvik::Status>(Kel::Name("status"));
    status->activeSupeIs(Morvik::activeSupeActive);
    status->featureAuditTriggerIs(trigger);
    return status;
  }
  static void runUntil(double t) { Kel::activityManager()->runUntil(t); }
  std::vector<double> ticks() const { return traces_.timesOf(kTick); }

  LeakGuard guard_;
  TraceLevels levels_{0, 5};
  TimedTraces traces_;
  Chassis chassis_;
  Kel::Ptr<Morvik::AuditRequest> request_;
  Kel::Ptr<Morvik::AuditStatus> answer_;
};

TEST_F(MorvikAuditFrame, ConstructionLeavesTheDefaultsAndArmsTheFirstTickFiveSecondsOut) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  EXPECT_EQ(sm->name(), Kel::Name("alphaAudit"));
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->resultRetryCount(), 0u);
  EXPECT_EQ(sm->resultRetryCountMax(), 5u);
  EXPECT_EQ(sm->auditInterval(), 60.0);
  EXPECT_TRUE(sm->auditEnabled());
  EXPECT_FALSE(sm->morvikAudit());
  EXPECT_EQ(sm->auditStatus(), answer_);
  ASSERT_TRUE(sm->clockReactor()->timeRequested());
  EXPECT_EQ(sm->clockReactor()->timeMin(), kStart + 5.0);
  EXPECT_EQ(traces_.textsOf("void MorvikLib::MorvikAuditSm::handleInitialized()"),
            std::vector<std::string>{"void MorvikLib::MorvikAuditSm::handleInitialized()"});
  EXPECT_TRUE(ticks().empty());
}

TEST_F(MorvikAuditFrame, TicksComeEveryIntervalAfterTheEndOfThePreviousTick) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  // The first cycle's checksum takes 2.5 s of framework time: the next tick counts from its end.
  Kel::Ptr<TriggerHook> hook = Kel::allocate<TriggerHook>();
  hook->notifierIs(request_);
  hook->isRegisteredNotifieeIs(true);
  bool slow = true;
  hook->action = [&slow] {
    if (std::exchange(slow, false)) {
      Kel::System::virtualTimeAdvanceTo(Kel::System::currentTime() + 2.5);
    }
  };
  runUntil(kStart + 200.0);
  EXPECT_EQ(ticks(), (std::vector<double>{1005.0, 1067.5, 1127.5, 1187.5}));
  EXPECT_EQ(sm->clockReactor()->timeMin(), 1247.5);
}

TEST_F(MorvikAuditFrame, ANewIntervalWaitsForTheArmedTimer) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  sm->auditIntervalIs(10.0);
  EXPECT_EQ(sm->clockReactor()->timeMin(), kStart + 5.0);
  runUntil(kStart + 30.0);
  EXPECT_EQ(ticks(), (std::vector<double>{1005.0, 1015.0, 1025.0}));
  sm->auditIntervalIs(100.0);
  EXPECT_EQ(sm->clockReactor()->timeMin(), 1035.0);
  runUntil(kStart + 300.0);
  EXPECT_EQ(ticks(), (std::vector<double>{1005.0, 1015.0, 1025.0, 1035.0, 1135.0, 1235.0}));
}

TEST_F(MorvikAuditFrame, ADisabledAuditKeepsTickingAndTouchesNothing) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  sm->auditEnabledIs(false);
  runUntil(kStart + 130.0);
  EXPECT_EQ(ticks(), (std::vector<double>{1005.0, 1065.0, 1125.0}));
  EXPECT_EQ(traces_.textsOf(kAudit), std::vector<std::string>(3, kAudit + " auditEnable is false"));
  EXPECT_EQ(request_->requestId(), 0u);
  EXPECT_EQ(request_->auditTrigger(), 0u);
  sm->auditEnabledIs(true);
  runUntil(kStart + 190.0);
  EXPECT_EQ(request_->requestId(), 1u);
}

TEST_F(MorvikAuditFrame, AStatusGivenToTheConstructorTriggersNothing) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit(statusWithTrigger(3), Kel::activityManager()->clock());
  EXPECT_TRUE(traces_.textsOf(kTrigger).empty());
  EXPECT_TRUE(ticks().empty());
  EXPECT_EQ(sm->clockReactor()->timeMin(), kStart + 5.0);
}

struct StatusCase {
  const char* name;
  U32 trigger;
  bool initialized;
  bool ticks;
};

class MorvikAuditFrameStatus : public MorvikAuditFrame,
                               public testing::WithParamInterface<StatusCase> {};

TEST_P(MorvikAuditFrameStatus, ANewStatusRunsTheTriggerHandlerOnce) {
  const StatusCase& c = GetParam();
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  sm->initializedIs(c.initialized);
  Kel::Ptr<Morvik::Status> status = statusWithTrigger(c.trigger);
  Kel::System::virtualTimeAdvanceTo(kStart + 2.0);
  sm->morvikStatusIs(status);
  EXPECT_EQ(sm->morvikStatus(), status);
  EXPECT_EQ(
      traces_.textsOf(kTrigger),
      std::vector<std::string>{kTrigger + " featureAuditTrigger " + std::to_string(c.trigger) +
                               " initialized " + (c.initialized ? "1" : "0")});
  if (c.ticks) {
    EXPECT_EQ(ticks(), std::vector<double>{kStart + 2.0});
    EXPECT_EQ(request_->requestId(), 1u);
    // An immediate tick restarts the interval from now.
    EXPECT_EQ(sm->clockReactor()->timeMin(), kStart + 62.0);
  } else {
    EXPECT_TRUE(ticks().empty());
    EXPECT_EQ(sm->clockReactor()->timeMin(), kStart + 5.0);
  }
  // The same status again is no change at all.
  sm->morvikStatusIs(status);
  EXPECT_EQ(traces_.textsOf(kTrigger).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(MorvikAudit, MorvikAuditFrameStatus,
                         testing::Values(StatusCase{"triggerSet", 3, true, true},
                                         StatusCase{"triggerZero", 0, true, false},
                                         StatusCase{"notInitialized", 3, false, false},
                                         StatusCase{"highTrigger", 0x80000000u, true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(MorvikAuditFrame, TheFeatureTriggerTicksAtOnceOnlyForNonZeroValues) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  chassis_.status()->featureAuditTriggerIs(1);
  EXPECT_EQ(ticks(), std::vector<double>{kStart});
  chassis_.status()->featureAuditTriggerIs(0);
  EXPECT_EQ(ticks().size(), 1u);
  EXPECT_EQ(traces_.textsOf(kTrigger).back(), kTrigger + " featureAuditTrigger 0 initialized 1");
  chassis_.status()->featureAuditTriggerIs(2);
  EXPECT_EQ(ticks().size(), 2u);
}

TEST_F(MorvikAuditFrame, AReactorMadeByASetterRunsNoHandlerButHearsLaterChanges) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit(nullptr, Kel::activityManager()->clock());
  EXPECT_FALSE(sm->morvikStatusReactor());
  Kel::Ptr<Morvik::Status> status = statusWithTrigger(4);
  sm->morvikStatusIs(status);
  ASSERT_TRUE(sm->morvikStatusReactor());
  EXPECT_TRUE(traces_.textsOf(kTrigger).empty());
  status->featureAuditTriggerIs(5);
  EXPECT_EQ(ticks().size(), 1u);
  // Dropped: the old status is heard no more.
  sm->morvikStatusDel();
  EXPECT_FALSE(sm->morvikStatusReactor());
  status->featureAuditTriggerIs(6);
  EXPECT_EQ(ticks().size(), 1u);
}

TEST_F(MorvikAuditFrame, ANewAuditStatusRunsTheResyncHandlerOnce) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  auto other = Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
  sm->auditStatusIs(other);
  sm->auditStatusIs(other);
  EXPECT_EQ(sm->auditStatus(), other);
  // The memory's ignoreChecksum is still set from its creation.
  EXPECT_EQ(traces_.textsOf(kResync),
            std::vector<std::string>{kResync + " checksum failed, but ignoring "});
  // The old status is heard no more, the new one is.
  answer_->resyncTriggerInc(1);
  EXPECT_EQ(traces_.textsOf(kResync).size(), 1u);
  other->resyncTriggerInc(1);
  EXPECT_EQ(traces_.textsOf(kResync).size(), 2u);
  sm->auditStatusDel();
  EXPECT_FALSE(sm->auditStatus());
  other->resyncTriggerInc(1);
  EXPECT_EQ(traces_.textsOf(kResync).size(), 2u);
}

TEST_F(MorvikAuditFrame, ANewClockTicksAtOnceAndTakesTheTimerAlong) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  auto spare = Kel::allocate<Kel::Clock>(Kel::Name("spare"));
  Kel::System::virtualTimeAdvanceTo(kStart + 1.0);
  sm->clockIs(spare);
  EXPECT_EQ(ticks(), std::vector<double>{kStart + 1.0});
  EXPECT_EQ(sm->clock(), spare);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  EXPECT_EQ(spare->scheduled(), 1u);
  EXPECT_EQ(spare->nextTime(), kStart + 61.0);
  spare->runPass(kStart + 61.0);
  EXPECT_EQ(ticks().size(), 2u);
  sm->clockDel();
  EXPECT_TRUE(spare->idle());
  // Without a clock a feature trigger still ticks; nothing is armed.
  chassis_.status()->featureAuditTriggerIs(1);
  EXPECT_EQ(ticks().size(), 3u);
}

TEST_F(MorvikAuditFrame, AnAuditRecordIsOnlyKeptReferenced) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  auto audit = Kel::allocate<Morvik::Audit>(Kel::Name("audit"));
  sm->morvikAuditIs(audit);
  EXPECT_EQ(sm->morvikAudit(), audit);
  audit->auditStatusIs(Kel::Name("alphaAudit"), answer_);
  sm->morvikAuditDel();
  EXPECT_FALSE(sm->morvikAudit());
  EXPECT_TRUE(ticks().empty());
  EXPECT_TRUE(traces_.textsOf(kResync).empty());
}

TEST_F(MorvikAuditFrame, NotificationActivityReachesEveryReactorOnlyOnAChange) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  sm->morvikAuditIs(Kel::allocate<Morvik::Audit>(Kel::Name("audit")));
  std::vector<Kel::EntityNotifiee*> reactors = {
      sm->morvikStatusReactor().ptr(), sm->morvikAuditReactor().ptr(),
      sm->auditStatusReactor().ptr(), sm->clockReactor().ptr()};
  EXPECT_TRUE(sm->notificationActive());
  for (auto* r : reactors) EXPECT_TRUE(r->notificationActive());
  sm->hasNotificationActiveIs(false);
  for (auto* r : reactors) EXPECT_FALSE(r->notificationActive());
  // Unchanged for the machine: passed to nobody.
  reactors[2]->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(false);
  EXPECT_TRUE(reactors[2]->notificationActive());
  EXPECT_FALSE(reactors[0]->notificationActive());
  sm->hasNotificationActiveIs(true);
  for (auto* r : reactors) EXPECT_TRUE(r->notificationActive());
}

TEST_F(MorvikAuditFrame, AZombieMachineHearsNothingUntilRevived) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  sm->kelDoZombieReactors(true);
  EXPECT_TRUE(sm->clockReactor()->zombie());
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  chassis_.status()->featureAuditTriggerIs(1);
  answer_->resyncTriggerInc(1);
  // A zombie reactor re-pointed at a new input runs no handler either.
  sm->morvikStatusIs(statusWithTrigger(9));
  runUntil(kStart + 100.0);
  EXPECT_TRUE(ticks().empty());
  EXPECT_TRUE(traces_.textsOf(kTrigger).empty());
  EXPECT_TRUE(traces_.textsOf(kResync).empty());
  sm->kelDoZombieReactors(false);
  // The request made before is still standing and comes due at once.
  runUntil(kStart + 100.0);
  EXPECT_EQ(ticks(), std::vector<double>{kStart + 100.0});
}

TEST_F(MorvikAuditFrame, AReactorHeldElsewhereOutlivesItsMachineAsAZombie) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  Kel::Ptr<MorvikAuditSm::KelClock> reactor = sm->clockReactor();
  sm = nullptr;
  EXPECT_TRUE(reactor->zombie());
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  runUntil(kStart + 100.0);
  EXPECT_TRUE(ticks().empty());
}

TEST_F(MorvikAuditFrame, ADroppedReactorHeldElsewhereHearsNoMore) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  Kel::Ptr<MorvikAuditSm::KelMorvikStatus> reactor = sm->morvikStatusReactor();
  sm->morvikStatusDel();
  EXPECT_TRUE(reactor->zombie());
  chassis_.status()->featureAuditTriggerIs(1);
  EXPECT_TRUE(traces_.textsOf(kTrigger).empty());
}

TEST_F(MorvikAuditFrame, ReleaseTakesTheReactorsAndTheTimerAlong) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  sm->morvikAuditIs(Kel::allocate<Morvik::Audit>(Kel::Name("audit")));
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm::KelClock>(), 1);
  sm = nullptr;
  traces_.clear();
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm>(), 0);
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm::KelClock>(), 0);
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm::KelMorvikStatus>(), 0);
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm::KelAuditStatus>(), 0);
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm::KelMorvikAudit>(), 0);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
  chassis_.status()->featureAuditTriggerIs(1);
  answer_->resyncTriggerInc(1);
  runUntil(kStart + 100.0);
  EXPECT_TRUE(traces_.textsOf("void MorvikLib::MorvikAuditSm::").empty());
}

TEST_F(MorvikAuditFrame, AMachineDroppedInsideItsOwnHandlerGoesWhenTheHandlerReturns) {
  Kel::Ptr<MorvikAuditSm> sm = newAudit();
  Kel::Ptr<TriggerHook> hook = Kel::allocate<TriggerHook>();
  hook->notifierIs(request_);
  hook->isRegisteredNotifieeIs(true);
  // The first cycle's trigger is the tick's last write; its watcher lets the machine go.
  hook->action = [&sm] { sm = nullptr; };
  runUntil(kStart + 5.0);
  EXPECT_EQ(ticks(), std::vector<double>{kStart + 5.0});
  EXPECT_EQ(request_->auditTrigger(), 1u);
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm>(), 0);
  EXPECT_EQ(Kel::AllocTracker::live<MorvikAuditSm::KelClock>(), 0);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
}

}  // namespace
