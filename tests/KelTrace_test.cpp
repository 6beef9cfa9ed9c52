#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Hex.h"
#include "Kel/Trace.h"
#include "Kel/TraceHandle.h"
#include "Kel/TraceSetting.h"
#include "support/Capture.h"

namespace {

// Sets (or, for null, removes) one environment variable and puts the old value back afterwards.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

U32 bits(std::initializer_list<int> levels) {
  U32 result = 0;
  for (int level : levels) result |= U32{1} << level;
  return result;
}

TEST(KelTraceSetting, ReadsLevelsAndSkipsMalformedParts) {
  const U32 all = ~U32{0};
  const struct {
    const char* setting;
    const char* name;
    U32 levels;
  } cases[] = {
      {"MorvikLib/0,5,8-9;Other/*", "MorvikLib", bits({0, 5, 8, 9})},
      {"MorvikLib/0,5,8-9;Other/*", "Other", all},
      {"MorvikLib/1;MorvikLib/2", "MorvikLib", bits({1, 2})},
      {"MorvikLib/30-31,4-4", "MorvikLib", bits({4, 30, 31})},
      {" MorvikLib / 1 , 2 - 3 ", "MorvikLib", bits({1, 2, 3})},
      {";;,,3,MorvikLib/7;", "MorvikLib", bits({7})},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Kel::traceLevels(c.setting, c.name), c.levels) << c.setting << c.name;
  }
  for (const char* bad :
       {"", "MorvikLib/32", "MorvikLib/5-2", "MorvikLib/", "MorvikLib", "/3", "MorvikLib/-1",
        "MorvikLib/1-", "MorvikLib/1-2-3", "MorvikLib/2/3", "MorvikLib/+1", "MorvikLib/0x3",
        "MorvikLib/99999999999999999999", "morviklib/1", "MorvikLibX/1", "MorvikLib/**"}) {
    EXPECT_EQ(Kel::traceLevels(bad, "MorvikLib"), 0u) << bad;
  }
}

class KelTrace : public ::testing::Test {
 protected:
  KelTrace() : env_("KEL_TRACE", nullptr), file_("KEL_TRACE_FILE", nullptr) {}
  ScopedEnv env_;
  ScopedEnv file_;
  Kel::TraceHandle handle_{"KelTraceTest", false};
  MorvikTest::TraceCapture capture_;
};

int calls = 0;
int counted(int value) {
  return ++calls, value;
}

int nestedTrace(Kel::TraceHandle& handle) {
  KEL_TRACE(handle, 1, "MorvikLib", "inner") << "inner " << 2;
  return 1;
}
int throwing() {
  throw std::runtime_error("operand");
}

// A disabled level hands out no message and evaluates no operand; each message starts afresh
// whatever the one before did to the stream, however it ended.
TEST_F(KelTrace, DisabledLevelsEvaluateNothingAndEachMessageStartsAfresh) {
  handle_.levelsIs(bits({0, 1, 2, 5}));
  KEL_TRACE(handle_, 4, "MorvikLib", "doMmap") << "size:" << counted(1);
  KEL_TRACE(handle_, 6, "MorvikLib", "doMmap") << "size:" << counted(2);
  EXPECT_EQ(calls, 0);
  const int line = __LINE__ + 1;
  KEL_TRACE(handle_, 5, "MorvikLib", "doMmap") << "size:" << counted(3);
  EXPECT_EQ(calls, 1);
  KEL_TRACE(handle_, 0, "f", "g") << std::hex << std::showbase << std::setw(8) << std::left << 255
                                  << std::setprecision(2) << 1.23456;
  KEL_TRACE(handle_, 0, "f", "g") << 255 << " " << 1.23456;
  KEL_TRACE(handle_, 1, "MorvikLib", "outer") << "outer " << nestedTrace(handle_) << " end";
  EXPECT_THROW(KEL_TRACE(handle_, 1, "f", "g") << "lost " << throwing(), std::runtime_error);
  KEL_TRACE(handle_, 2, "f", "g") << "kept";
  ASSERT_EQ(capture_.texts(), (std::vector<std::string>{"size:3", "0xff    1.2", "255 1.23456",
                                                        "inner 2", "outer 1 end", "kept"}));
  // Level, handle, file and function reach the sink as given: MemMap's tests compare them on
  // every line.
  EXPECT_EQ(capture_.entries()[0].line, line);
}

// A handle reads its levels and its trace file, to which it appends, when it is made.
TEST(KelTraceHandle, EnvironmentIsReadAtConstructionOnly) {
  char path[] = "/tmp/KelTraceFileXXXXXX";
  const int fd = mkstemp(path);
  ASSERT_EQ(write(fd, "earlier\n", 8), 8);
  close(fd);
  {
    ScopedEnv file("KEL_TRACE_FILE", path);
    ScopedEnv setting("KEL_TRACE", "KelTraceA/2,4-5");
    Kel::TraceHandle handle("KelTraceA", false);
    EXPECT_EQ(handle.levels(), bits({2, 4, 5}));
    KEL_TRACE(handle, 5, "MorvikLib", "doMmap") << "paddr is  " << Kel::hex(0xABC);
    KEL_TRACE(handle, 6, "MorvikLib", "doMmap") << "off";
    setenv("KEL_TRACE", "KelTraceA/3", 1);
    EXPECT_FALSE(handle.enabled(3));
    EXPECT_EQ(Kel::TraceHandle("KelTraceA", false).levels(), bits({3}));
    EXPECT_EQ(Kel::TraceHandle("KelTraceB", true).levels(), ~U32{0});
    handle.allLevelsIs(true);
    EXPECT_FALSE(handle.enabled(-1));
    EXPECT_FALSE(handle.enabled(32));
    EXPECT_TRUE(handle.enabled(31));
  }
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  unlink(path);
  EXPECT_EQ(text.str(), "earlier\nKelTraceA/5 MorvikLib doMmap: paddr is  abc\n");
}

}  // namespace
