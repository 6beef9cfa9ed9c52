#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "Report.h"
#include "Units.h"

namespace MorvikSim {

namespace {

std::string count(U64 n, const char* one, const char* many) {
  if (std::string_view(many) == "times" && n == 1) return "once";
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

void restCheck(Report& r) {
  const CopyComparison& c = r.atRest;
  if (!c.standbyPresent) {
    r.failures.push_back("the standby's memory was away at the end: there was no copy to compare");
    return;
  }
  if (c.differingBytes == 0) return;
  std::string line = "the copies differed after the copier came to rest: " +
                     count(c.differingBytes, "byte", "bytes") + " in " +
                     count(c.differingChunks, "chunk", "chunks");
  if (c.corruptBytes > 0)
    line += " (" + std::to_string(c.corruptBytes) + " of them injected corruptions)";
  r.failures.push_back(line);
}

void corruptionCheck(Report& r) {
  U64 neverFound = 0, foundNotRepaired = 0, notResynced = 0;
  std::array<U64, kHealCauses> waiting{};
  double lastInjected = 0.0;
  for (const Corruption& c : r.corruptionList) {
    if (c.healed) continue;
    if (c.foundByAudit) {
      ++foundNotRepaired;
    } else if (c.failedResyncs > 0) {
      ++notResynced;
    } else if (c.cause == HealCause::none) {
      ++neverFound;
      lastInjected = std::max(lastInjected, c.injectedAt);
    } else {
      ++waiting[static_cast<int>(c.cause)];
    }
  }
  if (neverFound > 0) {
    r.failures.push_back(
        count(neverFound, "corruption was", "corruptions were") +
        " never found (the last injected " + formatSeconds(r.switchoverAt - lastInjected) +
        " before the switchover; audits run every " + formatSeconds(r.auditInterval) + ")");
  }
  if (foundNotRepaired > 0) {
    r.failures.push_back(count(foundNotRepaired, "corruption", "corruptions") +
                         " found by the audit but never repaired");
  }
  if (notResynced > 0) {
    r.failures.push_back(count(notResynced, "corruption", "corruptions") +
                         " outlived the resyncs meant to heal them");
  }
  for (int cause = 2; cause < kHealCauses; ++cause) {
    if (waiting[cause] == 0) continue;
    r.failures.push_back(count(waiting[cause], "corruption was", "corruptions were") +
                         " still waiting for " + healCauseText(static_cast<HealCause>(cause)));
  }
}

// A resync that finishes with a corruption still in place did not do its job, even when a write
// heals the byte later.
void resyncCheck(Report& r) {
  const auto& failed = r.corruptions.failedHeals;
  if (failed[static_cast<int>(HealCause::audit)] > 0) {
    r.failures.push_back("the audit's repair left the corruption it found in place " +
                         count(failed[static_cast<int>(HealCause::audit)], "time", "times"));
  }
  for (int cause = 2; cause < kHealCauses; ++cause) {
    if (failed[cause] == 0) continue;
    r.failures.push_back(std::string(healCauseText(static_cast<HealCause>(cause))) +
                         " left a corruption in place " + count(failed[cause], "time", "times"));
  }
}

}  // namespace

void evaluateChecks(Report& r) {
  r.failures.clear();
  restCheck(r);
  corruptionCheck(r);
  resyncCheck(r);
  if (r.audit.unexplainedRepairs > 0) {
    r.failures.push_back("the audit repaired " +
                         count(r.audit.unexplainedRepairs, "mismatch", "mismatches") +
                         " that no injected corruption explains");
  }
  const FreshnessSummary& f = r.freshness;
  if (f.unaccountedChunks > 0 || r.atSwitchover.unaccountedChunks > 0) {
    r.failures.push_back(
        "stale chunks of the standby's copy that the copier did not know as pending: " +
        std::to_string(f.unaccountedChunks) + " over " + std::to_string(f.samplesWithUnaccounted) +
        " of " + std::to_string(f.samples) + " samples, " +
        std::to_string(r.atSwitchover.unaccountedChunks) +
        " at the switchover: the mirror lost writes");
  }
  r.note.clear();
  if (!r.failures.empty() && r.nosync) {
    r.note = "NOSYNC_MORVIK is set, so doSync did nothing: no repair or resync marked a chunk";
  }
}

}  // namespace MorvikSim
