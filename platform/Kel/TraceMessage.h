#ifndef KEL_TRACEMESSAGE_H
#define KEL_TRACEMESSAGE_H

#include <ostream>
#include <string_view>

#include "Kel/TraceBuffer.h"

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
  std::string_view text() const { return buffer_.text(); }
  TraceHandle& handle() const { return *handle_; }
  int level() const { return level_; }

  void trace(const char* file, int line, const char* function);

 private:
  friend class TraceHelper;

  TraceMessage();
  ~TraceMessage() = default;
  // Starts a new line with the stream in its default state: a previous message that switched to
  // hex, or set a width, must not leak into this one.
  void reset(TraceHandle& handle, int level);

  TraceBuffer buffer_;
  std::ostream stream_;
  TraceHandle* handle_ = nullptr;
  int level_ = 0;
  // Whether this is the calling thread's reusable message, which is handed out once at a time.
  bool threadOwned_ = false;
  bool inUse_ = false;
};

}  // namespace Kel

#endif
