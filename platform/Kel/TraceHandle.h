#ifndef KEL_TRACEHANDLE_H
#define KEL_TRACEHANDLE_H

#include <atomic>
#include <string_view>

#include "Kel/String.h"
#include "Kel/Types.h"

namespace Kel {

// A named trace facility with 32 levels that are switched on and off at run time.
//
// The operator chooses levels through the environment: "KEL_TRACE" (see TraceSetting.h for its
// form) is read when the handle is built. Lines go to the file named by "KEL_TRACE_FILE"
// (appended to), or to standard error when it is unset or cannot be opened; while a TraceSink is
// in force they go to the sink only.
//
// A line reads "<handle>/<level> <file> <function>: <text>" and is written with one system call
// under the output lock, so lines from different threads never interleave.
class TraceHandle {
 public:
  static constexpr int kLevels = 32;

  // allLevelsOn starts the handle with every level enabled; the environment can only add levels.
  TraceHandle(String name, bool allLevelsOn);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  // Asked on every trace statement, so it stays one load and a mask test. Levels outside 0..31
  // are never enabled.
  bool enabled(int level) const {
    return static_cast<unsigned>(level) < kLevels &&
           ((levels_.load(std::memory_order_relaxed) >> level) & 1u);
  }
  // All 32 levels at once, bit n for level n, so a caller can save them and put them back.
  U32 levels() const { return levels_.load(std::memory_order_relaxed); }
  void levelsIs(U32 levels) { levels_.store(levels, std::memory_order_relaxed); }
  void allLevelsIs(bool on) { levelsIs(on ? ~U32{0} : 0); }

  // Writes one line (or hands it to the sink in force), whether or not the level is enabled:
  // callers have asked enabled() already.
  void emit(int level, const char* file, int line, const char* function, std::string_view text);

 private:
  const String name_;
  std::atomic<U32> levels_;
  // The KEL_TRACE_FILE descriptor, or -1 for standard error.
  const int fd_;
};

}  // namespace Kel

#endif
