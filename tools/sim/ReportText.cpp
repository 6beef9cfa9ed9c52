#include "ReportText.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "Units.h"

namespace MorvikSim {

namespace {

std::string fmt(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string num(U64 value) {
  return std::to_string(value);
}

std::string bytes(U64 value) {
  return formatBytes(static_cast<double>(value));
}

// Wall times of the copier are often well under a millisecond.
std::string wall(double seconds) {
  return formatNanoseconds(seconds * 1e9);
}

void line(std::ostream& out, const std::string& label, const std::string& text) {
  out << "  " << label << std::string(label.size() < 20 ? 20 - label.size() : 1, ' ') << text
      << "\n";
}

void header(std::ostream& out, const Report& r) {
  out << "Chassis simulation: " << formatSeconds(r.chassisSeconds) << " of chassis time in "
      << formatSeconds(r.wallSeconds) << " (" << (r.realTime ? "real" : "virtual")
      << " time), seed " << r.seed << ", machine " << r.vmid << "\n";
  std::string layout;
  for (const Feature& f : r.features) {
    layout += (layout.empty() ? "" : ", ") + f.name + " " + bytes(f.size);
  }
  line(out, "features", layout + " (" + bytes(r.totalBytes) + ")");
  line(out, "chunk size",
       num(r.chunkSizeStart) + " bytes at start, " + num(r.chunkSizeEnd) + " at the end");
  line(out, "audit interval", formatSeconds(r.auditInterval));
}

void workload(std::ostream& out, const Report& r) {
  const WorkloadCounts& w = r.workload;
  const double perSecond =
      r.chassisSeconds > 0 ? static_cast<double>(w.operations()) / r.chassisSeconds : 0.0;
  out << "Workload\n";
  line(out, "operations",
       num(w.operations()) + " (" + fmt("%.1f", perSecond) + " per second): " + num(w.ops[0]) +
           " small writes, " + num(w.ops[1]) + " tables, " + num(w.ops[2]) + " sets, " +
           num(w.ops[3]) + " copies");
  line(out, "bytes written", bytes(w.bytesWritten));
  line(out, "bytes mirrored",
       bytes(r.bytesMirrored) + " (" + bytes(r.directBytes) + " copied at once, " +
           num(r.chunksCopied) + " chunks by the copier)");
  const LatencyFigures& l = r.doWrite;
  line(out, "doWrite latency",
       num(l.count) + " calls: mean " + formatNanoseconds(l.meanNs) + ", p50 " +
           formatNanoseconds(l.p50Ns) + ", p99 " + formatNanoseconds(l.p99Ns) + ", max " +
           formatNanoseconds(l.maxNs));
}

void copier(std::ostream& out, const Report& r) {
  out << "Background copy\n";
  const DrainStats& d = r.drains;
  line(out, "pending peak",
       num(r.pendingPeak) + " chunks, drained in " + num(d.peakPasses) + " passes (" +
           wall(d.peakWallSeconds) + " wall, " + formatSeconds(d.peakChassisSeconds) +
           " of chassis time)");
  line(out, "drains",
       num(d.drains) + ", longest " + formatSeconds(d.maxChassisSeconds) + " of chassis time, " +
           num(d.maxPasses) + " passes, " + wall(d.maxWallSeconds) + " of wall time");
  for (int kind = 0; kind < kResyncKinds; ++kind) {
    // The figures of one resync, the largest of its kind, rather than maxima of different ones.
    const Resync* largest = nullptr;
    U64 n = 0, open = 0;
    for (const Resync& s : r.resyncs) {
      if (static_cast<int>(s.kind) != kind) continue;
      ++n;
      open += s.done ? 0 : 1;
      if (largest == nullptr ||
          std::pair(s.chunks, s.passes) > std::pair(largest->chunks, largest->passes)) {
        largest = &s;
      }
    }
    if (n == 0) continue;
    std::string text = num(n) + "x; the largest, " + num(largest->chunks) + " chunks, took " +
                       num(largest->passes) + " passes (" + wall(largest->wallSeconds) + " wall)";
    if (open > 0) text += "; " + num(open) + " never finished";
    line(out, std::string("resync: ") + resyncKindText(static_cast<ResyncKind>(kind)), text);
  }
}

void audit(std::ostream& out, const Report& r) {
  const AuditCounts& a = r.audit;
  out << "Audit\n";
  line(out, "cycles",
       num(a.cycles) + " started, " + num(a.answers) + " answered, " + num(a.mismatches) +
           " mismatches");
  line(out, "repairs",
       num(a.repairs) + " (" + num(a.unexplainedRepairs) + " unexplained), " + num(a.retryResyncs) +
           " retry resyncs after a silent standby");
  line(out, "event logs",
       num(a.eventLogs) + " " + r.eventLogName + " (rate-limited to " + num(r.eventLogBurst) +
           " per " + formatSeconds(r.eventLogInterval) +
           ": a repair soon after another logs none)");
}

void corruptions(std::ostream& out, const Report& r) {
  const CorruptionTracker::Summary& s = r.corruptions;
  out << "Corruptions\n";
  line(out, "injected", num(s.injected));
  line(out, "found by the audit",
       num(s.foundByAudit) + " (in " + num(s.auditFindings) + " findings)");
  line(out, "healed otherwise", num(s.healedOtherwise));
  for (int cause = 2; cause < kHealCauses; ++cause) {
    if (s.healedBy[cause] == 0) continue;
    line(out, "",
         "  " + num(s.healedBy[cause]) + " by " + healCauseText(static_cast<HealCause>(cause)));
  }
  line(out, "outstanding", num(s.outstanding));
}

void freshness(std::ostream& out, const Report& r) {
  const FreshnessSummary& f = r.freshness;
  const auto spread = [](const Spread& s, const auto& show) {
    return "p50 " + show(s.p50) + ", p99 " + show(s.p99) + ", max " + show(s.max);
  };
  out << "Freshness of the standby's copy, over " << f.samples << " samples\n";
  line(out, "stale bytes", spread(f.staleBytes, [](double v) { return formatBytes(v); }));
  line(out, "stale chunks", spread(f.staleChunks, [](double v) { return fmt("%.0f", v); }));
  line(out, "oldest write behind",
       spread(f.oldestPendingAge, [](double v) { return formatSeconds(v); }));
  line(out, "unaccounted chunks",
       num(f.unaccountedChunks) + " (stale chunks the copier did not know as pending)");
}

void switchover(std::ostream& out, const Report& r) {
  const CopyComparison& c = r.atSwitchover;
  out << "Switchover at " << formatSeconds(r.switchoverAt)
      << (r.interrupted ? " (interrupted)" : "") << "\n";
  line(out, "not yet copied",
       num(c.pendingChunks) + " chunks pending (" + bytes(c.pendingBytes) + "), " +
           num(c.staleBytes) + " bytes in " + num(c.staleChunks) + " chunks differ");
  line(out, "corrupt bytes", num(c.corruptBytes));
  line(out, "at rest",
       r.atRest.differingBytes == 0 ? std::string("copies equal")
                                    : num(r.atRest.differingBytes) + " bytes differ");
}

void checks(std::ostream& out, const Report& r) {
  if (r.passed()) {
    out << "Checks: passed\n";
    return;
  }
  out << "Checks: FAILED\n";
  for (const std::string& f : r.failures) out << "  - " << f << "\n";
  if (!r.note.empty()) out << "  note: " << r.note << "\n";
}

}  // namespace

void writeTextReport(std::ostream& out, const Report& r) {
  header(out, r);
  workload(out, r);
  copier(out, r);
  audit(out, r);
  corruptions(out, r);
  freshness(out, r);
  switchover(out, r);
  checks(out, r);
}

}  // namespace MorvikSim
