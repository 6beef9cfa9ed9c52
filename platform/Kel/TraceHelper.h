#ifndef KEL_TRACEHELPER_H
#define KEL_TRACEHELPER_H

#include "Kel/TraceHandle.h"
#include "Kel/TraceMessage.h"
#include "Kel/TraceScratch.h"

namespace Kel {

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

}  // namespace Kel

#endif
