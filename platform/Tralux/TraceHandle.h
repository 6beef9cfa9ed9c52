// A trace facility that gives every thread its own trace file.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Tralux {

// One thread's trace file of a handle: what that thread's call sites are declared to. The
// stand-in writes no binary trace, so a file has no content.
class TraceFile {};

class TraceHandle {
 public:
  TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  // The calling thread's file, created on its first call and the same on every later one. The
  // handle owns the files, so a descriptor never points at the file of a thread that is gone.
  TraceFile* mtTraceFile();

 private:
  // Threads find their file by this number rather than by the handle's address, so a later
  // handle built at the same address never picks up a dead handle's file.
  const std::uint64_t serial_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<TraceFile>> files_;
};

// The process's default handle, built on first use from any thread.
TraceHandle& defaultTraluxHandle();

}  // namespace Tralux
