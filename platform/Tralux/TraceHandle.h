// A named trace facility that gives every thread its own trace file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Tralux/TraceFile.h"

namespace Tralux {

class TraceHandle {
 public:
  explicit TraceHandle(std::string name);
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;
  ~TraceHandle();

  // The calling thread's file, created on its first call. The handle owns the files, so a file
  // outlives its thread: descriptors declared to it may still be read after the thread is gone.
  TraceFile* mtTraceFile();

  const std::string& name() const { return name_; }
  std::size_t traceFileCount() const;

 private:
  TraceFile* createTraceFile();

  const std::string name_;
  // Threads find their file by this number rather than by the handle's address, so a later
  // handle built at the same address never picks up a dead handle's file.
  const std::uint64_t serial_;
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<TraceFile>> files_;
};

// The process's default handle, built on first use.
TraceHandle& defaultTraluxHandle();

}  // namespace Tralux
