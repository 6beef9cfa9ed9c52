#include "Tralux/TraceHandle.h"

namespace Tralux {

TraceFile* TraceHandle::mtTraceFile() {
  thread_local TraceFile file;
  return &file;
}

TraceHandle& defaultTraluxHandle() {
  static TraceHandle handle;
  return handle;
}

}  // namespace Tralux
