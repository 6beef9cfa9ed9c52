#ifndef MORVIK_SIM_RECORDS_H
#define MORVIK_SIM_RECORDS_H

#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "Kel/Types.h"

namespace MorvikSim {

// The plain figures a run collects; the monitor fills them, the report reads them.

enum class OpKind { small, table, set, copy };
constexpr int kOpKinds = 4;
const char* opKindName(OpKind kind);

enum class ResyncKind { initial, standbyReturn, chunkChange, auditRepair, retryResync };
constexpr int kResyncKinds = 5;
const char* resyncKindName(ResyncKind kind);
const char* resyncKindText(ResyncKind kind);

// One whole-feature resynchronisation, from the moment its chunks were marked until the last of
// them was copied.
struct Resync {
  ResyncKind kind = ResyncKind::initial;
  std::string scope;  // the feature, or "all"
  double at = 0.0;    // chassis seconds
  U64 chunks = 0;     // chunks pending in its features when it started
  bool done = false;
  double chassisSeconds = 0.0;
  double wallSeconds = 0.0;
  U64 passes = 0;
  // While running: which features still have chunks pending, and where it started.
  std::vector<char> waiting;
  U64 startPass = 0;
  std::chrono::steady_clock::time_point startWall;
};

// A period during which at least one chunk waited for the copier.
struct DrainStats {
  U64 drains = 0;
  // The first drain that reached the run's pending peak, from its first chunk to its last.
  U64 peakChunks = 0;
  double peakChassisSeconds = 0.0;
  double peakWallSeconds = 0.0;
  U64 peakPasses = 0;
  double maxChassisSeconds = 0.0;
  double maxWallSeconds = 0.0;
  U64 maxPasses = 0;
  double totalWallSeconds = 0.0;
};

struct AuditCounts {
  U64 cycles = 0;
  U64 answers = 0;
  U64 mismatches = 0;
  U64 repairs = 0;
  // Repairs of a feature that had no injected corruption outstanding: the audit found a
  // difference nobody made on purpose.
  U64 unexplainedRepairs = 0;
  U64 retryResyncs = 0;
  U64 eventLogs = 0;
};

struct WorkloadCounts {
  std::array<U64, kOpKinds> ops{};
  U64 bytesWritten = 0;
  U64 operations() const { return ops[0] + ops[1] + ops[2] + ops[3]; }
};

struct TimelineEvent {
  double t = 0.0;
  bool fault = false;  // an injected fault (labelled in the plot) rather than the system's answer
  std::string text;
};

}  // namespace MorvikSim

#endif
