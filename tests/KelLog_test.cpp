#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Log.h"
#include "Kel/LogHandle.h"
#include "Kel/Name.h"
#include "Kel/System.h"
#include "support/Capture.h"

namespace {

constexpr double kStart = 1000.0;

class KelLog : public ::testing::Test {
 protected:
  KelLog() { Kel::System::virtualTimeIs(true, kStart); }
  ~KelLog() override { Kel::System::virtualTimeIs(false); }

  static Kel::LogHandle handle(double interval, double burst, unsigned char rateLimitArgs) {
    return Kel::LogHandle("KEL_LOG_TEST", 3, "event for %s", "why", Kel::CallSupportIfPersists,
                          interval, burst, rateLimitArgs);
  }
  // Steps like "0+ 9.999-": one okToLog(7) at kStart + offset each, and whether it passes.
  static void expectSteps(Kel::LogHandle log, const std::string& steps) {
    Kel::System::virtualTimeIs(true, kStart);
    std::istringstream in(steps);
    double offset = 0;
    char passes = 0;
    while (in >> offset >> passes) {
      Kel::System::virtualTimeAdvanceTo(kStart + offset);
      EXPECT_EQ(log.okToLog(7), passes == '+') << "at +" << offset;
    }
  }

  MorvikTest::LogCapture capture_;
};

// The first number is the interval in seconds (5 minutes when not positive), the second the burst
// let through per interval (at least 1); an interval has passed exactly one interval after it
// began.
TEST_F(KelLog, IntervalAndBurstLimitEachKey) {
  expectSteps(handle(10.0, 1.0, 0), "0+ 0- 9.999- 10+ 19.9- 25+ 34.9-");
  expectSteps(handle(10.0, 2.7, 0), "0+ 1+ 9- 10+ 10+ 10-");
  expectSteps(handle(-5.0, 0.0, 0), "0+ 299.9- 300+");
  EXPECT_EQ(Kel::LogHandle("X", 1, "", "", "", 1.0, 1e12, 1).burst(), 0xffffffffu);
}

struct Counted {
  int* writes;
};
std::ostream& operator<<(std::ostream& out, const Counted& arg) {
  ++*arg.writes;
  return out << "counted";
}

TEST_F(KelLog, LastByteMakesTheArgumentPartOfTheKeyAndSuppressedEventsFormatNothing) {
  Kel::LogHandle perArg = handle(10.0, 1.0, 1);
  Kel::LogHandle shared = handle(10.0, 1.0, 0);
  for (Kel::LogHandle* log : {&perArg, &shared}) {
    for (const char* audit : {"audit1", "audit2", "audit1"}) Kel::log(*log, Kel::Name(audit));
  }
  EXPECT_EQ(capture_.texts(),
            (std::vector<std::string>{"event for audit1", "event for audit2", "event for audit1"}));
  EXPECT_EQ(perArg.suppressed(), 1u);
  EXPECT_EQ(shared.suppressed(), 2u);
  const auto entries = capture_.entries();
  EXPECT_EQ(entries[0].hash, Kel::String("KEL_LOG_TESTaudit1").hash() ^ perArg.idHash());
  EXPECT_EQ(entries[2].hash, 0u) << "the name alone hashes to the handle's own hash";
  int writes = 0;
  Kel::log(shared, Counted{&writes});
  EXPECT_EQ(writes, 0);
}

TEST_F(KelLog, WithoutACaptureLinesGoToStandardError) {
  Kel::LogSink* const replaced = Kel::exchangeSink(static_cast<Kel::LogSink*>(nullptr));
  Kel::LogHandle log = handle(10.0, 1.0, 0);
  ::testing::internal::CaptureStderr();
  Kel::log(log, Kel::Name("audit1"));
  log.log(5, "direct", 3);
  const std::string text = ::testing::internal::GetCapturedStderr();
  Kel::exchangeSink(replaced);
  EXPECT_EQ(text,
            "KEL_LOG_TEST (severity 3): event for audit1\n"
            "KEL_LOG_TEST (severity 3): direct (3 times)\n");
}

}  // namespace
