#ifndef MORVIK_SIM_FRESHNESS_H
#define MORVIK_SIM_FRESHNESS_H

#include <cstddef>
#include <vector>

#include "Kel/Types.h"

namespace MorvikSim {

class Chassis;
class CorruptionTracker;
class Layout;

// How current the standby's copy is at one instant.
struct Freshness {
  // Bytes and chunks that differ for want of copying (outstanding corruptions left out); all of
  // them while the standby's memory is away.
  U64 staleBytes = 0;
  U64 staleChunks = 0;
  // Chassis seconds since the oldest write that is not on the standby yet; 0 when none.
  double oldestPendingAge = 0.0;
  // Stale chunks the copier did not know as pending: writes the mirror lost.
  U64 unaccountedChunks = 0;
};

// The spread of one figure over the samples of a run.
struct Spread {
  double p50 = 0.0;
  double p99 = 0.0;
  double max = 0.0;
};

struct FreshnessSummary {
  U64 samples = 0;
  Spread staleBytes;
  Spread staleChunks;
  Spread oldestPendingAge;
  // Summed over the samples; 0 in a run whose mirror lost nothing.
  U64 unaccountedChunks = 0;
  U64 samplesWithUnaccounted = 0;
};

// Follows when the writes the standby does not have yet were made, per block of the run's
// smallest chunk size, and measures freshness by comparing the two copies. A block is behind from
// the first write after its last copy that the library left for the copier (a whole chunk, or any
// piece while the standby's memory is away), or from the moment the standby's memory went with
// what it held; the copier's copy of its chunk brings it up to date.
class FreshnessTracker {
 public:
  FreshnessTracker(const Layout& layout, U32 block);

  void deferred(std::size_t feature, U64 offset, U64 size, double t);
  void copied(std::size_t feature, U64 offset, U64 size);
  void standbyLost(double t);

  // Compares the copies now, at chassis time t.
  Freshness measure(const Chassis& chassis, const CorruptionTracker& tracker, double t);

 private:
  // Since when the blocks of [offset, offset + size) have been behind; infinity when they are not.
  double behindSince(std::size_t feature, U64 offset, U64 size) const;

  U32 block_;
  std::vector<std::vector<double>> since_;
  double lastMeasured_ = 0.0;
};

struct Sample;
FreshnessSummary summarizeFreshness(const std::vector<Sample>& samples);

}  // namespace MorvikSim

#endif
