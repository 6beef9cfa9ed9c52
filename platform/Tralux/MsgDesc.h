// A message descriptor: one per call site, declared once.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tralux {

class TraceFile;

// Meant to be a function-local static: built and finished the first time the call site runs, so
// the site is declared once however often the enclosing function runs.
class MsgDesc {
 public:
  // Receives the elapsed cycles of every timed block, with the block's descriptor. The stand-in
  // writes no binary trace and keeps no figures: a program that reports timings installs one.
  using Recorder = void (*)(const MsgDesc& desc, std::uint64_t cycles) noexcept;
  // Puts recorder in force for every descriptor (null: none).
  static void recorderIs(Recorder recorder) {
    recorder_.store(recorder, std::memory_order_relaxed);
  }

  // The trace file, source file and line place the site in a binary trace, which the stand-in
  // does not write; a disabled descriptor makes its block timers skip both counter reads.
  MsgDesc(TraceFile* traceFile, std::uint32_t* messageId, const char* file, int line, bool enabled);
  MsgDesc(const MsgDesc&) = delete;
  MsgDesc& operator=(const MsgDesc&) = delete;

  // Format pieces may only be fed before finish(); the text is frozen once the site is declared.
  MsgDesc& operator<<(std::string_view piece);
  // Assigns the id (unique, never 0) and stores it through the caller's pointer. Finishing again
  // changes nothing.
  void finish();

  const std::string& text() const { return text_; }
  bool enabled() const { return enabled_; }

  // The hot path: one load and, only while a recorder is in force, one call.
  void record(std::uint64_t cycles) const noexcept {
    if (const Recorder recorder = recorder_.load(std::memory_order_relaxed)) {
      recorder(*this, cycles);
    }
  }

 private:
  static std::atomic<Recorder> recorder_;

  std::uint32_t* const messageIdOut_;
  const bool enabled_;
  std::uint32_t messageId_ = 0;
  std::string text_;
};

}  // namespace Tralux
