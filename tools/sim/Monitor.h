#ifndef MORVIK_SIM_MONITOR_H
#define MORVIK_SIM_MONITOR_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "CorruptionTracker.h"
#include "Freshness.h"
#include "Kel/Types.h"
#include "Records.h"

namespace MorvikSim {

// Collects what the run does, from the watchers on the library's entities and records, from the
// workload and from the fault player: the copier's pending chunks and what it copied, the audit's
// cycles and repairs, resyncs from start to finish, and the timeline's events. Audit repairs and
// resyncs are also handed on to the corruption tracker, which decides what healed what.
class Monitor {
 public:
  Monitor(std::vector<std::string> featureNames, CorruptionTracker& tracker,
          FreshnessTracker& freshness);

  // Chassis time is counted from here.
  void startIs(double t0);
  double now() const;

  // The copier: its to-do list of a feature changed by delta chunks, by deleting members (a
  // resync's doSync clearing the list) or otherwise (chunks marked, or copied).
  void pendingChanged(std::size_t feature, long delta, bool deleted);
  void chunkCopied(std::size_t feature, U64 offset, U32 chunkSize);
  // The workload: an operation that modified [offset, offset + size) of a feature, mirrored at
  // once or left to the copier as the chunk size and the standby's memory being mapped decide.
  void operation(OpKind kind, std::size_t feature, U32 offset, U32 size, U32 chunkSize,
                 bool remoteMapped);
  // The fault player: the standby's memory went, with everything it held.
  void standbyLost();
  // The audit.
  void auditCycle(std::size_t feature, bool previousUnanswered);
  void auditAnswer(bool mismatch);
  void auditRepair(std::size_t feature);
  // Counted from a log sink, possibly under its lock: touches nothing else.
  void eventLog() { eventLogs_.fetch_add(1, std::memory_order_relaxed); }
  // A resync whose chunks were just marked in these features; `finding` numbers an audit repair.
  void resyncStarted(ResyncKind kind, const std::vector<std::size_t>& features,
                     const std::string& scope, U64 finding = 0);
  void event(bool fault, const std::string& text);

  const std::string& featureName(std::size_t i) const { return names_.at(i); }
  std::size_t features() const { return names_.size(); }
  U64 pending() const { return total_; }
  U64 pendingIn(std::size_t feature) const { return pending_.at(feature); }
  U64 pendingPeak() const { return peak_; }
  // The peak since the last call, which starts the next period at the present count.
  U64 takePeakSinceMark();
  U64 chunksCopiedTotal() const { return chunksCopied_; }
  U64 chunkBytes() const { return chunkBytes_; }
  U64 directBytes() const { return directBytes_; }
  U64 bytesMirrored() const { return chunkBytes_ + directBytes_; }
  const WorkloadCounts& workload() const { return workload_; }
  AuditCounts audit() const;
  const DrainStats& drains() const { return drains_; }
  const std::vector<Resync>& resyncs() const { return resyncs_; }
  const std::vector<TimelineEvent>& events() const { return events_; }

 private:
  void featureDrained(std::size_t feature);
  void resyncDone(std::size_t index);
  void drainStarted();
  void drainEnded();

  std::vector<std::string> names_;
  CorruptionTracker& tracker_;
  FreshnessTracker& freshness_;
  double t0_ = 0.0;
  std::vector<U64> pending_;
  U64 total_ = 0;
  U64 peak_ = 0;
  U64 peakSinceMark_ = 0;
  U64 chunksCopied_ = 0;
  U64 chunkBytes_ = 0;
  U64 directBytes_ = 0;
  WorkloadCounts workload_;
  AuditCounts audit_;
  std::atomic<U64> eventLogs_{0};
  DrainStats drains_;
  bool draining_ = false;
  double drainStartChassis_ = 0.0;
  U64 drainMax_ = 0;
  U64 drainStartPass_ = 0;
  std::chrono::steady_clock::time_point drainStartWall_;
  std::vector<Resync> resyncs_;
  std::size_t openResyncs_ = 0;
  std::vector<TimelineEvent> events_;
};

}  // namespace MorvikSim

#endif
