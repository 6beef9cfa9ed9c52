#include "Kel/TraceMessage.h"

#include <string>
#include <utility>

#include "Kel/TraceHandle.h"

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

}  // namespace Kel
