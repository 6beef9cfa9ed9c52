#include "ReportJson.h"

#include <nlohmann/json.hpp>

namespace MorvikSim {

namespace {

// Members in the order they are set, so that the report reads like the text one.
using Json = nlohmann::ordered_json;

Json run(const Report& r) {
  Json features = Json::array();
  U64 offset = 0;
  for (const Feature& f : r.features) {
    features.push_back({{"name", f.name}, {"offset", offset}, {"size", f.size}});
    offset += f.size;
  }
  return {{"vmid", r.vmid},
          {"seed", r.seed},
          {"time", r.realTime ? "real" : "virtual"},
          {"chassis_seconds", r.chassisSeconds},
          {"wall_seconds", r.wallSeconds},
          {"passes", r.passes},
          {"audit_interval_s", r.auditInterval},
          {"rate", r.rate},
          {"nosync", r.nosync},
          {"interrupted", r.interrupted},
          {"features", features},
          {"total_bytes", r.totalBytes},
          {"chunk_size_start", r.chunkSizeStart},
          {"chunk_size_end", r.chunkSizeEnd}};
}

Json workload(const Report& r) {
  const WorkloadCounts& w = r.workload;
  Json j = {{"operations", w.operations()}};
  for (int kind = 0; kind < kOpKinds; ++kind)
    j[opKindName(static_cast<OpKind>(kind))] = w.ops[kind];
  j["writes_per_second"] =
      r.chassisSeconds > 0 ? static_cast<double>(w.operations()) / r.chassisSeconds : 0.0;
  j["bytes_written"] = w.bytesWritten;
  return j;
}

Json latency(const LatencyFigures& l) {
  return {{"count", l.count}, {"mean", l.meanNs}, {"min", l.minNs},
          {"p50", l.p50Ns},   {"p99", l.p99Ns},   {"max", l.maxNs}};
}

Json mirror(const Report& r) {
  const DrainStats& d = r.drains;
  return {{"bytes_mirrored", r.bytesMirrored},
          {"bytes_direct", r.directBytes},
          {"bytes_by_copier", r.chunkBytes},
          {"chunks_copied", r.chunksCopied},
          {"pending_peak_chunks", r.pendingPeak},
          {"pending_peak_drain_passes", d.peakPasses},
          {"pending_peak_drain_wall_s", d.peakWallSeconds},
          {"pending_peak_drain_chassis_s", d.peakChassisSeconds},
          {"drains", d.drains},
          {"drain_longest_chassis_s", d.maxChassisSeconds},
          {"drain_longest_passes", d.maxPasses},
          {"drain_longest_wall_s", d.maxWallSeconds}};
}

Json resyncs(const Report& r) {
  Json list = Json::array();
  for (const Resync& s : r.resyncs) {
    list.push_back({{"kind", resyncKindName(s.kind)},
                    {"scope", s.scope},
                    {"at_s", s.at},
                    {"chunks", s.chunks},
                    {"done", s.done},
                    {"passes", s.passes},
                    {"wall_s", s.wallSeconds},
                    {"chassis_s", s.chassisSeconds}});
  }
  return list;
}

Json audit(const Report& r) {
  const AuditCounts& a = r.audit;
  return {{"cycles", a.cycles},
          {"answers", a.answers},
          {"mismatches", a.mismatches},
          {"repairs", a.repairs},
          {"unexplained_repairs", a.unexplainedRepairs},
          {"retry_resyncs", a.retryResyncs},
          {"event_logs", a.eventLogs}};
}

Json corruptions(const Report& r) {
  const CorruptionTracker::Summary& s = r.corruptions;
  Json healedBy = Json::object();
  for (int cause = 1; cause < kHealCauses; ++cause) {
    healedBy[healCauseName(static_cast<HealCause>(cause))] = s.healedBy[cause];
  }
  Json list = Json::array();
  for (const Corruption& c : r.corruptionList) {
    list.push_back({{"feature", r.featureName(c.feature)},
                    {"offset", c.offset},
                    {"injected_at_s", c.injectedAt},
                    {"healed", c.healed},
                    {"healed_at_s", c.healed ? c.healedAt : -1.0},
                    {"cause", healCauseName(c.cause)},
                    {"finding", c.finding}});
  }
  return {{"injected", s.injected},
          {"found_by_audit", s.foundByAudit},
          {"audit_findings", s.auditFindings},
          {"healed_otherwise", s.healedOtherwise},
          {"healed_by", healedBy},
          {"outstanding", s.outstanding},
          {"list", list}};
}

Json switchover(const Report& r) {
  const CopyComparison& s = r.atSwitchover;
  return {{"at_s", r.switchoverAt},
          {"pending_chunks", s.pendingChunks},
          {"pending_bytes", s.pendingBytes},
          {"stale_chunks", s.staleChunks},
          {"stale_bytes", s.staleBytes},
          {"corrupt_bytes", s.corruptBytes},
          {"unaccounted_chunks", s.unaccountedChunks}};
}

Json atRest(const Report& r) {
  return {{"copies_equal", r.atRest.standbyPresent && r.atRest.differingBytes == 0},
          {"differing_bytes", r.atRest.differingBytes},
          {"differing_chunks", r.atRest.differingChunks}};
}

Json spread(const Spread& s) {
  return {{"p50", s.p50}, {"p99", s.p99}, {"max", s.max}};
}

// Counts are counted: every percentile is one sample's value.
Json countSpread(const Spread& s) {
  const auto count = [](double v) { return static_cast<U64>(v); };
  return {{"p50", count(s.p50)}, {"p99", count(s.p99)}, {"max", count(s.max)}};
}

Json freshness(const Report& r) {
  const FreshnessSummary& f = r.freshness;
  return {{"samples", f.samples},
          {"stale_bytes", countSpread(f.staleBytes)},
          {"stale_chunks", countSpread(f.staleChunks)},
          {"oldest_pending_age_s", spread(f.oldestPendingAge)},
          {"unaccounted_chunks", f.unaccountedChunks}};
}

Json events(const Report& r) {
  Json list = Json::array();
  for (const TimelineEvent& e : r.events) {
    list.push_back({{"t_s", e.t}, {"fault", e.fault}, {"text", e.text}});
  }
  return list;
}

Json checks(const Report& r) {
  return {{"passed", r.passed()}, {"failures", r.failures}, {"note", r.note}};
}

}  // namespace

void writeJsonReport(std::ostream& out, const Report& r) {
  const Json report = {{"run", run(r)},
                       {"workload", workload(r)},
                       {"do_write_latency_ns", latency(r.doWrite)},
                       {"mirror", mirror(r)},
                       {"resyncs", resyncs(r)},
                       {"audit", audit(r)},
                       {"corruptions", corruptions(r)},
                       {"switchover", switchover(r)},
                       {"at_rest", atRest(r)},
                       {"freshness", freshness(r)},
                       {"events", events(r)},
                       {"checks", checks(r)}};
  // One member per line, so that scripts can also pick a field out with line tools; bytes that are
  // not UTF-8 (in a machine name, say) are replaced rather than failing the report.
  out << report.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
}

}  // namespace MorvikSim
