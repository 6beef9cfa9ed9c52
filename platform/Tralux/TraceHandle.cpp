#include "Tralux/TraceHandle.h"

#include <atomic>
#include <thread>
#include <utility>

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

TraceHandle::TraceHandle(std::string name) : name_(std::move(name)), serial_(nextHandleSerial()) {}

TraceHandle::~TraceHandle() = default;

TraceFile* TraceHandle::mtTraceFile() {
  for (const ThreadFile& entry : threadFiles) {
    if (entry.handleSerial == serial_) return entry.file;
  }
  TraceFile* file = createTraceFile();
  threadFiles.push_back({serial_, file});
  return file;
}

std::size_t TraceHandle::traceFileCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return files_.size();
}

TraceFile* TraceHandle::createTraceFile() {
  std::lock_guard<std::mutex> lock(mutex_);
  files_.push_back(std::make_unique<TraceFile>(*this, std::this_thread::get_id()));
  return files_.back().get();
}

TraceHandle& defaultTraluxHandle() {
  static TraceHandle handle("default");
  return handle;
}

}  // namespace Tralux
