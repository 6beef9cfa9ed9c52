// One hour of chassis time with a standby whose copy keeps getting corrupted.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/LogCapture.h"
#include "Kel/System.h"
#include "Morvik/AuditRequest.h"
#include "MorvikLib/Library.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "MorvikLib/Trace.h"
#include "agents/StandbyResponder.h"
#include "support/Chassis.h"

namespace {

using MorvikTest::Chassis;

constexpr U32 kSize = 8192;

// Past every window the library's log handle has opened so far (each event moves it on by more
// than a scenario lasts), so that no earlier test's rate limit reaches into this one.
double freshLogEpoch() {
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  return 1e7 + 1e5 * static_cast<double>(log.emitted() + log.suppressed());
}

// How many of these events the handle lets through, by its documented rule: the first event of a
// window opens it, at most burst events pass per window, and an event at least interval seconds
// after the window opened opens the next.
std::size_t passedByRule(const std::vector<double>& times, const Kel::LogHandle& log) {
  double opened = -std::numeric_limits<double>::infinity();
  U32 passed = 0;
  std::size_t total = 0;
  for (double t : times) {
    if (t >= opened + log.interval()) {
      opened = t;
      passed = 0;
    }
    if (passed < log.burst()) {
      ++passed;
      ++total;
    }
  }
  return total;
}

// When the request's count of repairs moved.
class RepairClock : public Morvik::AuditRequest::Notifiee {
 public:
  void onAuditErrorsFixed() override { times.push_back(Kel::System::currentTime()); }
  std::vector<double> times;
};

Chassis::Options oneAuditedFeature() {
  Chassis::Options options;
  options.features = {{"alpha", kSize}};
  options.audit = true;
  options.machines = false;
  return options;
}

TEST(MorvikAuditHour, SixCorruptionsInAnHourAreEachFoundAndRepairedOnce) {
  Kel::activityManager();
  MorvikLib::traceHandle();
  const std::int64_t liveAtStart = Kel::AllocTracker::totalLive();
  const U32 savedLevels = MorvikLib::traceHandle().levels();
  MorvikLib::traceHandle().allLevelsIs(false);
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  const U64 suppressedBefore = log.suppressed();
  {
    Kel::LogCapture logs;
    Chassis chassis(oneAuditedFeature());
    const double start = freshLogEpoch();
    Kel::System::virtualTimeIs(true, start);
    chassis.buildMachines();
    const Kel::Ptr<MorvikLib::MorvikMemory>& memory = chassis.memory(0);
    const MorvikLib::MorvikAuditSm* audit = chassis.sm(0)->morvikAuditSm().ptr();
    ASSERT_TRUE(audit);
    Kel::Ptr<Morvik::AuditRequest> request = chassis.auditRequest(0);
    const U64 peerCopy = reinterpret_cast<U64>(chassis.remoteBytes()) + chassis.byteOffset(0);
    std::optional<MorvikAgents::StandbyResponder> standby;
    standby.emplace(request, chassis.auditStatus(0), peerCopy, kSize);
    Kel::Ptr<RepairClock> repairs = Kel::allocate<RepairClock>();
    repairs->notifierIs(request);
    repairs->isRegisteredNotifieeIs(true);

    std::mt19937 random(20240229);
    std::vector<double> corruptions;
    for (int minute = 5; minute < 60; minute += 10) {
      const double at = start + 60.0 * minute;
      Kel::activityManager()->runUntil(at);
      ASSERT_EQ(std::memcmp(chassis.localBytes(), chassis.remoteBytes(), kSize), 0)
          << "minute " << minute;
      const U32 offset = static_cast<U32>(random() % kSize);
      U8 byte = static_cast<U8>(chassis.remoteBytes()[offset] ^ (1 + random() % 255));
      memory->doWriteRemoteTest(offset, &byte, 1);
      corruptions.push_back(at);
    }
    Kel::activityManager()->runUntil(start + 3600.0);

    EXPECT_EQ(std::memcmp(chassis.localBytes(), chassis.remoteBytes(), kSize), 0);
    EXPECT_EQ(request->auditErrorsFixed(), 6u);
    ASSERT_EQ(repairs->times.size(), 6u);
    for (std::size_t i = 0; i < corruptions.size(); ++i) {
      // Found by the very next audit tick.
      EXPECT_GT(repairs->times[i], corruptions[i]);
      EXPECT_LE(repairs->times[i], corruptions[i] + 60.0);
    }
    const std::size_t expectedLogs = passedByRule(repairs->times, log);
    EXPECT_EQ(logs.size(), expectedLogs);
    EXPECT_EQ(log.suppressed() - suppressedBefore, 6u - expectedLogs);
    for (const auto& entry : logs.entries()) {
      EXPECT_EQ(entry.name, "SSO_DATA_CHECKSUM_ERROR");
      EXPECT_EQ(entry.message,
                "SSO hardware shadow memory on standby does not match active for alphaAudit");
    }
    // Ten minutes apart, every repair was worth a log.
    EXPECT_EQ(expectedLogs, 6u);
    // The same audit ran all hour, one cycle per tick, and the standby answered every one.
    EXPECT_EQ(chassis.sm(0)->morvikAuditSm().ptr(), audit);
    EXPECT_EQ(request->requestId(), 60u);
    EXPECT_EQ(standby->answersGiven(), 60u);
    EXPECT_EQ(chassis.sm(0)->morvikAuditSm()->resultRetryCount(), 0u);
    repairs = nullptr;
    standby.reset();
  }
  MorvikLib::traceHandle().levelsIs(savedLevels);
  EXPECT_EQ(Kel::AllocTracker::totalLive(), liveAtStart);
  EXPECT_TRUE(Kel::activityManager()->clock()->idle());
}

}  // namespace
