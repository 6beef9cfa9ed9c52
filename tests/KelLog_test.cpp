#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "Kel/Log.h"
#include "Kel/LogCapture.h"
#include "Kel/LogHandle.h"
#include "Kel/Name.h"
#include "Kel/System.h"

namespace {

constexpr double kStart = 1000.0;

// One okToLog call at kStart + offset and whether it should pass.
struct Step {
  double offset;
  bool passes;
};

class KelLog : public ::testing::Test {
 protected:
  KelLog() { Kel::System::virtualTimeIs(true, kStart); }
  ~KelLog() override { Kel::System::virtualTimeIs(false); }

  static Kel::LogHandle handle(double interval, double burst, unsigned char rateLimitArgs) {
    return Kel::LogHandle("KEL_LOG_TEST", 3, "event for %s", "why", Kel::CallSupportIfPersists,
                          interval, burst, rateLimitArgs);
  }
  void at(double offset) { Kel::System::virtualTimeAdvanceTo(kStart + offset); }
  void expectSteps(Kel::LogHandle& log, U32 hash, const std::vector<Step>& steps) {
    for (const Step& step : steps) {
      at(step.offset);
      EXPECT_EQ(log.okToLog(hash), step.passes) << "at +" << step.offset;
    }
  }

  Kel::LogCapture capture_;
};

TEST_F(KelLog, ParametersAndTheirDefaults) {
  Kel::LogHandle log("SSO_DATA_CHECKSUM_ERROR", 6,
                     "SSO hardware shadow memory on standby does not match active for %s",
                     "SSO software will take corrective action ", Kel::CallSupportIfPersists, 0.0,
                     1.0, 0);
  EXPECT_EQ(log.name(), Kel::String("SSO_DATA_CHECKSUM_ERROR"));
  EXPECT_EQ(log.severity(), 6);
  EXPECT_EQ(log.explanation(), Kel::String("SSO software will take corrective action "));
  EXPECT_EQ(log.recommendedAction(), Kel::String(Kel::CallSupportIfPersists));
  EXPECT_EQ(log.interval(), Kel::LogHandle::kDefaultInterval);
  EXPECT_EQ(log.burst(), 1u);
  EXPECT_EQ(log.rateLimitArgs(), 0);
  EXPECT_EQ(log.idHash(), Kel::String("SSO_DATA_CHECKSUM_ERROR").hash());

  struct Case {
    double interval, burst, intervalInForce;
    U32 burstInForce;
  };
  const Case cases[] = {{-5.0, 0.0, 300.0, 1},
                        {0.5, 0.9, 0.5, 1},
                        {60.0, 2.7, 60.0, 2},
                        {1.0, -3.0, 1.0, 1},
                        {1.0, 1e12, 1.0, 0xffffffffu}};
  for (const Case& c : cases) {
    Kel::LogHandle other("X", 1, "", "", "", c.interval, c.burst, 1);
    EXPECT_EQ(other.interval(), c.intervalInForce) << c.interval;
    EXPECT_EQ(other.burst(), c.burstInForce) << c.burst;
  }
}

TEST_F(KelLog, RepeatsAreSuppressedUntilTheIntervalHasPassed) {
  Kel::LogHandle log = handle(10.0, 1.0, 0);
  // Exactly one interval after the window opened counts as passed.
  expectSteps(log, 7,
              {{0.0, true},
               {0.0, false},
               {9.999, false},
               {10.0, true},
               {10.0, false},
               {19.9, false},
               {25.0, true},
               {34.9, false}});
  EXPECT_EQ(log.suppressed(), 5u);
}

TEST_F(KelLog, BurstLetsThatManyThroughPerInterval) {
  Kel::LogHandle log = handle(10.0, 2.0, 0);
  expectSteps(log, 7,
              {{0.0, true},
               {1.0, true},
               {2.0, false},
               {9.0, false},
               {10.0, true},
               {10.0, true},
               {10.0, false}});
  EXPECT_EQ(log.suppressed(), 3u);
}

TEST_F(KelLog, DefaultIntervalIsFiveMinutes) {
  Kel::LogHandle log = handle(0.0, 1.0, 0);
  expectSteps(log, 7, {{0.0, true}, {299.9, false}, {300.0, true}, {300.1, false}});
}

TEST_F(KelLog, KeysAreLimitedIndependently) {
  Kel::LogHandle log = handle(10.0, 1.0, 0);
  EXPECT_TRUE(log.okToLog(1));
  EXPECT_TRUE(log.okToLog(2));
  EXPECT_FALSE(log.okToLog(1));
  at(5.0);
  EXPECT_TRUE(log.okToLog(3));
  at(10.0);
  EXPECT_TRUE(log.okToLog(1));
  EXPECT_FALSE(log.okToLog(3)) << "key 3's window opened at +5";
}

TEST_F(KelLog, ManyKeysDoNotLoseOpenWindows) {
  Kel::LogHandle log = handle(10.0, 1.0, 0);
  for (U32 key = 0; key < 3000; ++key) EXPECT_TRUE(log.okToLog(key));
  for (U32 key = 0; key < 3000; ++key) EXPECT_FALSE(log.okToLog(key)) << key;
  at(10.0);
  for (U32 key = 0; key < 3000; ++key) EXPECT_TRUE(log.okToLog(key)) << key;
}

TEST_F(KelLog, PerArgumentKeysOnlyWhenTheLastByteIsSet) {
  struct Case {
    unsigned char rateLimitArgs;
    std::vector<std::string> messages;
    U64 suppressed;
  };
  const Case cases[] = {
      {1, {"event for audit1", "event for audit2"}, 1},
      {0, {"event for audit1"}, 2},
  };
  for (const Case& c : cases) {
    capture_.clear();
    Kel::LogHandle log = handle(10.0, 1.0, c.rateLimitArgs);
    Kel::log(log, Kel::Name("audit1"));
    Kel::log(log, Kel::Name("audit2"));
    Kel::log(log, Kel::Name("audit1"));
    EXPECT_EQ(capture_.messages(), c.messages) << int(c.rateLimitArgs);
    EXPECT_EQ(log.emitted(), c.messages.size());
    EXPECT_EQ(log.suppressed(), c.suppressed);
  }
}

TEST_F(KelLog, KeyHashIsTheNameAndArgumentXorTheHandleHash) {
  Kel::LogHandle perArg = handle(10.0, 1.0, 1);
  Kel::LogHandle shared = handle(10.0, 1.0, 0);
  Kel::log(perArg, Kel::Name("audit1"));
  Kel::log(shared, Kel::Name("audit1"));
  const auto entries = capture_.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].hash, Kel::String("KEL_LOG_TESTaudit1").hash() ^ perArg.idHash());
  EXPECT_EQ(entries[1].hash, 0u) << "the name alone hashes to the handle's own hash";
  EXPECT_EQ(entries[0].name, "KEL_LOG_TEST");
  EXPECT_EQ(entries[0].severity, 3);
  EXPECT_EQ(entries[0].count, 1);
}

struct Counted {
  int* writes;
};
std::ostream& operator<<(std::ostream& out, const Counted& arg) {
  ++*arg.writes;
  return out << "counted";
}

TEST_F(KelLog, SuppressedEventFormatsNothing) {
  int writes = 0;
  Kel::LogHandle shared = handle(10.0, 1.0, 0);
  Kel::log(shared, Counted{&writes});
  EXPECT_EQ(writes, 1);
  Kel::log(shared, Counted{&writes});
  EXPECT_EQ(writes, 1) << "a suppressed event needs no argument text";
  EXPECT_EQ(capture_.messages(), std::vector<std::string>{"event for counted"});

  Kel::LogHandle perArg = handle(10.0, 1.0, 1);
  Kel::log(perArg, Counted{&writes});
  Kel::log(perArg, Counted{&writes});
  EXPECT_EQ(writes, 3) << "the key needs the text, once per event";
}

TEST_F(KelLog, FormatReplacesEveryStringDirective) {
  struct Case {
    const char* format;
    const char* message;
  };
  const Case cases[] = {
      {"SSO hardware shadow memory on standby does not match active for %s",
       "SSO hardware shadow memory on standby does not match active for audit1"},
      {"no argument", "no argument"},
      {"%s and %s", "audit1 and audit1"},
      {"100%% of %s", "100% of audit1"},
      {"%d stays, trailing %", "%d stays, trailing %"},
      {"", ""},
  };
  for (const Case& c : cases) {
    Kel::LogHandle log("F", 1, c.format, "", "", 0.0, 1.0, 0);
    EXPECT_EQ(log.message("audit1").stdString(), c.message) << c.format;
  }
}

TEST_F(KelLog, WithoutACaptureLinesGoToStandardError) {
  Kel::LogSink::uninstall(&capture_);
  Kel::LogHandle log = handle(10.0, 1.0, 0);
  ::testing::internal::CaptureStderr();
  Kel::log(log, Kel::Name("audit1"));
  log.log(5, "direct", 3);
  const std::string text = ::testing::internal::GetCapturedStderr();
  Kel::LogSink::install(&capture_);
  EXPECT_EQ(text,
            "KEL_LOG_TEST (severity 3): event for audit1\n"
            "KEL_LOG_TEST (severity 3): direct (3 times)\n");
}

}  // namespace
