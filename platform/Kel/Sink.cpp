#include "Kel/Sink.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Kel {

namespace {
// Guarded by the output lock.
TraceSink* traceSinkInForce = nullptr;
LogSink* logSinkInForce = nullptr;
}  // namespace

std::mutex& outputMutex() {
  // Never destroyed: static destructors may still trace or log while the process exits.
  static auto* mutex = new std::mutex;
  return *mutex;
}

TraceSink* exchangeSink(TraceSink* sink) {
  std::lock_guard<std::mutex> lock(outputMutex());
  return std::exchange(traceSinkInForce, sink);
}

LogSink* exchangeSink(LogSink* sink) {
  std::lock_guard<std::mutex> lock(outputMutex());
  return std::exchange(logSinkInForce, sink);
}

TraceSink* traceSink() {
  return traceSinkInForce;
}

LogSink* logSink() {
  return logSinkInForce;
}

void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace Kel
