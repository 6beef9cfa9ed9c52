#ifndef MORVIK_SIM_SAMPLER_H
#define MORVIK_SIM_SAMPLER_H

#include <functional>
#include <vector>

#include "Freshness.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Timer.h"

namespace MorvikSim {

class CorruptionTracker;
class Monitor;

// One row of the timeline. The copier drains between two operations of the activity loop, so the
// pending count at a sample's instant is mostly 0; the peak over the sample's period is what
// shows the resyncs.
struct Sample {
  double t = 0.0;  // chassis seconds since the start
  U64 pendingNow = 0;
  U64 pendingPeak = 0;
  U64 bytesMirrored = 0;
  U64 mirroredInPeriod = 0;
  U64 operations = 0;
  U64 auditCycles = 0;
  U64 auditRepairs = 0;
  U64 auditMismatches = 0;
  U64 outstandingCorruptions = 0;
  Freshness freshness;
};

// Takes a sample every interval of chassis time, from the activity loop.
class Sampler {
 public:
  Sampler(Monitor& monitor, const CorruptionTracker& tracker, std::function<Freshness()> measure,
          double interval);
  ~Sampler();
  Sampler(const Sampler&) = delete;
  Sampler& operator=(const Sampler&) = delete;

  void start(double t0);
  void stop();
  // A last sample, at the switchover.
  void sampleNow();

  const std::vector<Sample>& samples() const { return samples_; }

 private:
  void tick();

  Monitor& monitor_;
  const CorruptionTracker& tracker_;
  std::function<Freshness()> measure_;
  double interval_;
  double next_ = 0.0;
  U64 lastMirrored_ = 0;
  std::vector<Sample> samples_;
  Kel::Ptr<Timer> timer_;
};

}  // namespace MorvikSim

#endif
