#ifndef KEL_TRACEMESSAGE_H
#define KEL_TRACEMESSAGE_H

#include <ostream>
#include <sstream>

namespace Kel {

class TraceHandle;

// One trace line being written: fragments go into stream(), then trace() emits the text. Only
// TraceHelper makes and recycles these; callers see them between createIfEnabled() and
// EnsureTraceHelperIsDestroyed.
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

}  // namespace Kel

#endif
