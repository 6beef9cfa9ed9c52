#include "Kel/LogHandle.h"

#include <unistd.h>

#include <cmath>
#include <string>

#include "Kel/Sink.h"
#include "Kel/System.h"

namespace Kel {

namespace {

double intervalInForce(double interval) {
  return interval > 0.0 ? interval : 300.0;
}

U32 burstInForce(double burst) {
  if (!(burst >= 1.0)) return 1;
  if (burst >= 4294967295.0) return 0xffffffffu;
  return static_cast<U32>(std::floor(burst));
}

}  // namespace

LogHandle::LogHandle(String name, int severity, String format, String, String, double interval,
                     double burst, unsigned char rateLimitArgs)
    : name_(std::move(name)),
      severity_(severity),
      format_(std::move(format)),
      interval_(intervalInForce(interval)),
      burst_(burstInForce(burst)),
      rateLimitArgs_(rateLimitArgs),
      idHash_(name_.hash()) {}

U32 LogHandle::keyHash(std::string_view argText) const {
  if (!rateLimitArgs_) return name_.hash();
  std::string key(name_.view());
  key.append(argText);
  return String(key).hash();
}

String LogHandle::message(std::string_view argText) const {
  return format(format_.charPtr(), std::string(argText).c_str());
}

bool LogHandle::okToLog(U32 hash) {
  const double now = System::currentTime();
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = windows_.find(hash);
  // A window that starts in the future belongs to a clock that was set back (a restarted virtual
  // clock): it is closed, not open for ever.
  if (found == windows_.end() || now >= found->second.start + interval_ ||
      now < found->second.start) {
    windows_[hash] = Window{now, 1};
    return true;
  }
  if (found->second.passed < burst_) {
    ++found->second.passed;
    return true;
  }
  suppressed_.fetch_add(1, std::memory_order_relaxed);
  return false;
}

void LogHandle::log(U32 hash, const String& message, int count) {
  emitted_.fetch_add(1, std::memory_order_relaxed);
  std::lock_guard<std::mutex> lock(outputMutex());
  if (LogSink* sink = logSink()) {
    sink->entryIs({name_.stdString(), severity_, message.stdString(), count, hash});
    return;
  }
  std::string line = name_.stdString() + " (severity " + std::to_string(severity_) + "): ";
  line.append(message.view());
  if (count > 1) line += " (" + std::to_string(count) + " times)";
  writeAll(STDERR_FILENO, line + '\n');
}

}  // namespace Kel
