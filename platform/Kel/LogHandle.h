#ifndef KEL_LOGHANDLE_H
#define KEL_LOGHANDLE_H

#include <atomic>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "Kel/String.h"
#include "Kel/Types.h"

namespace Kel {

// The framework's standard recommended action, for events the software repairs by itself.
inline constexpr char CallSupportIfPersists[] =
    "If this message persists, contact your technical support representative.";

// A named, rate-limited event log for operators.
//
// Rate limiting works per key: a caller (Kel::log) hashes a key for each event and asks
// okToLog(hash) before formatting anything. The three numeric construction parameters are:
// - interval: the suppression interval in seconds. A key's first event opens a window of that
//   length; once interval seconds have passed (exactly interval counts as passed) the next event
//   opens a new window. 0.0 (or anything not positive) means the default of 300 seconds.
// - burst: how many events of one key may pass within one window; the rest are suppressed and
//   counted. Fractions are dropped and anything below 1 means 1.
// - rateLimitArgs: non-zero makes the argument's text part of the key, so events for different
//   arguments are limited separately; zero limits every event of the handle together.
// Time is Kel::System::currentTime(), so virtual time drives the limit in tests.
//
// The format is a printf format with one "%s" for the argument. The explanation and the
// recommended action tell operators what to do about the event; the stand-in prints neither.
// Emitted messages go to the LogSink in force, or to standard error as one line
// "<name> (severity <n>): <message>".
class LogHandle {
 public:
  LogHandle(String name, int severity, String format, String explanation, String recommendedAction,
            double interval, double burst, unsigned char rateLimitArgs);
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;

  const String& name() const { return name_; }
  // The values in force, after the defaults above are applied.
  double interval() const { return interval_; }
  U32 burst() const { return burst_; }
  unsigned char rateLimitArgs() const { return rateLimitArgs_; }
  U32 idHash() const { return idHash_; }

  // The hash of the rate-limit key for an event with this argument text: the name, followed by
  // the text when rateLimitArgs() is set. Callers combine it with idHash().
  U32 keyHash(std::string_view argText) const;
  // The format with its "%s" replaced by argText.
  String message(std::string_view argText) const;

  // Whether an event with this key may be emitted now; a refusal is counted as suppressed.
  bool okToLog(U32 hash);
  // Emits unconditionally; count is how many events the message stands for and is shown when
  // above one.
  void log(U32 hash, const String& message, int count);

  U64 emitted() const { return emitted_.load(std::memory_order_relaxed); }
  U64 suppressed() const { return suppressed_.load(std::memory_order_relaxed); }

 private:
  struct Window {
    double start;
    U32 passed;
  };

  const String name_;
  const int severity_;
  const String format_;
  const double interval_;
  const U32 burst_;
  const unsigned char rateLimitArgs_;
  const U32 idHash_;

  std::mutex mutex_;
  std::unordered_map<U32, Window> windows_;
  std::atomic<U64> emitted_{0};
  std::atomic<U64> suppressed_{0};
};

}  // namespace Kel

#endif
