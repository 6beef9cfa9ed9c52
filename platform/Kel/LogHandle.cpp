#include "Kel/LogHandle.h"

#include <unistd.h>

#include <cmath>
#include <string>

#include "Kel/Sink.h"
#include "Kel/System.h"

namespace Kel {

namespace {

// Windows of keys that no longer log are dropped once this many pile up, so per-argument keys
// cannot grow the table without bound.
constexpr std::size_t kWindowsBeforeCleanup = 1024;

double intervalInForce(double interval) {
  return interval > 0.0 ? interval : LogHandle::kDefaultInterval;
}

U32 burstInForce(double burst) {
  if (!(burst >= 1.0)) return 1;
  if (burst >= 4294967295.0) return 0xffffffffu;
  return static_cast<U32>(std::floor(burst));
}

}  // namespace

LogHandle::LogHandle(String name, int severity, String format, String explanation,
                     String recommendedAction, double interval, double burst,
                     unsigned char rateLimitArgs)
    : name_(std::move(name)),
      severity_(severity),
      format_(std::move(format)),
      explanation_(std::move(explanation)),
      recommendedAction_(std::move(recommendedAction)),
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
  const std::string_view format = format_.view();
  std::string result;
  result.reserve(format.size() + argText.size());
  for (std::size_t i = 0; i < format.size(); ++i) {
    const bool directive = format[i] == '%' && i + 1 < format.size();
    if (directive && format[i + 1] == 's') {
      result.append(argText);
      ++i;
    } else if (directive && format[i + 1] == '%') {
      result.push_back('%');
      ++i;
    } else {
      result.push_back(format[i]);
    }
  }
  return String(result);
}

bool LogHandle::okToLog(U32 hash) {
  const double now = System::currentTime();
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = windows_.find(hash);
  // A window that starts in the future belongs to a clock that was set back (a restarted virtual
  // clock): it is closed, not open for ever.
  if (found == windows_.end() || now >= found->second.start + interval_ ||
      now < found->second.start) {
    if (found == windows_.end() && windows_.size() >= kWindowsBeforeCleanup) {
      forgetClosedWindows(now);
    }
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

void LogHandle::forgetClosedWindows(double now) {
  std::erase_if(windows_, [&](const auto& member) {
    return now >= member.second.start + interval_ || now < member.second.start;
  });
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
