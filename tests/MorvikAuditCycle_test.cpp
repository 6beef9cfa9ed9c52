#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/Checksum.h"
#include "MorvikLib/Library.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "agents/StandbyResponder.h"
#include "support/AllocCounts.h"
#include "support/Chassis.h"
#include "support/Timeline.h"

namespace {

using MorvikAgents::StandbyResponder;
using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;
using Texts = std::vector<std::string>;
using Times = std::vector<double>;

const std::string kSm = "void MorvikLib::MorvikAuditSm::";
const std::string kAudit = kSm + "auditMemory()";
const std::string kResync = kSm + "handleAuditResync()";
const std::string kIgnoring = " checksum failed, but ignoring ";
const std::string kLog =
    "log SSO_DATA_CHECKSUM_ERROR: SSO hardware shadow memory on standby does not match active for "
    "alphaAudit";
constexpr U32 kSize = 8192;

// Puts every whole-region resync (the first chunk marked pending afresh) and every change of
// ignoreChecksum into the timeline.
class SyncCounter : public MorvikMemory::Notifiee {
 public:
  explicit SyncCounter(MorvikTest::Timeline& timeline) : timeline_(timeline) {}
  const MorvikMemory& memory() const {
    return *static_cast<const MorvikMemory*>(notifierEntity().ptr());
  }
  void onReplicationStatusBitmap(const U64& key) override {
    if (key == 0 && !std::exchange(pending_, memory().replicationStatus(0)) && pending_)
      timeline_.add("doSync");
  }
  void onIgnoreChecksum() override {
    timeline_.add(std::string("ignoreChecksum ") + (memory().ignoreChecksum() ? "1" : "0"));
  }

 private:
  MorvikTest::Timeline& timeline_;
  bool pending_ = false;
};

// Puts every change of the request into the timeline; runs an action when the trigger advances.
class RequestRecorder : public Morvik::AuditRequest::NotifieeConst {
 public:
  explicit RequestRecorder(MorvikTest::Timeline& timeline) : timeline_(timeline) {}
  std::function<void()> onTrigger;
  void onActiveChecksum() override { timeline_.add("activeChecksum"); }
  void onActiveChecksumTwosComp() override { timeline_.add("activeChecksumTwosComp"); }
  void onRemoteMemoryVersion() override { timeline_.add("remoteMemoryVersion"); }
  void onRequestId() override { timeline_.add("requestId"); }
  void onAuditErrorsFixed() override { timeline_.add("auditErrorsFixed"); }
  void onAuditTrigger() override {
    timeline_.add("auditTrigger");
    if (onTrigger) onTrigger();
  }

 private:
  MorvikTest::Timeline& timeline_;
};

Chassis::Options quietChassis() {
  Chassis::Options options;
  options.features = {{"alpha", kSize}};
  options.machines = false;
  options.start = Chassis::logEpoch();
  return options;
}

class MorvikAuditCycle : public testing::Test {
 public:
  MorvikAuditCycle() {
    chassis_.traceLevelsIs({0, 5});
    chassis_.buildMachines();
    std::vector<U8> bytes = Chassis::pattern(kSize, 3);
    memory()->doWrite(0, bytes.data(), kSize);
    Chassis::runUntilRest();
    standby_.emplace(request_, answer_, reinterpret_cast<U64>(chassis_.remoteBytes()), kSize);
    syncs_->notifierIs(memory());
    syncs_->isRegisteredNotifieeIs(true);
    recorder_->notifierIs(request_);
    recorder_->isRegisteredNotifieeIs(true);
    sm_ = MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), memory(), chassis_.status(),
                                          chassis_.manifest(), request_, answer_,
                                          Kel::activityManager()->clock());
  }

  const Kel::Ptr<MorvikMemory>& memory() const { return chassis_.memory(0); }
  double tickTime(int n) const { return start_ + 5.0 + 60.0 * (n - 1); }
  void runThroughTick(int n) { Chassis::runUntil(tickTime(n)); }
  int syncs() const { return static_cast<int>(timeline_.of("doSync").size()); }
  Texts verdicts() const { return timeline_.of(kResync); }

  Chassis chassis_{quietChassis()};
  const double start_ = Kel::System::currentTime();
  MorvikTest::Timeline timeline_{kSm};
  Kel::Ptr<Morvik::AuditRequest> request_ =
      Kel::allocate<Morvik::AuditRequest>(Kel::Name("alphaAudit"));
  Kel::Ptr<Morvik::AuditStatus> answer_ =
      Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
  std::optional<StandbyResponder> standby_;
  Kel::Ptr<SyncCounter> syncs_ = Kel::allocate<SyncCounter>(timeline_);
  Kel::Ptr<RequestRecorder> recorder_ = Kel::allocate<RequestRecorder>(timeline_);
  Kel::Ptr<MorvikAuditSm> sm_;
};

std::string notReady(U32 requestId, U32 retry) {
  return " standby result not yet ready resultId 0 requestId " + std::to_string(requestId) +
         " retry " + std::to_string(retry) + " interval 60";
}

// The first cycle's trigger is the tick's last write; its watcher lets the machine go.
TEST_F(MorvikAuditCycle, AMachineDroppedInsideItsOwnHandlerGoesWhenTheHandlerReturns) {
  standby_->modeIs(StandbyResponder::Mode::silent);
  recorder_->onTrigger = [this] { sm_ = nullptr; };
  runThroughTick(1);
  EXPECT_EQ(request_->auditTrigger(), 1u);
  EXPECT_EQ(KelTest::live<MorvikAuditSm>(), 0);
  EXPECT_EQ(KelTest::live<MorvikAuditSm::KelClock>(), 0);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
}

// A silent standby: the first tick, five seconds in, writes the request with the trigger last;
// the next five find no answer, and the fifth of them resyncs before it starts a new cycle. Each
// tick comes one interval after the last.
TEST_F(MorvikAuditCycle, ASilentStandbyIsResyncedOnTheFifthRetryAndNeverWithAMaximumOfZero) {
  standby_->modeIs(StandbyResponder::Mode::silent);
  EXPECT_EQ(timeline_.of(), Texts{kSm + "handleInitialized()"});
  EXPECT_EQ(sm_->clockReactor()->timeMin(), tickTime(1));
  timeline_.clear();
  runThroughTick(1);
  const U64 expected = Morvik::addToChecksum(0, memory()->localMemory().vaddr(), kSize);
  const std::string newCycle = " trigger audit on peer resultId 0 requestId ";
  const std::string checksum = " activeChecksum " + std::to_string(expected);
  EXPECT_EQ(timeline_.of(),
            (Texts{kSm + "handleAuditClockTimeout() feature status", "activeChecksum",
                   "activeChecksumTwosComp", "remoteMemoryVersion", "requestId", "ignoreChecksum 0",
                   kAudit + newCycle + "1" + checksum, "auditTrigger"}));
  EXPECT_EQ(request_->activeChecksumTwosComp(), Morvik::twosComplement(expected));
  EXPECT_EQ(request_->remoteMemoryVersion(), 7u);
  runThroughTick(5);
  EXPECT_EQ(syncs(), 0);
  runThroughTick(6);
  EXPECT_EQ(timeline_.of(kAudit),
            (Texts{newCycle + "1" + checksum, notReady(1, 0), notReady(1, 1), notReady(1, 2),
                   notReady(1, 3), notReady(1, 4), " retry failed 5 times, now doSync ",
                   newCycle + "2" + checksum}));
  EXPECT_EQ(timeline_.timesOf(kSm + "handleAuditClockTimeout() feature status"),
            (Times{tickTime(1), tickTime(2), tickTime(3), tickTime(4), tickTime(5), tickTime(6)}));
  EXPECT_EQ(sm_->clockReactor()->timeMin(), tickTime(7));
  // The resync comes before the new cycle's first write.
  const Texts events = timeline_.of();
  const auto sync = std::find(events.begin(), events.end(), "doSync");
  EXPECT_LT(sync, std::find(sync, events.end(), "activeChecksum"));
  EXPECT_EQ(sm_->resultRetryCount(), 0u);
  EXPECT_FALSE(memory()->remoteCopyPending()) << "the copier rewrote the copy within the tick";
  EXPECT_TRUE(timeline_.of("log ").empty());
  // A maximum of 0 never matches a count that has just grown.
  sm_->resultRetryCountMaxIs(0);
  runThroughTick(17);
  EXPECT_EQ(request_->requestId(), 2u);
  EXPECT_EQ(syncs(), 1);
  EXPECT_EQ(sm_->resultRetryCount(), 11u);
}

// Neither knob moves the armed timer: a disabled audit goes on ticking, and a new interval counts
// from the next tick. A status that asks for an audit ticks at once when it comes later, not when
// it comes with the machine. Remote memory away on a fixed system is not worth a word.
TEST_F(MorvikAuditCycle, TheKnobsLeaveTheArmedTimerAloneAndOnlyALaterAskingStatusTicksAtOnce) {
  EXPECT_EQ(sm_->resultRetryCount(), 0u);
  sm_->auditEnabledIs(false);
  sm_->auditIntervalIs(10.0);
  EXPECT_EQ(sm_->clockReactor()->timeMin(), tickTime(1));
  Chassis::runUntil(tickTime(1) + 20.0);
  EXPECT_EQ(timeline_.timesOf(kSm + "handleAuditClockTimeout()"),
            (Times{tickTime(1), tickTime(1) + 10.0, tickTime(1) + 20.0}));
  EXPECT_EQ(timeline_.of(kAudit), Texts(3, " auditEnable is false"));
  sm_->auditEnabledIs(true);
  auto asking = Kel::allocate<Morvik::Status>(Kel::Name("asking"));
  asking->activeSupeIs(Morvik::activeSupeActive);
  asking->featureAuditTriggerIs(3);
  MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), memory(), asking, chassis_.manifest(),
                                  request_, answer_, Kel::activityManager()->clock());
  EXPECT_EQ(request_->requestId(), 0u);
  sm_->morvikStatusIs(asking);
  EXPECT_EQ(request_->requestId(), 1u);
  EXPECT_EQ(sm_->clockReactor()->timeMin(), Kel::System::currentTime() + 10.0);
  chassis_.remoteMemoryIs(false);
  chassis_.manifest()->fixedSystemIs(1);
  timeline_.clear();
  sm_->auditMemory();
  EXPECT_EQ(timeline_.of(), Texts{});
}

// Only the listed ranges count, folded in ascending offset order, each length cut to 32 bits.
TEST_F(MorvikAuditCycle, AMapFoldsItsRangesInOffsetOrder) {
  const U64 local = memory()->localMemory().vaddr();
  const U64 first = Morvik::addToChecksum(0, local + 0x40, 8);
  const std::pair<std::vector<std::pair<U64, U64>>, U64> cases[] = {
      {{}, 0},
      {{{0x100, 16}, {0x40, 8}}, Morvik::addToChecksum(first, local + 0x100, 16)},
      {{{0x40, 0x1'0000'0008ull}}, first}};
  request_->auditMapEnabledIs(true);
  for (const auto& [map, checksum] : cases) {
    request_->auditMapDelAll();
    for (const auto& [offset, length] : map) request_->auditMapIs(offset, length);
    EXPECT_EQ(sm_->computeChecksum(), checksum);
  }
}

// The handler runs once for a new status, and hears only the status in place; the memory's
// ignoreChecksum is still set from its creation. Then its tests, in their fixed order.
TEST_F(MorvikAuditCycle, TheVerdictsTestsRunInTheirFixedOrder) {
  auto other = Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
  sm_->auditStatusIs(other);
  sm_->auditStatusIs(other);
  EXPECT_EQ(verdicts(), Texts{kIgnoring});
  answer_->resyncTriggerInc(1);
  EXPECT_EQ(verdicts().size(), 1u);
  other->resyncTriggerInc(1);
  EXPECT_EQ(verdicts().size(), 2u);
  sm_->auditStatusDel();
  other->resyncTriggerInc(1);
  EXPECT_EQ(verdicts().size(), 2u);
  sm_->auditStatusIs(answer_);
  const std::string mismatch = " active csum 4369 standby csum 8738 ignoring";
  const struct {
    bool ignore;
    U32 checksumResult;
    U32 lag;  // how many cycles the answer lags behind the request
    Texts events;
  } cases[] = {
      {true, 1, 0, {kIgnoring}},
      {false, 0, 0, {" checksums matches"}},
      {false, 1, 1, {" requestId 2 resultId 1" + mismatch}},
      {false, 7, 0xffffffffu, {" requestId 2 resultId 3" + mismatch}},
      {false,
       1,
       0,
       {" checksum failed  activeChecksum 4369 standbyChecksum 8738 resyncTrigger 6", kLog,
        " calling doSync", "doSync", "auditErrorsFixed", " auditErrorsFixed 8"}},
  };
  standby_->modeIs(StandbyResponder::Mode::silent);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.events.front());
    request_->requestIdIs(2);
    request_->activeChecksumIs(0x1111);
    request_->auditErrorsFixedIs(7);
    answer_->standbyChecksumIs(0x2222);
    answer_->checksumResultIs(c.checksumResult);
    answer_->resultIdIs(2 - c.lag);
    memory()->ignoreChecksumIs(c.ignore);
    timeline_.clear();
    answer_->resyncTriggerInc(1);
    Texts expected;
    for (const std::string& e : c.events) expected.push_back(e[0] == ' ' ? kResync + e : e);
    EXPECT_EQ(timeline_.of(), expected);
    const bool repaired = c.events.size() > 1;
    EXPECT_EQ(request_->auditErrorsFixed(), repaired ? 8u : 7u);
    EXPECT_EQ(memory()->remoteCopyPending(), repaired);
    EXPECT_EQ(request_->requestId(), 2u) << "a verdict never starts a cycle";
  }
}

// The standby checks its copy at the trigger and answers 30 s later.
TEST_F(MorvikAuditCycle, AFeatureWriteBetweenTheChecksumAndTheVerdictVoidsTheCycle) {
  standby_->modeIs(StandbyResponder::Mode::late);
  standby_->lateDelayIs(30.0);
  U8 byte = static_cast<U8>(chassis_.remoteBytes()[77] ^ 0x5a);
  memory()->doWriteRemoteTest(77, &byte, 1);
  runThroughTick(1);
  Chassis::runUntil(tickTime(1) + 15.0);
  byte = 0x42;
  memory()->doWrite(5000, &byte, 1);
  Chassis::runUntil(tickTime(1) + 30.0);
  EXPECT_EQ(verdicts(), Texts{kIgnoring});
  EXPECT_EQ(syncs(), 0);
  EXPECT_FALSE(chassis_.copiesEqual());
  // Void is not forgotten: the next cycle finds the corruption again.
  Chassis::runUntil(tickTime(2) + 30.0);
  EXPECT_EQ(syncs(), 1);
  EXPECT_EQ(request_->auditErrorsFixed(), 1u);
  EXPECT_TRUE(chassis_.copiesEqual());
}

Chassis::Options audited() {
  Chassis::Options options = quietChassis();
  options.audit = true;
  return options;
}

template <U32 r>
void role(Chassis& c) {
  c.status()->activeSupeIs(static_cast<Morvik::ActiveSupeType>(r));
}
void entry(Chassis& c, const Kel::Name& name) {
  c.audit()->auditStatusIs(name, Kel::allocate<Morvik::AuditStatus>(name));
}

using Step = void (*)(Chassis&);
const Step none = [](Chassis&) {};
const Step standbyThenActive = [](Chassis& c) { role<2>(c), role<1>(c); };
const Step remoteAway = [](Chassis& c) { c.remoteMemoryIs(false); };
const Step remoteUnknown = [](Chassis& c) {
  c.status()->remoteMemoryIs(c.remoteRegion(0, c.total()));
};
const Step remoteAgain = [](Chassis& c) { c.remoteMemoryIs(true); };
const Step freshEntry = [](Chassis& c) { entry(c, c.auditName(0)); };
const Step otherEntry = [](Chassis& c) { entry(c, Kel::Name("otherAudit")); };
const Step entryGone = [](Chassis& c) { c.audit()->auditStatusDel(c.auditName(0)); };
const Step featureTrigger = [](Chassis& c) { c.status()->featureAuditTriggerIs(1); };

enum Outcome { dropped, kept, replaced };

// Every case starts from a construction that makes two audits and keeps the second: the first
// role evaluation finds no remote memory yet; the remapping and the second role evaluation each
// make one.
TEST(MorvikAuditLifecycle, ConstructionKeepsTheSecondOfTwoAuditsAndEachChangeActsAsTheTableSays) {
  const struct {
    const char* name;
    Step prepare, change;
    Outcome outcome;
    std::uint64_t made;  // audits made by the change
  } cases[] = {
      {"roleNone", none, role<0>, dropped, 0},
      {"roleStandby", none, role<2>, replaced, 1},
      {"anyOtherRole", none, role<7>, replaced, 1},
      {"twoRoleChanges", none, standbyThenActive, replaced, 2},
      {"sameRole", none, role<1>, kept, 0},
      {"roleBackFromNone", role<0>, role<1>, replaced, 1},
      {"remoteAway", none, remoteAway, dropped, 0},
      {"remoteUnknown", none, remoteUnknown, dropped, 0},
      {"remoteRepublished", none, remoteAgain, replaced, 1},
      {"remoteBack", remoteAway, remoteAgain, replaced, 1},
      {"roleWhileRemoteAway", remoteAway, role<2>, dropped, 0},
      // A standby does not look at remote memory, and leaves the audit as it is.
      {"remoteChangeOnAStandby", role<2>, remoteAway, kept, 0},
      {"otherEntry", none, otherEntry, kept, 0},
      {"otherEntryWithoutAudit", entryGone, otherEntry, kept, 0},
      {"entryReplaced", none, freshEntry, replaced, 1},
      {"entryGone", none, entryGone, dropped, 0},
      {"entryBack", entryGone, freshEntry, replaced, 1},
      // Role 0 is tested before the entry's name.
      {"entryChangeInRoleNone", role<0>, freshEntry, dropped, 0},
      {"otherEntryInRoleNone", role<0>, otherEntry, dropped, 0},
      {"featureTrigger", none, featureTrigger, kept, 0},
  };
  const std::string reset = "void MorvikLib::MorvikMemorySm::resetAuditSm(Kel::Name)";
  const std::string asked = " name alpha triggerName alphaAudit morvikAudit audit activeSupe 1";
  const std::string found = " name alpha auditName alphaAudit auditStatus alphaAudit";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Chassis chassis(audited());
    chassis.traceLevelsIs({8});
    MorvikTest::Timeline traces(reset);
    const std::uint64_t before = KelTest::made<MorvikAuditSm>();
    chassis.buildMachines();
    EXPECT_EQ(KelTest::made<MorvikAuditSm>() - before, 2u);
    EXPECT_EQ(traces.of(reset), (Texts{asked, asked, found, asked, found}));
    c.prepare(chassis);
    const MorvikAuditSm* previous = chassis.sm(0)->morvikAuditSm().ptr();
    const std::uint64_t made = KelTest::made<MorvikAuditSm>();
    c.change(chassis);
    EXPECT_EQ(KelTest::made<MorvikAuditSm>() - made, c.made);
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

TEST(MorvikAuditHour, SixCorruptionsInAnHourAreEachFoundAndRepairedOnceByTheNextTick) {
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  const U64 suppressedBefore = log.suppressed();
  Chassis::Options options = audited();
  options.machines = true;
  Chassis chassis(options);
  chassis.traceLevelsIs({});
  MorvikTest::Timeline timeline("");
  const MorvikAuditSm* audit = chassis.sm(0)->morvikAuditSm().ptr();
  const Kel::Ptr<Morvik::AuditRequest> request = chassis.auditRequest(0);
  StandbyResponder standby(request, chassis.auditStatus(0),
                           reinterpret_cast<U64>(chassis.remoteBytes()), kSize);
  std::mt19937 random(20240229);
  for (U32 minute = 5, fixed = 1; minute < 60; minute += 10, ++fixed) {
    Chassis::runUntil(options.start + 60.0 * minute);
    const U32 offset = static_cast<U32>(random() % kSize);
    U8 byte = static_cast<U8>(chassis.remoteBytes()[offset] ^ (1 + random() % 255));
    chassis.memory(0)->doWriteRemoteTest(offset, &byte, 1);
    ASSERT_FALSE(chassis.copiesEqual());
    Chassis::runUntil(options.start + 60.0 * (minute + 1));
    EXPECT_EQ(request->auditErrorsFixed(), fixed) << "minute " << minute;
    EXPECT_TRUE(chassis.copiesEqual());
  }
  Chassis::runUntil(options.start + 3600.0);
  EXPECT_TRUE(chassis.copiesEqual());
  EXPECT_EQ(request->auditErrorsFixed(), 6u);
  // Ten minutes apart, beyond the rate limit's window: no log is held back.
  ASSERT_LT(log.interval(), 600.0);
  EXPECT_EQ(timeline.of("log "), Texts(6, kLog.substr(4)));
  EXPECT_EQ(log.suppressed(), suppressedBefore);
  // The same audit ran all hour, one cycle per tick, and the standby answered every one.
  EXPECT_EQ(chassis.sm(0)->morvikAuditSm().ptr(), audit);
  EXPECT_EQ(standby.answersGiven(), 60u);
}

}  // namespace
