#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>

#include "Fault.h"
#include "Layout.h"
#include "Options.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

// The default schedule spreads its faults over the first 70% of the run and lets one standby stay
// silent for 6.5 audit intervals; below this many intervals they would not fit.
constexpr double kDefaultScheduleIntervals = 15.0;

std::vector<U32> chunkSizesUsed(const SimOptions& options) {
  std::vector<U32> sizes = options.chunkSizes;
  for (const Fault& f : options.faults) {
    if (f.kind == Fault::Kind::chunk && f.chunkSize != 0) sizes.push_back(f.chunkSize);
  }
  return sizes;
}

void checkTimes(const SimOptions& o) {
  if (o.duration <= 0.0) throw UsageError("--duration must be more than 0 s");
  if (o.switchoverAt && (*o.switchoverAt <= 0.0 || *o.switchoverAt > o.duration)) {
    throw UsageError("--switchover-at must lie within the run (0, " + formatSeconds(o.duration) +
                     "]");
  }
  if (o.auditInterval < 0.001) throw UsageError("--audit-interval must be at least 1 ms");
  if (o.sampleInterval != 0.0 &&
      (o.sampleInterval < 0.01 || o.switchoverTime() / o.sampleInterval > 1e6)) {
    throw UsageError("--sample must be at least 10 ms and give at most a million samples");
  }
}

void checkWorkload(const SimOptions& o, const Layout& layout) {
  if (o.rate > 1e6) throw UsageError("--rate above 1000000 operations per second");
  if (o.locality > 1.0) throw UsageError("--locality is a share between 0 and 1");
  if (o.rate > 0.0 && o.mix.total() <= 0.0)
    throw UsageError("--mix gives every operation weight 0");
  U32 smallest = layout.size(0);
  for (std::size_t i = 1; i < layout.features(); ++i) smallest = std::min(smallest, layout.size(i));
  if (o.smallMax == 0 || o.smallMax > smallest) {
    throw UsageError("--small-max must lie between 1 and the smallest feature's size (" +
                     std::to_string(smallest) + ")");
  }
}

void checkFault(const Fault& f, const SimOptions& o, const Layout& layout) {
  const std::string what = std::string(kindName(f.kind)) + " fault at " + formatSeconds(f.at);
  const double end = o.switchoverTime();
  if (f.at >= end) throw UsageError(what + " comes after the switchover at " + formatSeconds(end));
  std::size_t feature = layout.features();
  if (!f.feature.empty()) {
    feature = layout.find(f.feature);
    if (feature == layout.features()) throw UsageError(what + ": no feature '" + f.feature + "'");
  }
  if (f.offset) {
    if (feature == layout.features()) throw UsageError(what + ": an offset needs a feature");
    if (*f.offset >= layout.size(feature)) {
      throw UsageError(what + ": offset " + std::to_string(*f.offset) + " is outside '" +
                       f.feature + "'");
    }
  }
  // The standby's memory must be back before the switchover, or there is no copy to compare.
  if (f.kind == Fault::Kind::away &&
      f.at + (f.duration > 0 ? f.duration : 2 * o.auditInterval) >= end) {
    throw UsageError(what + " lasts past the switchover at " + formatSeconds(end));
  }
}

// Found out before the run rather than after it.
void checkWritable(const std::string& path) {
  if (path == "-") throw UsageError("--csv and --plot write files, not standard output");
  const auto slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    throw UsageError("cannot write '" + path + "': no directory '" + dir + "'");
  }
  if (::access(dir.c_str(), W_OK) != 0) {
    throw UsageError("cannot write '" + path + "': directory '" + dir + "' is not writable");
  }
}

}  // namespace

void validateOptions(const SimOptions& options) {
  checkTimes(options);
  const Layout layout(options.features, chunkSizesUsed(options));
  checkWorkload(options, layout);
  for (const Fault& f : options.faults) checkFault(f, options, layout);
  if (options.usesDefaultFaults() &&
      options.switchoverTime() < kDefaultScheduleIntervals * options.auditInterval) {
    throw UsageError("the default faults need a run of at least " +
                     formatSeconds(kDefaultScheduleIntervals * options.auditInterval) +
                     " with audits every " + formatSeconds(options.auditInterval) +
                     "; lengthen --duration, shorten --audit-interval or give --faults none");
  }
  for (const std::string* path : {&options.csvFile, &options.plotFile}) {
    if (!path->empty()) checkWritable(*path);
  }
}

}  // namespace MorvikSim
