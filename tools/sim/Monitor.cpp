#include "Monitor.h"

#include <algorithm>

#include "CopyMath.h"
#include "Kel/ActivityManager.h"
#include "Kel/System.h"

namespace MorvikSim {

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

U64 passesNow() {
  return Kel::activityManager()->passes();
}

}  // namespace

Monitor::Monitor(std::vector<std::string> featureNames, CorruptionTracker& tracker,
                 FreshnessTracker& freshness)
    : names_(std::move(featureNames)),
      tracker_(tracker),
      freshness_(freshness),
      pending_(names_.size(), 0) {}

void Monitor::startIs(double t0) {
  t0_ = t0;
}

double Monitor::now() const {
  return Kel::System::currentTime() - t0_;
}

void Monitor::pendingChanged(std::size_t feature, long delta, bool deleted) {
  pending_[feature] += delta;
  total_ += delta;
  peak_ = std::max(peak_, total_);
  peakSinceMark_ = std::max(peakSinceMark_, total_);
  drainMax_ = std::max(drainMax_, total_);
  if (!draining_ && total_ > 0) drainStarted();
  // doSync empties the to-do list before it marks every chunk again, and a second doSync of the
  // same feature may come in the same pass (an audit's retry, then the repair of the mismatch its
  // new request found): an emptied list is a list about to be refilled. Only the copier's own
  // clearing brings a feature, or the chassis, to rest.
  if (deleted) return;
  if (pending_[feature] == 0 && delta < 0) featureDrained(feature);
  if (total_ == 0 && draining_) drainEnded();
}

U64 Monitor::takePeakSinceMark() {
  const U64 peak = peakSinceMark_;
  peakSinceMark_ = total_;
  return peak;
}

void Monitor::chunkCopied(std::size_t feature, U64 offset, U32 chunkSize) {
  ++chunksCopied_;
  chunkBytes_ += chunkSize;
  freshness_.copied(feature, offset, chunkSize);
}

void Monitor::operation(OpKind kind, std::size_t feature, U32 offset, U32 size, U32 chunkSize,
                        bool remoteMapped) {
  ++workload_.ops[static_cast<int>(kind)];
  workload_.bytesWritten += size;
  forEachPiece(offset, size, chunkSize, remoteMapped, [&](U64 at, U64 length, bool direct) {
    if (direct) {
      directBytes_ += length;
    } else {
      freshness_.deferred(feature, at, length, now());
    }
  });
  tracker_.covered(feature, offset, size, now());
}

void Monitor::standbyLost() {
  tracker_.standbyLost(now());
  freshness_.standbyLost(now());
}

void Monitor::drainStarted() {
  draining_ = true;
  drainStartChassis_ = now();
  drainMax_ = total_;
  drainStartPass_ = passesNow();
  drainStartWall_ = std::chrono::steady_clock::now();
}

void Monitor::drainEnded() {
  draining_ = false;
  const double wall = secondsSince(drainStartWall_);
  const double chassis = now() - drainStartChassis_;
  const U64 passes = passesNow() - drainStartPass_;
  ++drains_.drains;
  drains_.totalWallSeconds += wall;
  drains_.maxWallSeconds = std::max(drains_.maxWallSeconds, wall);
  drains_.maxChassisSeconds = std::max(drains_.maxChassisSeconds, chassis);
  drains_.maxPasses = std::max(drains_.maxPasses, passes);
  if (drainMax_ > drains_.peakChunks) {
    drains_.peakChunks = drainMax_;
    drains_.peakChassisSeconds = chassis;
    drains_.peakWallSeconds = wall;
    drains_.peakPasses = passes;
  }
}

namespace {

HealCause healCauseOf(ResyncKind kind) {
  switch (kind) {
    case ResyncKind::initial:
      return HealCause::none;
    case ResyncKind::standbyReturn:
      return HealCause::standbyReturn;
    case ResyncKind::chunkChange:
      return HealCause::chunkChange;
    case ResyncKind::auditRepair:
      return HealCause::audit;
    case ResyncKind::retryResync:
      return HealCause::retryResync;
  }
  return HealCause::none;
}

}  // namespace

void Monitor::resyncStarted(ResyncKind kind, const std::vector<std::size_t>& features,
                            const std::string& scope, U64 finding) {
  // Numbered from 1: the tracker's 0 means no resync.
  const U64 number = resyncs_.size() + 1;
  if (healCauseOf(kind) != HealCause::none) {
    for (std::size_t f : features) tracker_.resynced(f, healCauseOf(kind), now(), number, finding);
  }
  Resync r;
  r.kind = kind;
  r.scope = scope;
  r.at = now();
  r.waiting.assign(names_.size(), 0);
  for (std::size_t f : features) {
    r.chunks += pending_[f];
    r.waiting[f] = pending_[f] > 0 ? 1 : 0;
  }
  r.startPass = passesNow();
  r.startWall = std::chrono::steady_clock::now();
  const bool done = r.chunks == 0;
  resyncs_.push_back(std::move(r));
  ++openResyncs_;
  if (done) resyncDone(resyncs_.size() - 1);
}

void Monitor::resyncDone(std::size_t index) {
  Resync& r = resyncs_[index];
  r.done = true;
  r.chassisSeconds = now() - r.at;
  r.wallSeconds = secondsSince(r.startWall);
  r.passes = passesNow() - r.startPass;
  --openResyncs_;
  tracker_.resyncFinished(index + 1, now());
}

void Monitor::featureDrained(std::size_t feature) {
  if (openResyncs_ == 0) return;
  for (std::size_t i = 0; i < resyncs_.size(); ++i) {
    Resync& r = resyncs_[i];
    if (r.done || !r.waiting[feature]) continue;
    r.waiting[feature] = 0;
    if (std::find(r.waiting.begin(), r.waiting.end(), 1) == r.waiting.end()) resyncDone(i);
  }
}

void Monitor::auditCycle(std::size_t feature, bool previousUnanswered) {
  ++audit_.cycles;
  if (!previousUnanswered) return;
  // The audit only starts a cycle over an unanswered one after giving up and resyncing.
  ++audit_.retryResyncs;
  resyncStarted(ResyncKind::retryResync, {feature}, names_[feature]);
  event(false, "retry resync " + names_[feature]);
}

void Monitor::auditAnswer(bool mismatch) {
  ++audit_.answers;
  if (mismatch) ++audit_.mismatches;
}

void Monitor::auditRepair(std::size_t feature) {
  ++audit_.repairs;
  if (tracker_.outstandingIn(feature) == 0) ++audit_.unexplainedRepairs;
  resyncStarted(ResyncKind::auditRepair, {feature}, names_[feature], audit_.repairs);
  event(false, "audit repair " + names_[feature]);
}

AuditCounts Monitor::audit() const {
  AuditCounts counts = audit_;
  counts.eventLogs = eventLogs_.load(std::memory_order_relaxed);
  return counts;
}

void Monitor::event(bool fault, const std::string& text) {
  events_.push_back({now(), fault, text});
}

}  // namespace MorvikSim
