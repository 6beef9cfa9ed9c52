#include "TimelineCsv.h"

#include <cstdio>
#include <string>

namespace MorvikSim {

namespace {

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

std::string seconds(double t) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", t);
  return text;
}

}  // namespace

void writeTimelineCsv(std::ostream& out, const Report& r) {
  out << "time_s,pending_chunks,pending_peak_chunks,bytes_mirrored,mirrored_bytes_per_s,"
         "operations,audit_cycles,audit_repairs,audit_mismatches,corruptions_outstanding,events,"
         "stale_bytes,stale_chunks,oldest_pending_age_s,unaccounted_chunks\n";
  std::size_t event = 0;
  double previous = 0.0;
  for (const Sample& s : r.samples) {
    std::string events;
    for (; event < r.events.size() && r.events[event].t <= s.t; ++event) {
      events += (events.empty() ? "" : "; ") + r.events[event].text;
    }
    const double period = s.t - previous;
    const double rate = period > 0.0 ? static_cast<double>(s.mirroredInPeriod) / period : 0.0;
    previous = s.t;
    out << seconds(s.t) << ',' << s.pendingNow << ',' << s.pendingPeak << ',' << s.bytesMirrored
        << ',' << static_cast<U64>(rate) << ',' << s.operations << ',' << s.auditCycles << ','
        << s.auditRepairs << ',' << s.auditMismatches << ',' << s.outstandingCorruptions << ','
        << quoted(events) << ',' << s.freshness.staleBytes << ',' << s.freshness.staleChunks << ','
        << seconds(s.freshness.oldestPendingAge) << ',' << s.freshness.unaccountedChunks << '\n';
  }
}

}  // namespace MorvikSim
