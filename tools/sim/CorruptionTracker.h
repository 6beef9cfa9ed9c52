#ifndef MORVIK_SIM_CORRUPTIONTRACKER_H
#define MORVIK_SIM_CORRUPTIONTRACKER_H

#include <array>
#include <cstddef>
#include <functional>
#include <vector>

#include "HealCause.h"
#include "Kel/Types.h"

namespace MorvikSim {

// One byte of the standby's copy that the simulator changed behind the mirror's back.
struct Corruption {
  std::size_t feature = 0;
  U32 offset = 0;
  double injectedAt = 0.0;
  // The first thing that set out to rewrite the byte; a later one does not take the credit.
  HealCause cause = HealCause::none;
  double causeAt = 0.0;
  // The audit repair that found it (1, 2, ...), when cause is audit.
  U64 finding = 0;
  // The resync that is to heal it (the monitor's number for it), 0 while none is under way.
  U64 resync = 0;
  // Resyncs that finished and left the byte wrong.
  U32 failedResyncs = 0;
  // Whether the audit ever found it (also when its repair did not heal it).
  bool foundByAudit = false;
  bool healed = false;
  double healedAt = 0.0;
};

// Follows every injected corruption until the two copies agree on its byte again, and records what
// healed it. The mirror heals asynchronously (a resync only marks chunks; the copier rewrites them
// on later passes), so causes are noted when they happen and the bytes are compared afterwards.
// The first cause takes the credit, unless it is a resync that finishes and leaves the byte wrong:
// then it counts as a failed heal and the next cause may take the credit.
class CorruptionTracker {
 public:
  // Feature i's bytes in the active's memory, and in the standby's copy (null while it is away).
  using Bytes = std::function<const U8*(std::size_t)>;

  struct Summary {
    U64 injected = 0;
    U64 healed = 0;
    U64 outstanding = 0;
    U64 foundByAudit = 0;
    // Distinct audit repairs that found at least one corruption: two corruptions found by one
    // repair are one finding.
    U64 auditFindings = 0;
    U64 healedOtherwise = 0;
    std::array<U64, kHealCauses> healedBy{};
    // Resyncs, by cause, that finished and left a corruption in place.
    std::array<U64, kHealCauses> failedHeals{};
  };

  CorruptionTracker(Bytes local, Bytes remote)
      : local_(std::move(local)), remote_(std::move(remote)) {}

  void injected(std::size_t feature, U32 offset, double t);
  // A write covered [offset, offset + size) of the feature.
  void covered(std::size_t feature, U32 offset, U32 size, double t);
  // Resync number `resync` set every chunk of the feature to be rewritten.
  void resynced(std::size_t feature, HealCause cause, double t, U64 resync, U64 finding = 0);
  // Resync number `resync` has copied its last chunk.
  void resyncFinished(U64 resync, double t);
  // The standby's memory went, with every corruption in it: only the resync after it returns can
  // put those bytes right.
  void standbyLost(double t);

  // Compares the byte of every outstanding corruption; call after each activity pass.
  void checkHealed(double t);

  std::size_t outstandingIn(std::size_t feature) const;
  std::size_t outstanding() const { return open_.size(); }
  const std::vector<Corruption>& corruptions() const { return all_; }
  Summary summary() const;

 private:
  void causeIs(Corruption& c, HealCause cause, double t, U64 finding);
  bool byteHealed(const Corruption& c) const;
  void healedIs(std::size_t openIndex, double t);

  Bytes local_;
  Bytes remote_;
  std::vector<Corruption> all_;
  // Indices into all_ of the corruptions not yet healed.
  std::vector<std::size_t> open_;
  std::array<U64, kHealCauses> failedHeals_{};
};

}  // namespace MorvikSim

#endif
