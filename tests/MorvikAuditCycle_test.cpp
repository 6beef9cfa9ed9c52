// One audit cycle end to end: the checksum, the request it publishes, the standby's verdict and
// the repair of a mismatch, against a standby played on the peer's real copy.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/LogSink.h"
#include "Kel/System.h"
#include "Kel/TraceSink.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/Checksum.h"
#include "MorvikLib/Library.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/Trace.h"
#include "agents/StandbyResponder.h"
#include "support/Chassis.h"

namespace {

using MorvikAgents::StandbyResponder;
using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;

const std::string kAudit = "void MorvikLib::MorvikAuditSm::auditMemory()";
const std::string kResync = "void MorvikLib::MorvikAuditSm::handleAuditResync()";
const std::string kLogMessage =
    "SSO hardware shadow memory on standby does not match active for alphaAudit";
constexpr U32 kSize = 8192;
constexpr double kInterval = 60.0;

// A start time after every window the library's log handle has opened so far: each event moves
// it on by more than any scenario lasts, so no earlier test's rate limit reaches into this one.
double freshLogEpoch() {
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  return 1e7 + 1e5 * static_cast<double>(log.emitted() + log.suppressed());
}

class LeakGuard {
 public:
  LeakGuard() {
    Kel::activityManager();
    MorvikLib::traceHandle();
    live_ = Kel::AllocTracker::totalLive();
  }
  ~LeakGuard() {
    EXPECT_EQ(Kel::AllocTracker::totalLive(), live_) << "tracked objects leaked";
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

// Audit traces, emitted logs and resyncs in the one order in which they happened.
class Timeline : public Kel::TraceSink, public Kel::LogSink {
 public:
  Timeline() {
    Kel::TraceSink::install(this);
    Kel::LogSink::install(this);
  }
  ~Timeline() override {
    Kel::LogSink::uninstall(this);
    Kel::TraceSink::uninstall(this);
  }
  void entryIs(const Kel::TraceSink::Entry& entry) override {
    if (entry.text.rfind("void MorvikLib::MorvikAuditSm::", 0) == 0) add(entry.text);
  }
  void entryIs(const Kel::LogSink::Entry& entry) override {
    std::lock_guard<std::mutex> lock(mutex_);
    logs_.push_back(entry);
    events_.push_back("log " + entry.name + ": " + entry.message);
  }
  void add(const std::string& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(event);
  }
  std::vector<std::string> events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
  }
  // The events that begin with prefix, with the prefix taken off.
  std::vector<std::string> of(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& e : events())
      if (e.rfind(prefix, 0) == 0) found.push_back(e.substr(prefix.size()));
    return found;
  }
  std::vector<Kel::LogSink::Entry> logs() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return logs_;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
    logs_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> events_;
  std::vector<Kel::LogSink::Entry> logs_;
};

// Counts whole-region resyncs: each one marks the first chunk pending afresh.
class SyncCounter : public MorvikMemory::Notifiee {
 public:
  SyncCounter(const Kel::Ptr<MorvikMemory>& memory, Timeline& timeline) : timeline_(timeline) {
    notifierIs(memory);
    isRegisteredNotifieeIs(true);
    pending_ = memory->replicationStatus(0);
  }
  void onReplicationStatusBitmap(const U64& key) override {
    if (key != 0) return;
    const bool now = static_cast<const MorvikMemory*>(notifierEntity().ptr())->replicationStatus(0);
    if (now && !pending_) {
      ++count;
      timeline_.add("doSync");
    }
    pending_ = now;
  }
  void onIgnoreChecksum() override {
    const auto* memory = static_cast<const MorvikMemory*>(notifierEntity().ptr());
    timeline_.add(std::string("ignoreChecksum ") + (memory->ignoreChecksum() ? "1" : "0"));
  }
  int count = 0;

 private:
  Timeline& timeline_;
  bool pending_;
};

// Writes every change of the request into the timeline, and what the request held when the
// trigger moved.
class RequestRecorder : public Morvik::AuditRequest::Notifiee {
 public:
  explicit RequestRecorder(Timeline& timeline) : timeline_(timeline) {}
  const Morvik::AuditRequest& request() const {
    return *static_cast<const Morvik::AuditRequest*>(notifierEntity().ptr());
  }
  void onActiveChecksum() override { timeline_.add("activeChecksum"); }
  void onActiveChecksumTwosComp() override { timeline_.add("activeChecksumTwosComp"); }
  void onRemoteMemoryVersion() override { timeline_.add("remoteMemoryVersion"); }
  void onRequestId() override { timeline_.add("requestId"); }
  void onAuditErrorsFixed() override { timeline_.add("auditErrorsFixed"); }
  void onAuditTrigger() override {
    timeline_.add("auditTrigger");
    requestIdAtTrigger = request().requestId();
  }
  U32 requestIdAtTrigger = 0;

 private:
  Timeline& timeline_;
};

std::vector<U8> pattern(std::size_t size, U8 seed) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(seed + i * 13 + (i >> 7));
  return bytes;
}

Chassis::Options quietChassis() {
  Chassis::Options options;
  options.features = {{"alpha", kSize}};
  options.machines = false;
  return options;
}

// Members are public so that the tables below can prepare a case.
class MorvikAuditCycle : public testing::Test {
 public:
  MorvikAuditCycle() : chassis_(quietChassis()) {
    start_ = freshLogEpoch();
    Kel::System::virtualTimeIs(true, start_);
    chassis_.buildMachines();
    std::vector<U8> bytes = pattern(kSize, 3);
    memory()->doWrite(0, bytes.data(), kSize);
    Chassis::runUntilRest();
    request_ = Kel::allocate<Morvik::AuditRequest>(Kel::Name("alphaAudit"));
    answer_ = Kel::allocate<Morvik::AuditStatus>(Kel::Name("alphaAudit"));
    standby_.emplace(request_, answer_, peerCopy(), kSize);
    syncs_ = Kel::allocate<SyncCounter>(memory(), timeline_);
    recorder_ = Kel::allocate<RequestRecorder>(timeline_);
    recorder_->notifierIs(request_);
    recorder_->isRegisteredNotifieeIs(true);
    sm_ = newAudit(memory());
  }

  Kel::Ptr<MorvikAuditSm> newAudit(const Kel::Ptr<MorvikMemory>& memory) {
    return MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), memory, chassis_.status(),
                                           chassis_.manifest(), request_, answer_,
                                           Kel::activityManager()->clock());
  }
  const Kel::Ptr<MorvikMemory>& memory() const { return chassis_.memory(0); }
  U64 peerCopy() { return reinterpret_cast<U64>(chassis_.remoteBytes()) + chassis_.byteOffset(0); }
  U64 local() const { return memory()->localMemory().vaddr(); }
  bool copiesEqual() {
    return std::memcmp(chassis_.localBytes(), chassis_.remoteBytes(), kSize) == 0;
  }
  // The time of the n-th audit tick, counting from 1.
  double tickTime(int n) const { return start_ + 5.0 + kInterval * (n - 1); }
  void runThroughTick(int n) { Kel::activityManager()->runUntil(tickTime(n)); }
  void runUntil(double t) { Kel::activityManager()->runUntil(t); }
  void corruptPeer(U32 offset) {
    U8 byte = static_cast<U8>(chassis_.remoteBytes()[offset] ^ 0x5a);
    memory()->doWriteRemoteTest(offset, &byte, 1);
  }
  std::vector<std::string> auditTraces() const { return timeline_.of(kAudit); }
  std::vector<std::string> resyncTraces() const { return timeline_.of(kResync); }

  LeakGuard guard_;
  TraceLevels levels_{0, 5};
  Timeline timeline_;
  Chassis chassis_;
  double start_ = 0.0;
  Kel::Ptr<Morvik::AuditRequest> request_;
  Kel::Ptr<Morvik::AuditStatus> answer_;
  std::optional<StandbyResponder> standby_;
  Kel::Ptr<SyncCounter> syncs_;
  Kel::Ptr<RequestRecorder> recorder_;
  Kel::Ptr<MorvikMemory> spare_;
  Kel::Ptr<MorvikAuditSm> sm_;
};

// --- A new cycle --------------------------------------------------------------------------------

TEST_F(MorvikAuditCycle, ANewCycleWritesTheRequestInOrderWithTheTriggerLast) {
  standby_->modeIs(StandbyResponder::Mode::silent);
  timeline_.clear();
  runThroughTick(1);
  EXPECT_EQ(timeline_.events(),
            (std::vector<std::string>{
                "void MorvikLib::MorvikAuditSm::handleAuditClockTimeout() feature status",
                "activeChecksum", "activeChecksumTwosComp", "remoteMemoryVersion", "requestId",
                "ignoreChecksum 0",
                kAudit + " trigger audit on peer resultId 0 requestId 1 activeChecksum " +
                    std::to_string(request_->activeChecksum()),
                "auditTrigger"}));
  const U64 expected = Morvik::addToChecksum(0, local(), kSize);
  EXPECT_EQ(request_->activeChecksum(), expected);
  EXPECT_EQ(request_->activeChecksumTwosComp(), Morvik::twosComplement(expected));
  EXPECT_EQ(request_->activeChecksum() + request_->activeChecksumTwosComp(), 0u);
  EXPECT_EQ(request_->remoteMemoryVersion(), 7u);
  EXPECT_EQ(request_->remoteMemoryVersion(), memory()->remoteMemoryVersion());
  EXPECT_EQ(request_->requestId(), 1u);
  EXPECT_EQ(request_->auditTrigger(), 1u);
  EXPECT_EQ(recorder_->requestIdAtTrigger, 1u);
  EXPECT_EQ(standby_->triggersSeen(), 1u);
  EXPECT_EQ(sm_->resultRetryCount(), 0u);
}

TEST_F(MorvikAuditCycle, AStandbyThatAnswersGetsANewCycleEveryTick) {
  runThroughTick(4);
  EXPECT_EQ(request_->requestId(), 4u);
  EXPECT_EQ(request_->auditTrigger(), 4u);
  EXPECT_EQ(answer_->resultId(), 4u);
  EXPECT_EQ(sm_->resultRetryCount(), 0u);
  EXPECT_EQ(resyncTraces(), std::vector<std::string>(4, " checksums matches"));
  EXPECT_EQ(syncs_->count, 0);
  EXPECT_TRUE(timeline_.logs().empty());
}

std::string notReady(U32 resultId, U32 requestId, U32 retry) {
  return " standby result not yet ready resultId " + std::to_string(resultId) + " requestId " +
         std::to_string(requestId) + " retry " + std::to_string(retry) + " interval 60";
}

TEST_F(MorvikAuditCycle, ASilentStandbyIsResyncedOnTheFifthUnansweredTick) {
  standby_->modeIs(StandbyResponder::Mode::silent);
  runThroughTick(5);
  EXPECT_EQ(sm_->resultRetryCount(), 4u);
  EXPECT_EQ(syncs_->count, 0);
  timeline_.clear();
  runThroughTick(6);
  const U64 checksum = request_->activeChecksum();
  EXPECT_EQ(auditTraces(),
            (std::vector<std::string>{notReady(0, 1, 4), " retry failed 5 times, now doSync ",
                                      " trigger audit on peer resultId 0 requestId 2 "
                                      "activeChecksum " +
                                          std::to_string(checksum)}));
  EXPECT_EQ(syncs_->count, 1);
  // The resync comes before the new cycle's first write.
  const std::vector<std::string> events = timeline_.events();
  const auto sync = std::find(events.begin(), events.end(), "doSync");
  EXPECT_LT(sync, std::find(events.begin(), events.end(), "activeChecksum"));
  EXPECT_EQ(request_->requestId(), 2u);
  EXPECT_EQ(request_->auditTrigger(), 2u);
  EXPECT_EQ(sm_->resultRetryCount(), 0u);
  // The copier rewrites the standby's copy within the same tick's time.
  EXPECT_FALSE(memory()->remoteCopyPending());
  EXPECT_TRUE(timeline_.logs().empty());
}

TEST_F(MorvikAuditCycle, TheUnansweredTicksTraceRetryZeroToFour) {
  standby_->modeIs(StandbyResponder::Mode::silent);
  runThroughTick(6);
  std::vector<std::string> expected;
  for (U32 retry = 0; retry < 5; ++retry) expected.push_back(notReady(0, 1, retry));
  std::vector<std::string> traces = auditTraces();
  traces.erase(std::remove_if(traces.begin(), traces.end(),
                              [](const std::string& t) {
                                return t.rfind(" standby result not yet ready", 0) != 0;
                              }),
               traces.end());
  EXPECT_EQ(traces, expected);
}

struct RetryCase {
  const char* name;
  U32 max;
  int ticks;
  U32 requestId;
  int syncs;
  U32 retry;
};

class MorvikAuditRetries : public MorvikAuditCycle,
                           public testing::WithParamInterface<RetryCase> {};

TEST_P(MorvikAuditRetries, TheMaximumIsMetByEquality) {
  const RetryCase& c = GetParam();
  standby_->modeIs(StandbyResponder::Mode::silent);
  sm_->resultRetryCountMaxIs(c.max);
  runThroughTick(c.ticks);
  EXPECT_EQ(request_->requestId(), c.requestId);
  EXPECT_EQ(syncs_->count, c.syncs);
  EXPECT_EQ(sm_->resultRetryCount(), c.retry);
}

INSTANTIATE_TEST_SUITE_P(
    MorvikAudit, MorvikAuditRetries,
    testing::Values(
        // A maximum of 0 never matches a count that has just grown: no resync, ever.
        RetryCase{"maxZero", 0, 12, 1, 0, 11}, RetryCase{"maxOne", 1, 5, 5, 4, 0},
        RetryCase{"maxThreeMidway", 3, 6, 2, 1, 2}, RetryCase{"maxThree", 3, 7, 3, 2, 0},
        RetryCase{"defaultSecondRound", 5, 10, 2, 1, 4},
        RetryCase{"defaultTwoRounds", 5, 11, 3, 2, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MorvikAuditCycle, AnAnswerForTheOpenCycleEndsTheRetries) {
  standby_->modeIs(StandbyResponder::Mode::late);
  standby_->lateDelayIs(100.0);
  runThroughTick(3);
  // Tick 2 found the cycle open; the answer came at +105; tick 3 starts the next cycle.
  EXPECT_EQ(auditTraces()[1], notReady(0, 1, 0));
  EXPECT_EQ(request_->requestId(), 2u);
  EXPECT_EQ(sm_->resultRetryCount(), 0u);
  EXPECT_EQ(resyncTraces(), std::vector<std::string>{" checksums matches"});
}

// --- What the checksum covers -------------------------------------------------------------------

struct ChecksumCase {
  const char* name;
  bool mapEnabled;
  std::map<U64, U64> map;
  // The folds that make up the expected value, in order: (offset, length).
  std::vector<std::pair<U64, U32>> folds;
};

class MorvikAuditChecksum : public MorvikAuditCycle,
                            public testing::WithParamInterface<ChecksumCase> {};

TEST_P(MorvikAuditChecksum, FoldsTheSelectedRangesInAscendingOrder) {
  const ChecksumCase& c = GetParam();
  request_->auditMapEnabledIs(c.mapEnabled);
  for (const auto& [offset, length] : c.map) request_->auditMapIs(offset, length);
  U64 expected = 0;
  for (const auto& [offset, length] : c.folds) {
    expected = Morvik::addToChecksum(expected, local() + offset, length);
  }
  EXPECT_EQ(sm_->computeChecksum(), expected);
  runThroughTick(1);
  EXPECT_EQ(request_->activeChecksum(), expected);
  // The standby folds the same ranges of its copy and agrees.
  EXPECT_EQ(resyncTraces(), std::vector<std::string>{" checksums matches"});
}

INSTANTIATE_TEST_SUITE_P(
    MorvikAudit, MorvikAuditChecksum,
    testing::Values(ChecksumCase{"wholeRegion", false, {{0x40, 8}}, {{0, kSize}}},
                    ChecksumCase{
                        "twoRanges", true, {{0x100, 16}, {0x40, 8}}, {{0x40, 8}, {0x100, 16}}},
                    ChecksumCase{"emptyMap", true, {}, {}},
                    ChecksumCase{"lengthAboveFourGiB", true, {{0x40, 0x100000008ull}}, {{0x40, 8}}},
                    ChecksumCase{"lengthOfExactlyFourGiB", true, {{0x40, 0x100000000ull}}, {}},
                    ChecksumCase{"lastByte", true, {{kSize - 1, 1}}, {{kSize - 1, 1}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MorvikAuditCycle, TheOrderOfTheFoldsMatters) {
  request_->auditMapEnabledIs(true);
  request_->auditMapIs(0x100, 16);
  request_->auditMapIs(0x40, 8);
  const U64 reversed =
      Morvik::addToChecksum(Morvik::addToChecksum(0, local() + 0x100, 16), local() + 0x40, 8);
  EXPECT_NE(sm_->computeChecksum(), reversed);
}

TEST_F(MorvikAuditCycle, OnlyACorruptionInsideTheMappedRangesIsFound) {
  request_->auditMapEnabledIs(true);
  request_->auditMapIs(0x1000, 0x100);
  corruptPeer(0x40);
  runThroughTick(1);
  EXPECT_EQ(resyncTraces(), std::vector<std::string>{" checksums matches"});
  corruptPeer(0x1080);
  runThroughTick(2);
  EXPECT_EQ(request_->auditErrorsFixed(), 1u);
  EXPECT_EQ(syncs_->count, 1);
  // The resync rewrites the whole region, the unmapped corruption included.
  EXPECT_TRUE(copiesEqual());
}

// --- Ticks that are skipped ---------------------------------------------------------------------

struct SkipCase {
  const char* name;
  std::function<void(MorvikAuditCycle&)> prepare;
  std::vector<std::string> traces;
};

void onSpareMemory(MorvikAuditCycle& t) {
  t.spare_ = MorvikLib::morvikMemoryFactory(Kel::Name("spare"));
  t.sm_ = t.newAudit(t.spare_);
}
void remoteAway(MorvikAuditCycle& t) {
  t.chassis_.remoteMemoryIs(false);
}
void fixedSystem(MorvikAuditCycle& t) {
  t.chassis_.manifest()->fixedSystemIs(1);
}
void disabled(MorvikAuditCycle& t) {
  t.sm_->auditEnabledIs(false);
}
void copying(MorvikAuditCycle& t) {
  t.memory()->doSync();
}

template <class... Steps>
std::function<void(MorvikAuditCycle&)> all(Steps... steps) {
  return [=](MorvikAuditCycle& t) { (steps(t), ...); };
}

class MorvikAuditSkips : public MorvikAuditCycle, public testing::WithParamInterface<SkipCase> {};

TEST_P(MorvikAuditSkips, ASkippedStepLeavesTheOpenCycleAndTheRetriesAlone) {
  const SkipCase& c = GetParam();
  c.prepare(*this);
  request_->requestIdIs(4);
  sm_->resultRetryCountIs(3);
  timeline_.clear();
  sm_->auditMemory();
  std::vector<std::string> expected;
  for (const std::string& t : c.traces) expected.push_back(kAudit + t);
  EXPECT_EQ(timeline_.events(), expected);
  EXPECT_EQ(request_->requestId(), 4u);
  EXPECT_EQ(request_->auditTrigger(), 0u);
  EXPECT_EQ(request_->activeChecksum(), 0u);
  EXPECT_EQ(sm_->resultRetryCount(), 3u);
}

INSTANTIATE_TEST_SUITE_P(
    MorvikAudit, MorvikAuditSkips,
    testing::Values(
        SkipCase{"localNotReady", onSpareMemory, {" localMemory not ready "}},
        SkipCase{"localNotReadyWinsOverDisabled",
                 all(onSpareMemory, disabled),
                 {" localMemory not ready "}},
        SkipCase{"remoteNotReady", remoteAway, {" remoteMemory not ready "}},
        SkipCase{"remoteNotReadyOnAFixedSystem", all(remoteAway, fixedSystem), {}},
        SkipCase{"remoteNotReadyWinsOverDisabled",
                 all(remoteAway, disabled),
                 {" remoteMemory not ready "}},
        SkipCase{
            "fixedSystemAloneSkipsNothing", all(fixedSystem, disabled), {" auditEnable is false"}},
        SkipCase{"disabled", disabled, {" auditEnable is false"}},
        SkipCase{"disabledWinsOverCopying", all(copying, disabled), {" auditEnable is false"}},
        SkipCase{"copying", copying, {" remoteCopyPending, wait till done"}}),
    [](const auto& info) { return std::string(info.param.name); });

// --- The verdict
// ----------------------------------------------------------------------------------

struct VerdictCase {
  const char* name;
  bool ignore;
  U32 checksumResult;
  // How many cycles the answer lags behind the request.
  U32 lag;
  std::vector<std::string> traces;
  bool repaired;
};

class MorvikAuditVerdicts : public MorvikAuditCycle,
                            public testing::WithParamInterface<VerdictCase> {};

TEST_P(MorvikAuditVerdicts, TheTestsRunInTheirFixedOrder) {
  const VerdictCase& c = GetParam();
  standby_->modeIs(StandbyResponder::Mode::silent);
  request_->requestIdIs(2);
  request_->activeChecksumIs(0x1111);
  request_->auditErrorsFixedIs(7);
  answer_->standbyChecksumIs(0x2222);
  answer_->checksumResultIs(c.checksumResult);
  answer_->resultIdIs(2 - c.lag);
  memory()->ignoreChecksumIs(c.ignore);
  timeline_.clear();
  answer_->resyncTriggerInc(1);
  std::vector<std::string> expected;
  for (const std::string& t : c.traces) expected.push_back(kResync + t);
  if (c.repaired) {
    expected.insert(expected.begin() + 1, "log SSO_DATA_CHECKSUM_ERROR: " + kLogMessage);
    expected.insert(expected.begin() + 3, "doSync");
    expected.insert(expected.begin() + 4, "auditErrorsFixed");
  }
  EXPECT_EQ(timeline_.events(), expected);
  EXPECT_EQ(request_->auditErrorsFixed(), c.repaired ? 8u : 7u);
  EXPECT_EQ(syncs_->count, c.repaired ? 1 : 0);
  EXPECT_EQ(memory()->remoteCopyPending(), c.repaired);
  // The verdict never starts a cycle.
  EXPECT_EQ(request_->requestId(), 2u);
}

const char* const kIgnoring = " checksum failed, but ignoring ";

INSTANTIATE_TEST_SUITE_P(
    MorvikAudit, MorvikAuditVerdicts,
    testing::Values(
        VerdictCase{"ignoredMatch", true, 0, 0, {kIgnoring}, false},
        VerdictCase{"ignoredMismatch", true, 1, 0, {kIgnoring}, false},
        VerdictCase{"ignoredOldMismatch", true, 1, 1, {kIgnoring}, false},
        VerdictCase{"match", false, 0, 0, {" checksums matches"}, false},
        VerdictCase{"oldMatch", false, 0, 1, {" checksums matches"}, false},
        VerdictCase{"oldMismatch",
                    false,
                    1,
                    1,
                    {" requestId 2 resultId 1 active csum 4369 standby csum 8738 ignoring"},
                    false},
        VerdictCase{"aheadMismatch",
                    false,
                    7,
                    0xffffffffu,
                    {" requestId 2 resultId 3 active csum 4369 standby csum 8738 ignoring"},
                    false},
        VerdictCase{"currentMismatch",
                    false,
                    1,
                    0,
                    {" checksum failed  activeChecksum 4369 standbyChecksum 8738 resyncTrigger 1",
                     " calling doSync", " auditErrorsFixed 8"},
                    true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MorvikAuditCycle, TheLogHandleIsDeclaredOnce) {
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  EXPECT_EQ(log.name().stdString(), "SSO_DATA_CHECKSUM_ERROR");
  EXPECT_EQ(log.severity(), 6);
  EXPECT_EQ(log.format().stdString(),
            "SSO hardware shadow memory on standby does not match active for %s");
  EXPECT_EQ(log.explanation().stdString(), "SSO software will take corrective action ");
  EXPECT_EQ(log.recommendedAction().stdString(), Kel::CallSupportIfPersists);
  // 0.0 asks for the default suppression interval; one event per window; one key for all.
  EXPECT_EQ(log.interval(), Kel::LogHandle::kDefaultInterval);
  EXPECT_EQ(log.burst(), 1u);
  EXPECT_EQ(log.rateLimitArgs(), 0);
}

// A mismatch for the current cycle, reported again and again without a new request.
TEST_F(MorvikAuditCycle, EveryRepeatedMismatchRepairsButTheLogIsRateLimited) {
  standby_->modeIs(StandbyResponder::Mode::silent);
  request_->requestIdIs(1);
  answer_->resultIdIs(1);
  answer_->checksumResultIs(1);
  memory()->ignoreChecksumIs(false);
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  const U64 suppressedBefore = log.suppressed();
  // Within the window, at its last instant, and exactly one interval after it opened.
  for (double at : {0.0, 120.0, 299.999, 300.0, 301.0, 600.0}) {
    Kel::System::virtualTimeAdvanceTo(start_ + at);
    answer_->resyncTriggerInc(1);
  }
  EXPECT_EQ(request_->auditErrorsFixed(), 6u);
  EXPECT_EQ(syncs_->count, 6);
  EXPECT_EQ(timeline_.logs().size(), 3u);
  EXPECT_EQ(log.suppressed() - suppressedBefore, 3u);
}

TEST_F(MorvikAuditCycle, OneWindowHoldsBackTheMismatchesOfEveryAudit) {
  request_->requestIdIs(1);
  answer_->resultIdIs(1);
  answer_->checksumResultIs(1);
  memory()->ignoreChecksumIs(false);
  standby_->modeIs(StandbyResponder::Mode::silent);
  auto otherRequest = Kel::allocate<Morvik::AuditRequest>(Kel::Name("betaAudit"));
  auto otherAnswer = Kel::allocate<Morvik::AuditStatus>(Kel::Name("betaAudit"));
  Kel::Ptr<MorvikAuditSm> other = MorvikLib::morvikAuditSmFactory(
      Kel::Name("betaAudit"), memory(), chassis_.status(), chassis_.manifest(), otherRequest,
      otherAnswer, Kel::activityManager()->clock());
  answer_->resyncTriggerInc(1);
  Kel::System::virtualTimeAdvanceTo(start_ + 10.0);
  otherAnswer->resultIdIs(otherRequest->requestId());
  otherAnswer->checksumResultIs(1);
  otherAnswer->resyncTriggerInc(1);
  EXPECT_EQ(otherRequest->auditErrorsFixed(), 1u);
  ASSERT_EQ(timeline_.logs().size(), 1u);
  EXPECT_EQ(timeline_.logs()[0].message, kLogMessage);
  EXPECT_EQ(timeline_.logs()[0].severity, 6);
}

// --- Against the standby's real copy ------------------------------------------------------------

TEST_F(MorvikAuditCycle, ACorruptedByteIsFoundLoggedAndRepairedThenTheNextCycleMatches) {
  runThroughTick(1);
  EXPECT_EQ(resyncTraces(), std::vector<std::string>{" checksums matches"});
  corruptPeer(1234);
  EXPECT_FALSE(copiesEqual());
  runThroughTick(2);
  ASSERT_EQ(timeline_.logs().size(), 1u);
  EXPECT_EQ(timeline_.logs()[0].name, "SSO_DATA_CHECKSUM_ERROR");
  EXPECT_EQ(timeline_.logs()[0].message, kLogMessage);
  EXPECT_EQ(syncs_->count, 1);
  EXPECT_EQ(request_->auditErrorsFixed(), 1u);
  EXPECT_TRUE(copiesEqual());
  timeline_.clear();
  runThroughTick(3);
  EXPECT_EQ(resyncTraces(), std::vector<std::string>{" checksums matches"});
  EXPECT_TRUE(timeline_.logs().empty());
  EXPECT_EQ(request_->auditErrorsFixed(), 1u);
}

TEST_F(MorvikAuditCycle, AStandbyThatAlwaysReportsAMismatchIsRepairedEveryCycle) {
  standby_->modeIs(StandbyResponder::Mode::lie);
  runThroughTick(3);
  EXPECT_EQ(request_->auditErrorsFixed(), 3u);
  EXPECT_EQ(syncs_->count, 3);
  // Ticks a minute apart: only the first repair of the window is logged.
  EXPECT_EQ(timeline_.logs().size(), 1u);
  EXPECT_TRUE(copiesEqual());
}

class MorvikAuditLateVerdict : public MorvikAuditCycle, public testing::WithParamInterface<bool> {};

// The standby checks its copy at the trigger and answers 30 s later.
TEST_P(MorvikAuditLateVerdict, AFeatureWriteBeforeTheVerdictVoidsTheCycle) {
  const bool featureWrites = GetParam();
  standby_->modeIs(StandbyResponder::Mode::late);
  standby_->lateDelayIs(30.0);
  corruptPeer(77);
  runThroughTick(1);
  runUntil(tickTime(1) + 15.0);
  if (featureWrites) {
    U8 byte = 0x42;
    memory()->doWrite(5000, &byte, 1);
  }
  runUntil(tickTime(1) + 30.0);
  if (featureWrites) {
    EXPECT_EQ(resyncTraces(), std::vector<std::string>{kIgnoring});
    EXPECT_TRUE(timeline_.logs().empty());
    EXPECT_EQ(syncs_->count, 0);
    EXPECT_EQ(request_->auditErrorsFixed(), 0u);
    EXPECT_FALSE(copiesEqual());
    // Void is not forgotten: the next cycle finds the corruption again.
    runUntil(tickTime(2) + 30.0);
  }
  EXPECT_EQ(timeline_.logs().size(), 1u);
  EXPECT_EQ(syncs_->count, 1);
  EXPECT_EQ(request_->auditErrorsFixed(), 1u);
  EXPECT_TRUE(copiesEqual());
}

INSTANTIATE_TEST_SUITE_P(MorvikAudit, MorvikAuditLateVerdict, testing::Bool(),
                         [](const auto& info) {
                           return std::string(info.param ? "featureWrites" : "quiet");
                         });

// The silent standby's last answer arrives after the retries gave up and a new cycle began.
TEST_F(MorvikAuditCycle, AMismatchForAnOlderCycleIsOnlyTraced) {
  standby_->modeIs(StandbyResponder::Mode::late);
  standby_->lateDelayIs(70.0);
  sm_->resultRetryCountMaxIs(1);
  corruptPeer(4096);
  runThroughTick(2);
  EXPECT_EQ(syncs_->count, 1);
  EXPECT_EQ(request_->requestId(), 2u);
  timeline_.clear();
  runUntil(tickTime(1) + 70.0);
  ASSERT_EQ(resyncTraces().size(), 1u);
  EXPECT_EQ(resyncTraces()[0].rfind(" requestId 2 resultId 1 active csum ", 0), 0u);
  EXPECT_TRUE(resyncTraces()[0].ends_with(" ignoring"));
  EXPECT_TRUE(timeline_.logs().empty());
  EXPECT_EQ(syncs_->count, 1);
  EXPECT_EQ(request_->auditErrorsFixed(), 0u);
}

}  // namespace
