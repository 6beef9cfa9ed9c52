#ifndef MORVIK_SIM_REPORT_H
#define MORVIK_SIM_REPORT_H

#include <string>
#include <vector>

#include "CopyComparison.h"
#include "CorruptionTracker.h"
#include "Freshness.h"
#include "Kel/Types.h"
#include "Records.h"
#include "Sampler.h"
#include "SimOptions.h"

namespace MorvikSim {

// doWrite's own timings, from the block timer on its call site, in nanoseconds.
struct LatencyFigures {
  U64 count = 0;
  double meanNs = 0.0;
  double minNs = 0.0;
  double p50Ns = 0.0;
  double p99Ns = 0.0;
  double maxNs = 0.0;
};

// Everything a run found out; the text, JSON, CSV and plot outputs are views of it.
struct Report {
  // The run.
  std::string vmid;
  U64 seed = 0;
  bool realTime = false;
  bool nosync = false;
  bool interrupted = false;
  double chassisSeconds = 0.0;
  double wallSeconds = 0.0;
  U64 passes = 0;
  std::vector<Feature> features;
  U32 totalBytes = 0;
  U32 chunkSizeStart = 0;
  U32 chunkSizeEnd = 0;
  double auditInterval = 0.0;
  double rate = 0.0;

  // The workload and the mirror.
  WorkloadCounts workload;
  U64 bytesMirrored = 0;
  U64 directBytes = 0;
  U64 chunkBytes = 0;
  U64 chunksCopied = 0;
  LatencyFigures doWrite;
  U64 pendingPeak = 0;
  DrainStats drains;
  std::vector<Resync> resyncs;

  // The audit and the faults; the checksum error log and its rate limit.
  AuditCounts audit;
  std::string eventLogName;
  U32 eventLogBurst = 0;
  double eventLogInterval = 0.0;
  CorruptionTracker::Summary corruptions;
  std::vector<Corruption> corruptionList;

  // The switchover, and the copies once the copier had come to rest.
  double switchoverAt = 0.0;
  CopyComparison atSwitchover;
  CopyComparison atRest;

  std::vector<TimelineEvent> events;
  std::vector<Sample> samples;
  FreshnessSummary freshness;

  // Why the run failed, one line each; empty when every check held.
  std::vector<std::string> failures;
  std::string note;
  bool passed() const { return failures.empty(); }
  const std::string& featureName(std::size_t i) const { return features.at(i).name; }
};

// Fills failures (and the note) from the figures.
void evaluateChecks(Report& report);

}  // namespace MorvikSim

#endif
