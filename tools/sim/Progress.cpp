#include "Progress.h"

#include <unistd.h>

#include <string>

#include "Monitor.h"
#include "Units.h"

namespace MorvikSim {

namespace {
constexpr auto kRefresh = std::chrono::milliseconds(100);
}

Progress::Progress(bool wanted, double endSeconds, std::FILE* out)
    : enabled_(wanted && ::isatty(::fileno(out)) == 1), end_(endSeconds), out_(out) {}

void Progress::update(const Monitor& monitor) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (shown_ && now - last_ < kRefresh) return;
  last_ = now;
  shown_ = true;
  const AuditCounts audit = monitor.audit();
  std::fprintf(out_,
               "\r\033[K%s / %s  writes %llu  mirrored %s  pending %llu chunks  audits %llu  "
               "repairs %llu",
               formatSeconds(monitor.now()).c_str(), formatSeconds(end_).c_str(),
               static_cast<unsigned long long>(monitor.workload().operations()),
               formatBytes(static_cast<double>(monitor.bytesMirrored())).c_str(),
               static_cast<unsigned long long>(monitor.pending()),
               static_cast<unsigned long long>(audit.cycles),
               static_cast<unsigned long long>(audit.repairs));
  std::fflush(out_);
}

void Progress::finish() {
  if (!shown_) return;
  std::fputs("\r\033[K", out_);
  std::fflush(out_);
  shown_ = false;
}

}  // namespace MorvikSim
