#include "ReportJson.h"

#include "JsonWriter.h"

namespace MorvikSim {

namespace {

void run(JsonWriter& j, const Report& r) {
  j.key("run").beginObject();
  j.field("vmid", r.vmid).field("seed", r.seed).field("time", r.realTime ? "real" : "virtual");
  j.field("chassis_seconds", r.chassisSeconds).field("wall_seconds", r.wallSeconds);
  j.field("passes", r.passes).field("audit_interval_s", r.auditInterval).field("rate", r.rate);
  j.field("nosync", r.nosync).field("interrupted", r.interrupted);
  j.key("features").beginArray();
  U64 offset = 0;
  for (const Feature& f : r.features) {
    j.beginObject().field("name", f.name).field("offset", offset).field("size", f.size).endObject();
    offset += f.size;
  }
  j.endArray();
  j.field("total_bytes", r.totalBytes);
  j.field("chunk_size_start", r.chunkSizeStart).field("chunk_size_end", r.chunkSizeEnd);
  j.endObject();
}

void workload(JsonWriter& j, const Report& r) {
  const WorkloadCounts& w = r.workload;
  j.key("workload").beginObject();
  j.field("operations", w.operations());
  for (int kind = 0; kind < kOpKinds; ++kind)
    j.field(opKindName(static_cast<OpKind>(kind)), w.ops[kind]);
  j.field("writes_per_second",
          r.chassisSeconds > 0 ? static_cast<double>(w.operations()) / r.chassisSeconds : 0.0);
  j.field("bytes_written", w.bytesWritten);
  j.endObject();
  const LatencyFigures& l = r.doWrite;
  j.key("do_write_latency_ns").beginObject();
  j.field("count", l.count).field("mean", l.meanNs).field("min", l.minNs).field("p50", l.p50Ns);
  j.field("p99", l.p99Ns).field("max", l.maxNs);
  j.endObject();
}

void mirror(JsonWriter& j, const Report& r) {
  j.key("mirror").beginObject();
  j.field("bytes_mirrored", r.bytesMirrored).field("bytes_direct", r.directBytes);
  j.field("bytes_by_copier", r.chunkBytes).field("chunks_copied", r.chunksCopied);
  j.field("pending_peak_chunks", r.pendingPeak);
  j.field("pending_peak_drain_passes", r.drains.peakPasses);
  j.field("pending_peak_drain_wall_s", r.drains.peakWallSeconds);
  j.field("pending_peak_drain_chassis_s", r.drains.peakChassisSeconds);
  j.field("drains", r.drains.drains);
  j.field("drain_longest_chassis_s", r.drains.maxChassisSeconds);
  j.field("drain_longest_passes", r.drains.maxPasses);
  j.field("drain_longest_wall_s", r.drains.maxWallSeconds);
  j.endObject();
  j.key("resyncs").beginArray();
  for (const Resync& s : r.resyncs) {
    j.beginObject()
        .field("kind", resyncKindName(s.kind))
        .field("scope", s.scope)
        .field("at_s", s.at);
    j.field("chunks", s.chunks).field("done", s.done).field("passes", s.passes);
    j.field("wall_s", s.wallSeconds).field("chassis_s", s.chassisSeconds).endObject();
  }
  j.endArray();
}

void audit(JsonWriter& j, const Report& r) {
  const AuditCounts& a = r.audit;
  j.key("audit").beginObject();
  j.field("cycles", a.cycles).field("answers", a.answers).field("mismatches", a.mismatches);
  j.field("repairs", a.repairs).field("unexplained_repairs", a.unexplainedRepairs);
  j.field("retry_resyncs", a.retryResyncs).field("event_logs", a.eventLogs);
  j.endObject();
}

void corruptions(JsonWriter& j, const Report& r) {
  const CorruptionTracker::Summary& s = r.corruptions;
  j.key("corruptions").beginObject();
  j.field("injected", s.injected).field("found_by_audit", s.foundByAudit);
  j.field("audit_findings", s.auditFindings).field("healed_otherwise", s.healedOtherwise);
  j.key("healed_by").beginObject();
  for (int cause = 1; cause < kHealCauses; ++cause) {
    j.field(healCauseName(static_cast<HealCause>(cause)), s.healedBy[cause]);
  }
  j.endObject();
  j.field("outstanding", s.outstanding);
  j.key("list").beginArray();
  for (const Corruption& c : r.corruptionList) {
    j.beginObject().field("feature", r.featureName(c.feature)).field("offset", c.offset);
    j.field("injected_at_s", c.injectedAt).field("healed", c.healed);
    j.field("healed_at_s", c.healed ? c.healedAt : -1.0).field("cause", healCauseName(c.cause));
    j.field("finding", c.finding).endObject();
  }
  j.endArray();
  j.endObject();
}

void copies(JsonWriter& j, const Report& r) {
  const CopyComparison& s = r.atSwitchover;
  j.key("switchover").beginObject();
  j.field("at_s", r.switchoverAt).field("pending_chunks", s.pendingChunks);
  j.field("pending_bytes", s.pendingBytes).field("stale_chunks", s.staleChunks);
  j.field("stale_bytes", s.staleBytes).field("corrupt_bytes", s.corruptBytes);
  j.field("unaccounted_chunks", s.unaccountedChunks);
  j.endObject();
  j.key("at_rest").beginObject();
  j.field("copies_equal", r.atRest.standbyPresent && r.atRest.differingBytes == 0);
  j.field("differing_bytes", r.atRest.differingBytes);
  j.field("differing_chunks", r.atRest.differingChunks);
  j.endObject();
}

void events(JsonWriter& j, const Report& r) {
  j.key("events").beginArray();
  for (const TimelineEvent& e : r.events) {
    j.beginObject().field("t_s", e.t).field("fault", e.fault).field("text", e.text).endObject();
  }
  j.endArray();
}

void checks(JsonWriter& j, const Report& r) {
  j.key("checks").beginObject();
  j.field("passed", r.passed());
  j.key("failures").beginArray();
  for (const std::string& f : r.failures) j.value(f);
  j.endArray();
  j.field("note", r.note);
  j.endObject();
}

}  // namespace

void writeJsonReport(std::ostream& out, const Report& r) {
  JsonWriter j(out);
  j.beginObject();
  run(j, r);
  workload(j, r);
  mirror(j, r);
  audit(j, r);
  corruptions(j, r);
  copies(j, r);
  events(j, r);
  checks(j, r);
  j.endObject();
}

}  // namespace MorvikSim
