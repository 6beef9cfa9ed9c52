#include <gtest/gtest.h>

#include <random>

#include "MorvikLib/Library.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "agents/StandbyResponder.h"
#include "support/Chassis.h"
#include "support/Timeline.h"

namespace {

using MorvikTest::Chassis;

TEST(MorvikAuditHour, SixCorruptionsInAnHourAreEachFoundAndRepairedOnceByTheNextTick) {
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  const U64 suppressedBefore = log.suppressed();
  Chassis::Options options;
  options.features = {{"alpha", 8192}};
  options.audit = true;
  options.start = Chassis::logEpoch();
  Chassis chassis(options);
  chassis.traceLevelsIs({});
  MorvikTest::Timeline timeline("");
  const MorvikLib::MorvikAuditSm* audit = chassis.sm(0)->morvikAuditSm().ptr();
  const Kel::Ptr<Morvik::AuditRequest> request = chassis.auditRequest(0);
  MorvikAgents::StandbyResponder standby(request, chassis.auditStatus(0),
                                         reinterpret_cast<U64>(chassis.remoteBytes()), 8192);
  std::mt19937 random(20240229);
  for (U32 minute = 5, fixed = 1; minute < 60; minute += 10, ++fixed) {
    Chassis::runUntil(options.start + 60.0 * minute);
    const U32 offset = static_cast<U32>(random() % 8192);
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
  EXPECT_EQ(timeline.of("log "), std::vector<std::string>(6,
                                                          "SSO_DATA_CHECKSUM_ERROR: SSO hardware "
                                                          "shadow memory on standby does not "
                                                          "match active for alphaAudit"));
  EXPECT_EQ(log.suppressed(), suppressedBefore);
  // The same audit ran all hour, one cycle per tick, and the standby answered every one.
  EXPECT_EQ(chassis.sm(0)->morvikAuditSm().ptr(), audit);
  EXPECT_EQ(standby.answersGiven(), 60u);
}

}  // namespace
