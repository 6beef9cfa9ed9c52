#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kel/Hex.h"
#include "Kel/Trace.h"
#include "Kel/TraceCapture.h"
#include "Kel/TraceHandle.h"
#include "Kel/TraceSetting.h"

namespace {

// Sets (or, for null, removes) one environment variable and puts the old value back afterwards.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (old_) {
      setenv(name_, old_->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

U32 bits(std::initializer_list<int> levels) {
  U32 result = 0;
  for (int level : levels) result |= U32{1} << level;
  return result;
}

struct SettingCase {
  const char* setting;
  const char* name;
  U32 levels;
};

TEST(KelTraceSetting, ReadsLevelsAndSkipsMalformedParts) {
  const U32 all = ~U32{0};
  const SettingCase cases[] = {
      {"", "MorvikLib", 0},
      {"MorvikLib/0", "MorvikLib", bits({0})},
      {"MorvikLib/0,5,8-9;Other/*", "MorvikLib", bits({0, 5, 8, 9})},
      {"MorvikLib/0,5,8-9;Other/*", "Other", all},
      {"MorvikLib/0,5,8-9;Other/*", "Third", 0},
      {"Other/*;MorvikLib/3", "MorvikLib", bits({3})},
      {"MorvikLib/1;MorvikLib/2", "MorvikLib", bits({1, 2})},
      {"MorvikLib/0-31", "MorvikLib", all},
      {"MorvikLib/31", "MorvikLib", bits({31})},
      {"MorvikLib/30-31", "MorvikLib", bits({30, 31})},
      {"MorvikLib/4-4", "MorvikLib", bits({4})},
      {"MorvikLib/*,3", "MorvikLib", all},
      {"*/0", "Anything", bits({0})},
      {" MorvikLib / 1 , 2 - 3 ", "MorvikLib", bits({1, 2, 3})},
      {";;,,MorvikLib/7;", "MorvikLib", bits({7})},
      {"3,MorvikLib/4", "MorvikLib", bits({4})},
      {"MorvikLib/1,Other/2,3", "MorvikLib", bits({1})},
      {"MorvikLib/1,Other/2,3", "Other", bits({2, 3})},
      {"MorvikLib/x,2", "MorvikLib", bits({2})},
      {"MorvikLib/32", "MorvikLib", 0},
      {"MorvikLib/5-2", "MorvikLib", 0},
      {"MorvikLib/", "MorvikLib", 0},
      {"MorvikLib", "MorvikLib", 0},
      {"/3", "MorvikLib", 0},
      {"/3", "", 0},
      {"MorvikLib/-1", "MorvikLib", 0},
      {"MorvikLib/1-", "MorvikLib", 0},
      {"MorvikLib/1-2-3", "MorvikLib", 0},
      {"MorvikLib/2/3", "MorvikLib", 0},
      {"MorvikLib/+1", "MorvikLib", 0},
      {"MorvikLib/0x3", "MorvikLib", 0},
      {"MorvikLib/99999999999999999999", "MorvikLib", 0},
      {"MorvikLib/1-99999999999999999999", "MorvikLib", 0},
      {"morviklib/1", "MorvikLib", 0},
      {"MorvikLibX/1", "MorvikLib", 0},
      {"MorvikLib/**", "MorvikLib", 0},
  };
  for (const SettingCase& c : cases) {
    EXPECT_EQ(Kel::TraceSetting::levels(c.setting, c.name), c.levels)
        << "setting \"" << c.setting << "\" handle \"" << c.name << "\"";
  }
}

TEST(KelTraceHandle, EnvironmentIsReadAtConstructionAndOnReconfigure) {
  ScopedEnv setting("KEL_TRACE", "KelTraceA/2,4-5");
  Kel::TraceHandle handle("KelTraceA", false);
  EXPECT_EQ(handle.levels(), bits({2, 4, 5}));

  setenv("KEL_TRACE", "KelTraceA/3", 1);
  EXPECT_FALSE(handle.enabled(3)) << "the environment is read only when asked";
  handle.levelIs(9, true);
  handle.reconfigure();
  EXPECT_EQ(handle.levels(), bits({3})) << "reconfigure drops programmatic levels";

  Kel::TraceHandle allOn("KelTraceB", true);
  EXPECT_EQ(allOn.levels(), ~U32{0});
  unsetenv("KEL_TRACE");
  handle.reconfigure();
  EXPECT_EQ(handle.levels(), 0u);
}

TEST(KelTraceHandle, LevelsOutsideTheRangeAreNeverEnabled) {
  ScopedEnv setting("KEL_TRACE", nullptr);
  Kel::TraceHandle handle("KelTraceC", false);
  for (int level : {-1, 32, 33, 1000, -1000}) handle.levelIs(level, true);
  EXPECT_EQ(handle.levels(), 0u);
  handle.allLevelsIs(true);
  for (int level : {-1, 32, 64, 1000}) EXPECT_FALSE(handle.enabled(level)) << level;
  EXPECT_TRUE(handle.enabled(0));
  EXPECT_TRUE(handle.enabled(31));
  handle.levelIs(31, false);
  handle.levelIs(0, false);
  EXPECT_EQ(handle.levels(), ~bits({0, 31}));
  handle.allLevelsIs(false);
  EXPECT_FALSE(handle.enabled(5));
  handle.levelsIs(bits({1, 30}));
  EXPECT_TRUE(handle.enabled(30));
  EXPECT_FALSE(handle.enabled(29));
}

class KelTrace : public ::testing::Test {
 protected:
  KelTrace() : env_("KEL_TRACE", nullptr), file_("KEL_TRACE_FILE", nullptr) {}

  ScopedEnv env_;
  ScopedEnv file_;
  Kel::TraceHandle handle_{"KelTraceTest", false};
  Kel::TraceCapture capture_;
};

int calls = 0;
int counted(int value) {
  ++calls;
  return value;
}

TEST_F(KelTrace, DisabledLevelEvaluatesNoOperand) {
  calls = 0;
  handle_.levelIs(5, true);
  KEL_TRACE(handle_, 4, "MorvikLib", "doMmap") << "size:" << counted(1);
  KEL_TRACE(handle_, 6, "MorvikLib", "doMmap") << "size:" << counted(2);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(capture_.size(), 0u);

  KEL_TRACE(handle_, 5, "MorvikLib", "doMmap") << "size:" << counted(3);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(capture_.texts(), std::vector<std::string>{"size:3"});
}

TEST_F(KelTrace, DisabledLevelHandsOutNoMessage) {
  Kel::TraceScratch scratch;
  EXPECT_EQ(Kel::TraceHelper::createIfEnabled(handle_, 3, scratch), nullptr);
  handle_.levelIs(3, true);
  Kel::TraceMessage* first = Kel::TraceHelper::createIfEnabled(handle_, 3, scratch);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->level(), 3);
  Kel::TraceHelper::destroy(first);
  Kel::TraceMessage* second = Kel::TraceHelper::createIfEnabled(handle_, 3, scratch);
  EXPECT_EQ(second, first) << "the thread's message is reused";
  Kel::TraceHelper::destroy(second);
}

TEST_F(KelTrace, CapturedEntryCarriesEveryField) {
  handle_.levelIs(9, true);
  const int line = __LINE__ + 1;
  KEL_TRACE(handle_, 9, "MorvikLib", "doWrite") << "U64 f(U32)"
                                                << " byteOffset " << 17u;
  const auto entries = capture_.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].handle, "KelTraceTest");
  EXPECT_EQ(entries[0].level, 9);
  EXPECT_EQ(entries[0].file, "MorvikLib");
  EXPECT_EQ(entries[0].line, line);
  EXPECT_EQ(entries[0].function, "doWrite");
  EXPECT_EQ(entries[0].text, "U64 f(U32) byteOffset 17");
}

TEST_F(KelTrace, StreamStateDoesNotLeakIntoTheNextMessage) {
  handle_.allLevelsIs(true);
  KEL_TRACE(handle_, 0, "f", "g") << std::hex << std::showbase << std::setw(8) << std::left << 255
                                  << std::setprecision(2) << 1.23456;
  KEL_TRACE(handle_, 0, "f", "g") << 255 << " " << 1.23456 << " [" << 7 << "]";
  EXPECT_EQ(capture_.texts(), (std::vector<std::string>{"0xff    1.2", "255 1.23456 [7]"}));
}

TEST_F(KelTrace, HexWritesBareLowerCaseAndLeavesTheStreamAsItWas) {
  struct Case {
    U64 value;
    const char* text;
  };
  const Case cases[] = {{0, "0"},
                        {255, "ff"},
                        {0xABCDEF, "abcdef"},
                        {~U64{0}, "ffffffffffffffff"},
                        {0x100000000ull, "100000000"}};
  for (const Case& c : cases) {
    std::ostringstream out;
    out << std::showbase << std::uppercase << Kel::hex(c.value) << " " << 10;
    EXPECT_EQ(out.str(), std::string(c.text) + " 10");
  }
  std::ostringstream octal;
  octal << std::oct << Kel::hex(16) << " " << 8;
  EXPECT_EQ(octal.str(), "10 10");
}

int nestedTrace(Kel::TraceHandle& handle) {
  KEL_TRACE(handle, 1, "MorvikLib", "inner") << "inner " << 2;
  return 1;
}

TEST_F(KelTrace, TraceInsideAnOperandKeepsBothMessages) {
  handle_.allLevelsIs(true);
  KEL_TRACE(handle_, 1, "MorvikLib", "outer") << "outer " << nestedTrace(handle_) << " end";
  EXPECT_EQ(capture_.texts(), (std::vector<std::string>{"inner 2", "outer 1 end"}));
}

int throwing() {
  throw std::runtime_error("operand");
}

TEST_F(KelTrace, ThrowingOperandEmitsNothingAndFreesTheMessage) {
  handle_.allLevelsIs(true);
  EXPECT_THROW(KEL_TRACE(handle_, 1, "f", "g") << "lost " << throwing(), std::runtime_error);
  EXPECT_EQ(capture_.size(), 0u);
  KEL_TRACE(handle_, 1, "f", "g") << "kept";
  EXPECT_EQ(capture_.texts(), std::vector<std::string>{"kept"});
  Kel::TraceScratch scratch;
  Kel::TraceMessage* message = Kel::TraceHelper::createIfEnabled(handle_, 1, scratch);
  EXPECT_EQ(message->text(), "") << "a new message starts empty";
  Kel::TraceHelper::destroy(message);
}

TEST_F(KelTrace, LongMessageIsKeptWhole) {
  handle_.allLevelsIs(true);
  const std::string big(100000, 'x');
  KEL_TRACE(handle_, 2, "f", "g") << big << 42;
  KEL_TRACE(handle_, 2, "f", "g") << "short";
  EXPECT_EQ(capture_.texts(), (std::vector<std::string>{big + "42", "short"}));
}

TEST_F(KelTrace, NewestCaptureReceivesTheLines) {
  handle_.allLevelsIs(true);
  {
    Kel::TraceCapture inner;
    KEL_TRACE(handle_, 0, "f", "g") << "one";
    EXPECT_EQ(inner.texts(), std::vector<std::string>{"one"});
    inner.clear();
    EXPECT_EQ(inner.size(), 0u);
  }
  KEL_TRACE(handle_, 0, "f", "g") << "two";
  EXPECT_EQ(capture_.texts(), std::vector<std::string>{"two"});
}

TEST_F(KelTrace, ThreadsDoNotMixTheirMessages) {
  handle_.allLevelsIs(true);
  constexpr int kThreads = 4;
  constexpr int kEach = 250;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < kEach; ++i) KEL_TRACE(handle_, 3, "f", "g") << "t" << t << " i" << i;
    });
  }
  for (auto& thread : threads) thread.join();
  std::vector<int> next(kThreads, 0);
  for (const std::string& text : capture_.texts()) {
    int t = -1;
    int i = -1;
    ASSERT_EQ(std::sscanf(text.c_str(), "t%d i%d", &t, &i), 2) << text;
    ASSERT_TRUE(t >= 0 && t < kThreads) << text;
    EXPECT_EQ(i, next[t]++) << "one thread's lines stay in order";
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(KelTraceFile, LinesAreAppendedToTheNamedFile) {
  char path[] = "/tmp/KelTraceFileXXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, "earlier\n", 8), 8);
  close(fd);
  {
    ScopedEnv file("KEL_TRACE_FILE", path);
    ScopedEnv setting("KEL_TRACE", "KelTraceFile/5");
    Kel::TraceHandle handle("KelTraceFile", false);
    KEL_TRACE(handle, 5, "MorvikLib", "doMmap")
        << "paddr is  " << Kel::hex(0x1000) << " size " << 4096;
    KEL_TRACE(handle, 6, "MorvikLib", "doMmap") << "off";
    KEL_TRACE(handle, 5, "MorvikLib", "doMunmap") << "second";
  }
  EXPECT_EQ(readFile(path),
            "earlier\n"
            "KelTraceFile/5 MorvikLib doMmap: paddr is  1000 size 4096\n"
            "KelTraceFile/5 MorvikLib doMunmap: second\n");
  unlink(path);
}

TEST(KelTraceFile, LinesFromManyThreadsStayWhole) {
  char path[] = "/tmp/KelTraceFileXXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  constexpr int kThreads = 4;
  constexpr int kEach = 200;
  {
    ScopedEnv file("KEL_TRACE_FILE", path);
    Kel::TraceHandle handle("KelTraceFile", true);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&handle] {
        for (int i = 0; i < kEach; ++i) {
          KEL_TRACE(handle, 9, "f", "g") << std::string(100, 'a') << i << std::string(100, 'b');
        }
      });
    }
    for (auto& thread : threads) thread.join();
  }
  std::istringstream lines(readFile(path));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const std::string prefix = "KelTraceFile/9 f g: " + std::string(100, 'a');
    ASSERT_EQ(line.compare(0, prefix.size(), prefix), 0) << line;
    ASSERT_EQ(line.substr(line.size() - 100), std::string(100, 'b')) << line;
  }
  EXPECT_EQ(count, kThreads * kEach);
  unlink(path);
}

TEST(KelTraceFile, UnopenableFileFallsBackToStandardError) {
  ScopedEnv file("KEL_TRACE_FILE", "/nonexistent-dir/trace.log");
  Kel::TraceHandle handle("KelTraceFallback", true);
  ::testing::internal::CaptureStderr();
  KEL_TRACE(handle, 0, "MorvikLib", "doMunmap") << "still seen";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "KelTraceFallback/0 MorvikLib doMunmap: still seen\n");
}

}  // namespace
