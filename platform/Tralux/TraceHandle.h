// A trace facility that gives every thread its own trace file.
#pragma once

namespace Tralux {

// One thread's trace file: what that thread's call sites are declared to. The stand-in writes no
// binary trace, so a file has no content.
class TraceFile {};

class TraceHandle {
 public:
  // The calling thread's file, the same on every call from that thread. The process has one
  // handle (defaultTraluxHandle), so a thread's file needs no key of the handle's.
  TraceFile* mtTraceFile();
};

// The process's default handle, built on first use from any thread.
TraceHandle& defaultTraluxHandle();

}  // namespace Tralux
