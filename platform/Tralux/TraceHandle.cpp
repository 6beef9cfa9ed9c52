#include "Tralux/TraceHandle.h"

#include <atomic>

namespace Tralux {

namespace {

struct ThreadFile {
  std::uint64_t handleSerial;
  TraceFile* file;
};

// A thread rarely touches more than one or two handles, so a short list beats a map.
thread_local std::vector<ThreadFile> threadFiles;

std::uint64_t nextHandleSerial() {
  static std::atomic<std::uint64_t> serial{0};
  return serial.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace

TraceHandle::TraceHandle() : serial_(nextHandleSerial()) {}

TraceFile* TraceHandle::mtTraceFile() {
  for (const ThreadFile& entry : threadFiles) {
    if (entry.handleSerial == serial_) return entry.file;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  TraceFile* file = files_.emplace_back(std::make_unique<TraceFile>()).get();
  threadFiles.push_back({serial_, file});
  return file;
}

TraceHandle& defaultTraluxHandle() {
  static TraceHandle handle;
  return handle;
}

}  // namespace Tralux
