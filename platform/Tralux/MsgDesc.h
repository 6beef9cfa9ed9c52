// A message descriptor: one per call site, declared once, and the home of the site's timings.
#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tralux/CycleFigures.h"

namespace Tralux {

class TraceFile;

// Meant to be a function-local static: built and finished the first time the call site runs, so
// the site is registered once however often the enclosing function runs. A descriptor removes
// itself from the registry when destroyed; it must not be copied, since the registry and the
// caller's message id refer to this very object.
class MsgDesc {
 public:
  MsgDesc(TraceFile* traceFile, std::uint32_t* messageId, const char* file, int line, bool enabled);
  MsgDesc(const MsgDesc&) = delete;
  MsgDesc& operator=(const MsgDesc&) = delete;
  ~MsgDesc();

  // Format pieces may only be fed before finish(); the text is frozen once the site is declared.
  MsgDesc& operator<<(const char* piece);
  MsgDesc& operator<<(std::string_view piece);
  template <std::integral Integer>
  MsgDesc& operator<<(Integer value) {
    if constexpr (std::is_same_v<Integer, char>) {
      return *this << std::string_view(&value, 1);
    } else {
      return *this << std::string_view(std::to_string(value));
    }
  }

  // Assigns the id (unique, never 0), stores it through the caller's pointer and registers the
  // call site. Finishing again changes nothing.
  void finish();

  const std::string& text() const { return text_; }
  const char* file() const { return file_; }
  int line() const { return line_; }
  std::uint32_t messageId() const { return messageId_; }
  bool finished() const { return messageId_ != 0; }
  TraceFile* traceFile() const { return traceFile_; }

  // A disabled descriptor makes its block timers skip both counter reads.
  bool enabled() const { return enabled_.load(std::memory_order_relaxed); }
  void enabledIs(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }

  // The hot path: no allocation, no lock, no formatting.
  void record(std::uint64_t cycles) noexcept { figures_.record(cycles); }

  std::uint64_t count() const { return figures_.count(); }
  std::uint64_t totalCycles() const { return figures_.totalCycles(); }
  std::uint64_t minCycles() const { return figures_.minCycles(); }
  std::uint64_t maxCycles() const { return figures_.maxCycles(); }
  std::uint64_t bucketCount(std::size_t bucket) const { return figures_.bucketCount(bucket); }
  std::uint64_t percentileCycles(double percent) const {
    return figures_.percentileCycles(percent);
  }
  void resetFigures() noexcept { figures_.reset(); }

 private:
  TraceFile* const traceFile_;
  std::uint32_t* const messageIdOut_;
  const char* const file_;
  const int line_;
  std::atomic<bool> enabled_;
  std::uint32_t messageId_ = 0;
  std::string text_;
  CycleFigures figures_;
};

}  // namespace Tralux
