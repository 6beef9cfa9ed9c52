#include "DefaultSchedule.h"

#include <algorithm>
#include <cmath>

#include "HotZones.h"
#include "Rng.h"

namespace MorvikSim {

namespace {

constexpr U64 kStream = 0x6661756c7473ULL;
// The audit's first tick comes this long after it is created, then one every interval.
constexpr double kFirstAuditTick = 5.0;

Fault corruption(double at, const std::string& feature, U32 offset) {
  Fault f;
  f.kind = Fault::Kind::corrupt;
  f.at = at;
  f.feature = feature;
  f.offset = offset;
  return f;
}

std::size_t otherFeature(Rng& rng, std::size_t features, std::size_t avoid) {
  if (features == 1) return 0;
  const std::size_t pick = rng.below(features - 1);
  return pick >= avoid ? pick + 1 : pick;
}

// Two corruptions of one feature between two audit ticks of the first audits, before the standby's
// memory goes away (which replaces the audits and moves their ticks).
// Outside the features' hot parts, where a write would most likely get there before the audit.
void addPair(std::vector<Fault>& out, Rng& rng, const Layout& layout,
             const std::vector<HotZone>& hot, double end, double interval,
             std::size_t silentFeature) {
  const double earliest = 0.05 * end;
  const double latest = 0.45 * end - interval;
  const double first = std::ceil(std::max(0.0, (earliest - kFirstAuditTick) / interval));
  const double last = std::floor((latest - kFirstAuditTick) / interval);
  const double k = last > first
                       ? first + static_cast<double>(rng.below(static_cast<U64>(last - first) + 1))
                       : first;
  const double tick = kFirstAuditTick + k * interval;
  const std::size_t f = otherFeature(rng, layout.features(), silentFeature);
  for (double at : {tick + 0.1 * interval, tick + 0.5 * interval}) {
    out.push_back(corruption(at, layout.name(f), coldOffset(hot[f], layout.size(f), rng.next())));
  }
}

void addDefaults(std::vector<Fault>& out, const SimOptions& options, const Layout& layout) {
  Rng rng(options.seed ^ kStream);
  const double end = options.switchoverTime();
  const double interval = options.auditInterval;

  Fault silent;
  silent.kind = Fault::Kind::silent;
  silent.at = 0.2 * end;
  const std::size_t silentFeature = rng.below(layout.features());
  silent.feature = layout.name(silentFeature);
  silent.duration = 6.5 * interval;
  out.push_back(silent);

  Fault away;
  away.kind = Fault::Kind::away;
  away.at = 0.45 * end;
  away.duration = 2.0 * interval;
  out.push_back(away);

  if (options.chunkSizes.size() > 1) {
    for (double at : {0.55 * end, 0.65 * end}) {
      Fault chunk;
      chunk.kind = Fault::Kind::chunk;
      chunk.at = at;
      out.push_back(chunk);
    }
  }

  unsigned left = options.corruptions;
  if (left >= 2) {
    addPair(out, rng, layout, hotZones(options, layout), end, interval, silentFeature);
    left -= 2;
  }
  // Just before a resync, so that the resync rather than the audit heals it.
  const std::vector<std::pair<double, std::size_t>> planned{
      {silent.at + 1.5 * interval, silentFeature},
      {away.at - 1.0, rng.below(layout.features())},
      {0.55 * end - 1.0, rng.below(layout.features())}};
  for (const auto& [at, f] : planned) {
    if (left == 0 || (at > 0.5 * end && options.chunkSizes.size() < 2)) break;
    out.push_back(corruption(at, layout.name(f), static_cast<U32>(rng.below(layout.size(f)))));
    --left;
  }
  for (; left > 0; --left) {
    const double at = end * (0.05 + 0.65 * rng.real());
    const std::size_t f = rng.below(layout.features());
    out.push_back(corruption(at, layout.name(f), static_cast<U32>(rng.below(layout.size(f)))));
  }
}

}  // namespace

std::vector<Fault> faultSchedule(const SimOptions& options, const Layout& layout) {
  std::vector<Fault> schedule;
  if (options.usesDefaultFaults()) addDefaults(schedule, options, layout);
  schedule.insert(schedule.end(), options.faults.begin(), options.faults.end());
  std::stable_sort(schedule.begin(), schedule.end(),
                   [](const Fault& a, const Fault& b) { return a.at < b.at; });
  return schedule;
}

}  // namespace MorvikSim
