#include "CorruptionTracker.h"

#include <set>

namespace MorvikSim {

void CorruptionTracker::injected(std::size_t feature, U32 offset, double t) {
  Corruption c;
  c.feature = feature;
  c.offset = offset;
  c.injectedAt = t;
  open_.push_back(all_.size());
  all_.push_back(c);
}

void CorruptionTracker::causeIs(Corruption& c, HealCause cause, double t, U64 finding) {
  if (c.cause != HealCause::none) return;
  c.cause = cause;
  c.causeAt = t;
  c.finding = finding;
}

void CorruptionTracker::covered(std::size_t feature, U32 offset, U32 size, double t) {
  for (std::size_t i : open_) {
    Corruption& c = all_[i];
    if (c.feature == feature && c.offset >= offset && c.offset - offset < size) {
      causeIs(c, HealCause::write, t, 0);
    }
  }
}

void CorruptionTracker::resynced(std::size_t feature, HealCause cause, double t, U64 resync,
                                 U64 finding) {
  for (std::size_t i : open_) {
    Corruption& c = all_[i];
    if (c.feature != feature) continue;
    if (cause == HealCause::audit) c.foundByAudit = true;
    causeIs(c, cause, t, finding);
    // A cause waiting for its resync (the standby's return) adopts it.
    if (c.cause == cause && c.resync == 0) c.resync = resync;
  }
}

void CorruptionTracker::resyncFinished(U64 resync, double t) {
  for (std::size_t k = 0; k < open_.size();) {
    Corruption& c = all_[open_[k]];
    if (c.resync != resync) {
      ++k;
    } else if (byteHealed(c)) {
      healedIs(k, t);
    } else {
      ++failedHeals_[static_cast<int>(c.cause)];
      ++c.failedResyncs;
      c.cause = HealCause::none;
      c.finding = 0;
      c.resync = 0;
      ++k;
    }
  }
}

void CorruptionTracker::standbyLost(double t) {
  for (std::size_t i : open_) {
    Corruption& c = all_[i];
    c.cause = HealCause::none;
    c.resync = 0;
    causeIs(c, HealCause::standbyReturn, t, 0);
  }
}

bool CorruptionTracker::byteHealed(const Corruption& c) const {
  const U8* remote = remote_(c.feature);
  const U8* local = local_(c.feature);
  return remote != nullptr && local != nullptr && remote[c.offset] == local[c.offset];
}

void CorruptionTracker::healedIs(std::size_t openIndex, double t) {
  Corruption& c = all_[open_[openIndex]];
  c.healed = true;
  c.healedAt = t;
  if (c.cause == HealCause::none) c.cause = HealCause::chunkCopy;
  open_[openIndex] = open_.back();
  open_.pop_back();
}

void CorruptionTracker::checkHealed(double t) {
  for (std::size_t k = 0; k < open_.size();) {
    if (byteHealed(all_[open_[k]])) {
      healedIs(k, t);
    } else {
      ++k;
    }
  }
}

std::size_t CorruptionTracker::outstandingIn(std::size_t feature) const {
  std::size_t n = 0;
  for (std::size_t i : open_) n += all_[i].feature == feature ? 1 : 0;
  return n;
}

CorruptionTracker::Summary CorruptionTracker::summary() const {
  Summary s;
  std::set<U64> findings;
  s.injected = all_.size();
  for (const Corruption& c : all_) {
    if (!c.healed) continue;
    ++s.healed;
    ++s.healedBy[static_cast<int>(c.cause)];
    if (c.cause == HealCause::audit) {
      ++s.foundByAudit;
      findings.insert(c.finding);
    } else {
      ++s.healedOtherwise;
    }
  }
  s.outstanding = s.injected - s.healed;
  s.failedHeals = failedHeals_;
  s.auditFindings = findings.size();
  return s;
}

}  // namespace MorvikSim
