#ifndef KEL_TRACESCRATCH_H
#define KEL_TRACESCRATCH_H

#include "Kel/TraceMessage.h"

namespace Kel {

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
  void* storage() { return storage_; }

  alignas(TraceMessage) unsigned char storage_[sizeof(TraceMessage)];
};

}  // namespace Kel

#endif
