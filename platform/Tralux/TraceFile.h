// One thread's trace file of a handle: the place a thread's message descriptors are declared to.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace Tralux {

class TraceHandle;

class TraceFile {
 public:
  TraceFile(const TraceHandle& handle, std::thread::id owner);
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  const TraceHandle& handle() const { return handle_; }
  std::thread::id owner() const { return owner_; }

  // Descriptors are declared once per call site, on the cold path; the count lets a reader see
  // which thread's file a call site ended up in.
  void messageDeclared() { declaredMessages_.fetch_add(1, std::memory_order_relaxed); }
  std::uint32_t declaredMessages() const {
    return declaredMessages_.load(std::memory_order_relaxed);
  }

 private:
  const TraceHandle& handle_;
  const std::thread::id owner_;
  std::atomic<std::uint32_t> declaredMessages_{0};
};

}  // namespace Tralux
