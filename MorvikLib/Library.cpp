#include "MorvikLib/Library.h"

#include <mutex>

#include "Kel/Log.h"
#include "MorvikLib/Trace.h"
#include "MorvikLib/generic/GenericRegistration.h"

namespace MorvikLib {

namespace detail {

std::atomic<Kel::TraceHandle*> defaultTraceHandle{nullptr};

Kel::TraceHandle& createDefaultTraceHandle() {
  static std::once_flag once;
  std::call_once(once, [] {
    defaultTraceHandle.store(new Kel::TraceHandle(Kel::String("MorvikLib"), false),
                             std::memory_order_release);
  });
  if (Kel::TraceHandle* handle = defaultTraceHandle.load(std::memory_order_acquire)) return *handle;
  // Traced after the library was unloaded (a static destructor, say): say nothing.
  static Kel::TraceHandle* silent = [] {
    auto* handle = new Kel::TraceHandle(Kel::String("MorvikLib"), false);
    handle->allLevelsIs(false);
    return handle;
  }();
  return *silent;
}

}  // namespace detail

namespace {

Kel::LogHandle* checksumErrorLogHandle = nullptr;

// All load-time work sits in this one initialiser so that its order is fixed.
__attribute__((constructor)) void libraryLoaded() {
  registerGenericTypes();
  checksumErrorLogHandle = new Kel::LogHandle(
      Kel::String("SSO_DATA_CHECKSUM_ERROR"), 6,
      Kel::String("SSO hardware shadow memory on standby does not match active for %s"),
      Kel::String("SSO software will take corrective action "),
      Kel::String(Kel::CallSupportIfPersists), 0.0, 1.0, 0);
}

__attribute__((destructor)) void libraryUnloaded() {
  unregisterGenericTypes();
  delete checksumErrorLogHandle;
  checksumErrorLogHandle = nullptr;
  delete detail::defaultTraceHandle.exchange(nullptr);
}

}  // namespace

Kel::LogHandle& checksumErrorLog() {
  return *checksumErrorLogHandle;
}

}  // namespace MorvikLib
