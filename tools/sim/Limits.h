#ifndef MORVIK_SIM_LIMITS_H
#define MORVIK_SIM_LIMITS_H

#include <cstddef>

#include "Kel/Types.h"

// The range of every option, in one place for the checks and for --help. They keep a run's memory
// and its time bounded whatever the options: a virtual-time run does at most kMaxOperations
// operations and kMaxAuditTicks audit ticks, and keeps at most kMaxSamples timeline samples.
namespace MorvikSim::limits {

constexpr double kMinDuration = 1.0;
constexpr double kMaxDuration = 24 * 3600.0;
constexpr double kMinAuditInterval = 0.01;
constexpr double kMaxAuditInterval = 3600.0;
constexpr double kMaxAuditTicks = 10000.0;
constexpr double kMaxRate = 100000.0;
constexpr double kMaxOperations = 1e8;
constexpr double kMaxWeight = 1e6;
constexpr U64 kMaxSmallWrite = 64 * 1024;
constexpr U64 kMaxCorruptions = 1000;
constexpr std::size_t kMaxFaults = 1000;
constexpr std::size_t kMaxFeatures = 64;
constexpr std::size_t kMaxChunkSizes = 8;
constexpr std::size_t kMaxNameBytes = 64;
constexpr std::size_t kMaxVmidBytes = 200;
// How current the standby is gets measured at every sample: at least this many per run.
constexpr double kMinSamples = 720.0;
constexpr double kMaxSamples = 100000.0;
constexpr double kMinSampleInterval = 0.001;
// The default schedule spreads its faults over the first 70% of the run and lets one standby stay
// silent for 6.5 audit intervals; below this many intervals they would not fit.
constexpr double kDefaultScheduleIntervals = 15.0;

}  // namespace MorvikSim::limits

#endif
