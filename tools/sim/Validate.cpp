#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "Fault.h"
#include "Layout.h"
#include "Limits.h"
#include "Options.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

using namespace limits;

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string fromTo(double min, double max) {
  return "from " + formatSeconds(min) + " to " + formatSeconds(max);
}

// Each bound keeps the run's time or memory bounded; see Limits.h.
void checkTimes(const SimOptions& o) {
  const double run = o.switchoverTime();
  if (o.switchoverAt && *o.switchoverAt > o.duration) {
    refuse("--switchover-at", formatSeconds(*o.switchoverAt),
           "a time within the run, " + fromTo(kMinDuration, o.duration));
  }
  if (run / o.auditInterval > kMaxAuditTicks) {
    refuse("--audit-interval", formatSeconds(o.auditInterval),
           "at least " + formatSeconds(run / kMaxAuditTicks) + " for a run of " +
               formatSeconds(run) + " (at most 10000 audit ticks)");
  }
  if (o.sampleInterval != 0.0 &&
      (o.sampleInterval < std::max(kMinSampleInterval, run / kMaxSamples) ||
       o.sampleInterval > run / kMinSamples)) {
    refuse("--sample", formatSeconds(o.sampleInterval),
           "an interval " +
               fromTo(std::max(kMinSampleInterval, run / kMaxSamples), run / kMinSamples) +
               " for a run of " + formatSeconds(run) + " (720 to 100000 samples)");
  }
  if (o.rate * run > kMaxOperations) {
    refuse("--rate", number(o.rate),
           "at most " + number(kMaxOperations / run) + " per second for a run of " +
               formatSeconds(run) + " (at most 100000000 operations)");
  }
}

void checkWorkload(const SimOptions& o, const Layout& layout) {
  if (o.rate > 0.0 && o.mix.total() <= 0.0) {
    refuse("--mix", "small=0,table=0,set=0,copy=0", "some operation of weight above 0");
  }
  U32 smallest = layout.size(0);
  for (std::size_t i = 1; i < layout.features(); ++i) smallest = std::min(smallest, layout.size(i));
  if (o.smallMax > smallest) {
    refuse("--small-max", std::to_string(o.smallMax),
           "at most the smallest feature's size, " + std::to_string(smallest));
  }
}

void checkFault(const Fault& f, const SimOptions& o, const Layout& layout) {
  const std::string what = std::string(kindName(f.kind)) + "@" + formatSeconds(f.at);
  const double end = o.switchoverTime();
  if (f.at >= end) refuse("--fault", what, "a time before the switchover at " + formatSeconds(end));
  std::size_t feature = layout.features();
  if (!f.feature.empty()) {
    feature = layout.find(f.feature);
    if (feature == layout.features())
      refuse("--fault " + what + " feature", f.feature, "a feature");
  }
  if (f.offset) {
    if (feature == layout.features()) refuse("--fault", what, "a feature= with the offset");
    if (*f.offset >= layout.size(feature)) {
      refuse("--fault " + what + " offset", std::to_string(*f.offset),
             "an offset below " + std::to_string(layout.size(feature)) + ", the size of '" +
                 f.feature + "'");
    }
  }
  // The standby's memory must be back before the switchover, or there is no copy to compare.
  const double back = f.at + (f.duration > 0 ? f.duration : 2 * o.auditInterval);
  if (f.kind == Fault::Kind::away && back >= end) {
    refuse("--fault", what + " for " + formatSeconds(back - f.at),
           "the standby's memory back before the switchover at " + formatSeconds(end));
  }
}

bool printable(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

void checkMachine(const SimOptions& o) {
  const char* inherited = std::getenv("SIMULATION_VMID");
  const bool fromEnvironment = o.vmid.empty() && inherited != nullptr && *inherited != '\0';
  const std::string vmid = fromEnvironment ? inherited : o.vmid;
  if (vmid.empty() && !fromEnvironment) return;
  if (vmid.empty() || vmid.size() > kMaxVmidBytes || !printable(vmid)) {
    refuse(fromEnvironment ? "SIMULATION_VMID" : "--vmid", vmid,
           "1 to 200 printable characters, no blanks");
  }
}

// Found out before the run rather than after it, by opening the file for writing (without
// truncating it); a file made for the test is removed again. The path also goes into the plotting
// script, which cannot hold control characters.
void checkWritable(const char* option, const std::string& path) {
  if (path.empty() || path == "-") refuse(option, path, "a file name");
  if (!std::all_of(path.begin(), path.end(), [](char c) { return c >= 0x20 && c != 0x7f; })) {
    refuse(option, path, "a file name without control characters");
  }
  struct stat st;
  const bool existed = ::stat(path.c_str(), &st) == 0;
  if (existed && S_ISDIR(st.st_mode)) refuse(option, path, "a file, not a directory");
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) {
    refuse(option, path, std::string("a file this user can write (") + std::strerror(errno) + ")");
  }
  ::close(fd);
  if (!existed) ::unlink(path.c_str());
}

}  // namespace

void validateOptions(const SimOptions& options) {
  checkTimes(options);
  const Layout layout(options.features, options.chunkSizesUsed());
  checkWorkload(options, layout);
  for (const Fault& f : options.faults) checkFault(f, options, layout);
  const double shortest = kDefaultScheduleIntervals * options.auditInterval;
  if (options.usesDefaultFaults() && options.switchoverTime() < shortest) {
    refuse("--duration", formatSeconds(options.switchoverTime()),
           "at least " + formatSeconds(shortest) + " for the default faults with audits every " +
               formatSeconds(options.auditInterval) +
               " (or a shorter --audit-interval, or --faults none)");
  }
  checkMachine(options);
  for (const auto& [option, path] :
       {std::pair{"--csv", &options.csvFile}, std::pair{"--plot", &options.plotFile}}) {
    if (!path->empty()) checkWritable(option, *path);
  }
  if (!options.csvFile.empty() && options.csvFile == options.plotFile) {
    refuse("--plot", options.plotFile, "another file than --csv");
  }
}

}  // namespace MorvikSim
