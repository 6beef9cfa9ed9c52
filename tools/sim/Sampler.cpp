#include "Sampler.h"

#include "CorruptionTracker.h"
#include "Monitor.h"

namespace MorvikSim {

// Not const: taking a period's peak starts the next period.
Sampler::Sampler(Monitor& monitor, const CorruptionTracker& tracker,
                 std::function<Freshness()> measure, double interval)
    : monitor_(monitor), tracker_(tracker), measure_(std::move(measure)), interval_(interval) {}

Sampler::~Sampler() {
  stop();
}

void Sampler::start(double t0) {
  sampleNow();
  timer_ = Timer::create([this] { tick(); });
  next_ = t0 + interval_;
  timer_->at(next_);
}

void Sampler::stop() {
  if (timer_) timer_->stop();
  timer_ = nullptr;
}

void Sampler::tick() {
  sampleNow();
  next_ += interval_;
  timer_->at(next_);
}

void Sampler::sampleNow() {
  Sample s;
  s.t = monitor_.now();
  s.pendingNow = monitor_.pending();
  s.pendingPeak = monitor_.takePeakSinceMark();
  s.bytesMirrored = monitor_.bytesMirrored();
  s.mirroredInPeriod = s.bytesMirrored - lastMirrored_;
  lastMirrored_ = s.bytesMirrored;
  s.operations = monitor_.workload().operations();
  const AuditCounts audit = monitor_.audit();
  s.auditCycles = audit.cycles;
  s.auditRepairs = audit.repairs;
  s.auditMismatches = audit.mismatches;
  s.outstandingCorruptions = tracker_.outstanding();
  s.freshness = measure_();
  samples_.push_back(s);
}

}  // namespace MorvikSim
