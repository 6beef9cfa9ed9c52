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

void formatLine(std::string& line, const String& handle, int level, const char* file,
                const char* function, std::string_view text) {
  line.clear();
  line.append(handle.view()).append("/").append(std::to_string(level)).append(" ");
  line.append(file ? file : "").append(" ").append(function ? function : "").append(": ");
  line.append(text).append("\n");
}

}  // namespace

TraceHandle::TraceHandle(String name, bool allLevelsOn)
    : name_(std::move(name)), allLevelsOn_(allLevelsOn) {
  reconfigure();
}

TraceHandle::~TraceHandle() {
  std::lock_guard<std::mutex> lock(outputMutex());
  closeFile();
}

void TraceHandle::levelIs(int level, bool on) {
  if (static_cast<unsigned>(level) >= kLevels) return;
  const U32 bit = U32{1} << level;
  if (on) {
    levels_.fetch_or(bit, std::memory_order_relaxed);
  } else {
    levels_.fetch_and(~bit, std::memory_order_relaxed);
  }
}

void TraceHandle::allLevelsIs(bool on) {
  levels_.store(on ? ~U32{0} : 0, std::memory_order_relaxed);
}

void TraceHandle::reconfigure() {
  const char* setting = std::getenv("KEL_TRACE");
  const U32 fromEnvironment = setting ? TraceSetting::levels(setting, name_.view()) : 0;
  levels_.store((allLevelsOn_ ? ~U32{0} : 0) | fromEnvironment, std::memory_order_relaxed);
  std::lock_guard<std::mutex> lock(outputMutex());
  closeFile();
  openFile();
}

void TraceHandle::openFile() {
  const char* path = std::getenv("KEL_TRACE_FILE");
  if (!path || !*path) return;
  fd_ = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

void TraceHandle::closeFile() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void TraceHandle::emit(int level, const char* file, int line, const char* function,
                       std::string_view text) {
  // Built outside the lock; the buffer keeps its capacity, so a steady trace allocates nothing.
  thread_local std::string formatted;
  formatLine(formatted, name_, level, file, function, text);
  std::lock_guard<std::mutex> lock(outputMutex());
  if (TraceSink* sink = traceSink()) {
    sink->entryIs({name_.stdString(), level, file ? file : "", line, function ? function : "",
                   std::string(text)});
    return;
  }
  writeAll(fd_ >= 0 ? fd_ : STDERR_FILENO, formatted);
}

}  // namespace Kel
