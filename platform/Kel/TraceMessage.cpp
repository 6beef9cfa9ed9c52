#include "Kel/TraceMessage.h"

#include "Kel/TraceHandle.h"

namespace Kel {

TraceMessage::TraceMessage() : stream_(&buffer_) {}

void TraceMessage::reset(TraceHandle& handle, int level) {
  handle_ = &handle;
  level_ = level;
  buffer_.clear();
  stream_.clear();
  stream_.flags(std::ios_base::dec | std::ios_base::skipws);
  stream_.width(0);
  stream_.precision(6);
  stream_.fill(' ');
}

void TraceMessage::trace(const char* file, int line, const char* function) {
  handle_->emit(level_, file, line, function, text());
}

}  // namespace Kel
