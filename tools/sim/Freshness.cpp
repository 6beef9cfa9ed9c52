#include "Freshness.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Chassis.h"
#include "CopyComparison.h"
#include "Layout.h"
#include "Sampler.h"

namespace MorvikSim {

namespace {

constexpr double kCurrent = std::numeric_limits<double>::infinity();

// Nearest rank: p50 is a value that half of the samples do not exceed.
Spread spreadOf(std::vector<double> values) {
  Spread s;
  if (values.empty()) return s;
  std::sort(values.begin(), values.end());
  const auto rank = [&values](double p) {
    const auto n = static_cast<double>(values.size());
    return values[static_cast<std::size_t>(std::max(std::ceil(p * n) - 1.0, 0.0))];
  };
  s.p50 = rank(0.50);
  s.p99 = rank(0.99);
  s.max = values.back();
  return s;
}

}  // namespace

FreshnessTracker::FreshnessTracker(const Layout& layout, U32 block) : block_(block) {
  for (std::size_t f = 0; f < layout.features(); ++f) {
    since_.emplace_back(layout.size(f) / block, kCurrent);
  }
}

void FreshnessTracker::deferred(std::size_t feature, U64 offset, U64 size, double t) {
  std::vector<double>& since = since_[feature];
  for (U64 b = offset / block_; b * block_ < offset + size; ++b) since[b] = std::min(since[b], t);
}

void FreshnessTracker::copied(std::size_t feature, U64 offset, U64 size) {
  std::vector<double>& since = since_[feature];
  std::fill(since.begin() + offset / block_, since.begin() + (offset + size) / block_, kCurrent);
}

void FreshnessTracker::standbyLost(double t) {
  for (std::vector<double>& since : since_) {
    for (double& s : since) s = std::min(s, t);
  }
}

double FreshnessTracker::behindSince(std::size_t feature, U64 offset, U64 size) const {
  const auto first = since_[feature].begin() + offset / block_;
  return *std::min_element(first, first + size / block_);
}

Freshness FreshnessTracker::measure(const Chassis& chassis, const CorruptionTracker& tracker,
                                    double t) {
  Freshness out;
  const bool present = chassis.standbyPresent();
  forEachChunk(chassis, tracker, [&](const ChunkState& c) {
    const U64 size = c.end - c.begin;
    if (present && c.staleBytes() == 0) return;
    ++out.staleChunks;
    out.staleBytes += present ? c.staleBytes() : size;
    if (present && !c.pending) ++out.unaccountedChunks;
    double since = behindSince(c.feature, c.begin, size);
    // Stale without a write this side knows of: behind since the last look at the latest.
    if (since == kCurrent) {
      since = lastMeasured_;
      deferred(c.feature, c.begin, size, since);
    }
    out.oldestPendingAge = std::max(out.oldestPendingAge, t - since);
  });
  lastMeasured_ = t;
  return out;
}

FreshnessSummary summarizeFreshness(const std::vector<Sample>& samples) {
  FreshnessSummary out;
  out.samples = samples.size();
  std::vector<double> bytes, chunks, ages;
  for (const Sample& s : samples) {
    const Freshness& f = s.freshness;
    bytes.push_back(static_cast<double>(f.staleBytes));
    chunks.push_back(static_cast<double>(f.staleChunks));
    ages.push_back(f.oldestPendingAge);
    out.unaccountedChunks += f.unaccountedChunks;
    out.samplesWithUnaccounted += f.unaccountedChunks > 0 ? 1 : 0;
  }
  out.staleBytes = spreadOf(std::move(bytes));
  out.staleChunks = spreadOf(std::move(chunks));
  out.oldestPendingAge = spreadOf(std::move(ages));
  return out;
}

}  // namespace MorvikSim
