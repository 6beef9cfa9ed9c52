#ifndef MORVIKLIB_TRACE_H
#define MORVIKLIB_TRACE_H

#include <atomic>

#include "Kel/Hex.h"
#include "Kel/Trace.h"
#include "Kel/TraceHandle.h"

namespace MorvikLib {

namespace detail {
extern std::atomic<Kel::TraceHandle*> defaultTraceHandle;
Kel::TraceHandle& createDefaultTraceHandle();
}  // namespace detail

// The library's one trace handle, "MorvikLib", created on first use from whichever thread traces
// first.
inline Kel::TraceHandle& traceHandle() {
  Kel::TraceHandle* handle = detail::defaultTraceHandle.load(std::memory_order_acquire);
  return handle ? *handle : detail::createDefaultTraceHandle();
}

// Whether a level is on: a path that traces several times tests once and passes the answer on.
inline bool tracing(int level) {
  return traceHandle().enabled(level);
}

}  // namespace MorvikLib

// Every library trace names the source "MorvikLib" and the short function name.
#define MORVIK_TRACE(level, function) \
  KEL_TRACE(::MorvikLib::traceHandle(), level, "MorvikLib", function)

#endif
