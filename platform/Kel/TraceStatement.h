#ifndef KEL_TRACESTATEMENT_H
#define KEL_TRACESTATEMENT_H

#include <ostream>
#include <utility>

#include "Kel/TraceHelper.h"

namespace Kel {

// The state of one KEL_TRACE statement. The macro runs its streamed operands as the body of a
// loop that runs once when the level is enabled and not at all otherwise.
class TraceStatement {
 public:
  TraceStatement(TraceHandle& handle, int level)
      : message_(TraceHelper::createIfEnabled(handle, level, scratch_)) {}
  // A message whose operands threw is dropped without being emitted. The test keeps a disabled
  // statement, the common case on hot paths, free of an out-of-line call.
  ~TraceStatement() {
    if (message_) EnsureTraceHelperIsDestroyed drop(message_);
  }
  TraceStatement(const TraceStatement&) = delete;
  TraceStatement& operator=(const TraceStatement&) = delete;

  bool active() const { return message_ != nullptr; }
  std::ostream& stream() { return message_->stream(); }
  void emit(const char* file, int line, const char* function) {
    EnsureTraceHelperIsDestroyed done(std::exchange(message_, nullptr));
    done.message()->trace(file, line, function);
  }

 private:
  TraceScratch scratch_;
  TraceMessage* message_;
};

}  // namespace Kel

#endif
