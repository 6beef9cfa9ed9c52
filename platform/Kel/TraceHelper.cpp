#include "Kel/TraceHelper.h"

#include <new>
#include <string>
#include <utility>

namespace Kel {

void TraceMessage::reset(TraceHandle& handle, int level) {
  handle_ = &handle;
  level_ = level;
  // The text is taken out and put back empty, so the buffer keeps its capacity: a warmed-up
  // thread formats traces without allocating.
  std::string text = std::move(stream_).str();
  text.clear();
  stream_.str(std::move(text));
  stream_.clear();
  stream_.flags(std::ios_base::dec | std::ios_base::skipws);
  stream_.width(0);
  stream_.precision(6);
  stream_.fill(' ');
}

void TraceMessage::trace(const char* file, int line, const char* function) {
  handle_->emit(level_, file, line, function, stream_.view());
}

TraceMessage& TraceHelper::threadMessage() {
  thread_local TraceMessage message;
  return message;
}

TraceMessage* TraceHelper::create(TraceHandle& handle, int level, TraceScratch& scratch) {
  TraceMessage* message = &threadMessage();
  if (message->inUse_) message = new (scratch.storage_) TraceMessage;
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
