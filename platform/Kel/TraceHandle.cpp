#include "Kel/TraceHandle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "Kel/Sink.h"
#include "Kel/TraceSetting.h"

namespace Kel {

namespace {

U32 levelsFromEnvironment(std::string_view name) {
  const char* setting = std::getenv("KEL_TRACE");
  return setting ? traceLevels(setting, name) : 0;
}

int openTraceFile() {
  const char* path = std::getenv("KEL_TRACE_FILE");
  if (!path || !*path) return -1;
  return ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

}  // namespace

TraceHandle::TraceHandle(String name, bool allLevelsOn)
    : name_(std::move(name)),
      levels_((allLevelsOn ? ~U32{0} : 0) | levelsFromEnvironment(name_.view())),
      fd_(openTraceFile()) {}

TraceHandle::~TraceHandle() {
  if (fd_ >= 0) ::close(fd_);
}

void TraceHandle::emit(int level, const char* file, int line, const char* function,
                       std::string_view text) {
  file = file ? file : "";
  function = function ? function : "";
  // Built outside the lock; the buffer keeps its capacity, so a steady trace allocates nothing.
  thread_local std::string formatted;
  formatted.assign(name_.view()).append("/").append(std::to_string(level)).append(" ");
  formatted.append(file).append(" ").append(function).append(": ").append(text).append("\n");
  std::lock_guard<std::mutex> lock(outputMutex());
  if (TraceSink* sink = traceSink()) {
    sink->entryIs({name_.stdString(), level, file, line, function, std::string(text)});
    return;
  }
  writeAll(fd_ >= 0 ? fd_ : STDERR_FILENO, formatted);
}

}  // namespace Kel
