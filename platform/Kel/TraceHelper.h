#ifndef KEL_TRACEHELPER_H
#define KEL_TRACEHELPER_H

// The trace message of one trace line, and how the framework hands it out (createIfEnabled) and
// takes it back (EnsureTraceHelperIsDestroyed).

#include <ostream>
#include <sstream>

#include "Kel/TraceHandle.h"

namespace Kel {

// One trace line being written: fragments go into stream(), then trace() emits the text. Only
// TraceHelper makes and recycles these.
class TraceMessage {
 public:
  TraceMessage(const TraceMessage&) = delete;
  TraceMessage& operator=(const TraceMessage&) = delete;

  std::ostream& stream() { return stream_; }
  void trace(const char* file, int line, const char* function);

 private:
  friend class TraceHelper;

  TraceMessage() = default;
  ~TraceMessage() = default;
  // Starts a new line with the stream in its default state: a previous message that switched to
  // hex, or set a width, must not leak into this one.
  void reset(TraceHandle& handle, int level);

  std::ostringstream stream_;
  TraceHandle* handle_ = nullptr;
  int level_ = 0;
  // Whether the calling thread's reusable message is handed out; it is, once at a time.
  bool inUse_ = false;
};

// Room for one trace message on the caller's stack. Each thread reuses one message of its own;
// a trace written while that one is busy (a streamed operand that traces itself) is built here
// instead, so nesting needs no heap block for the message object. Left uninitialised on purpose: a
// disabled trace must not pay for clearing it.
class TraceScratch {
 public:
  TraceScratch() {}
  TraceScratch(const TraceScratch&) = delete;
  TraceScratch& operator=(const TraceScratch&) = delete;

 private:
  friend class TraceHelper;
  alignas(TraceMessage) unsigned char storage_[sizeof(TraceMessage)];
};

// Hands out trace messages only for enabled levels. A disabled level costs the inline test and
// nothing else: no formatting, no allocation.
class TraceHelper {
 public:
  static TraceMessage* createIfEnabled(TraceHandle& handle, int level, TraceScratch& scratch) {
    return handle.enabled(level) ? create(handle, level, scratch) : nullptr;
  }
  // Gives a message from createIfEnabled back; its text is discarded.
  static void destroy(TraceMessage* message);

 private:
  static TraceMessage* create(TraceHandle& handle, int level, TraceScratch& scratch);
  // The calling thread's reusable message.
  static TraceMessage& threadMessage();
};

// Gives a trace message back when the scope ends, also when formatting an operand throws.
class EnsureTraceHelperIsDestroyed {
 public:
  explicit EnsureTraceHelperIsDestroyed(TraceMessage* message) : message_(message) {}
  ~EnsureTraceHelperIsDestroyed() { TraceHelper::destroy(message_); }
  EnsureTraceHelperIsDestroyed(const EnsureTraceHelperIsDestroyed&) = delete;
  EnsureTraceHelperIsDestroyed& operator=(const EnsureTraceHelperIsDestroyed&) = delete;

  TraceMessage* message() const { return message_; }

 private:
  TraceMessage* message_;
};

}  // namespace Kel

#endif
