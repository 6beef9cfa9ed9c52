#ifndef KEL_ENSURETRACEHELPERISDESTROYED_H
#define KEL_ENSURETRACEHELPERISDESTROYED_H

#include "Kel/TraceHelper.h"

namespace Kel {

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
