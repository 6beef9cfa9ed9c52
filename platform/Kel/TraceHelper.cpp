#include "Kel/TraceHelper.h"

#include <new>

namespace Kel {

TraceMessage& TraceHelper::threadMessage() {
  thread_local TraceMessage message;
  return message;
}

TraceMessage* TraceHelper::create(TraceHandle& handle, int level, TraceScratch& scratch) {
  TraceMessage* message = &threadMessage();
  if (message->inUse_) message = new (scratch.storage()) TraceMessage;
  message->inUse_ = true;
  message->reset(handle, level);
  return message;
}

void TraceHelper::destroy(TraceMessage* message) {
  if (message == &threadMessage()) {
    message->inUse_ = false;
  } else if (message) {
    message->~TraceMessage();
  }
}

}  // namespace Kel
