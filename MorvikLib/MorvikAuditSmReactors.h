#ifndef MORVIKLIB_MORVIKAUDITSMREACTORS_H
#define MORVIKLIB_MORVIKAUDITSMREACTORS_H

// The audit state machine's reactors. Unlike the memory state machine's, they are re-pointed
// rather than replaced, and re-pointing one at a new input runs its handler once.

#include "Kel/Reactor.h"
#include "MorvikLib/MorvikAuditSm.h"

namespace MorvikLib {

class MorvikAuditSm::KelMorvikStatus
    : public Kel::RepointedReactor<MorvikAuditSm, Morvik::Status::NotifieeConst,
                                   &MorvikAuditSm::handleFeatureAuditTrigger> {
 public:
  using RepointedReactor::RepointedReactor;
  void onFeatureAuditTrigger() override { run(); }
};

// Keeps the audit referenced; reacts to nothing.
class MorvikAuditSm::KelMorvikAudit
    : public Kel::Reactor<MorvikAuditSm, Morvik::Audit::NotifieeConst> {
 public:
  using Reactor::Reactor;
};

class MorvikAuditSm::KelAuditStatus
    : public Kel::RepointedReactor<MorvikAuditSm, Morvik::AuditStatus::NotifieeConst,
                                   &MorvikAuditSm::handleAuditResync> {
 public:
  using RepointedReactor::RepointedReactor;
  void onResyncTrigger() override { run(); }
};

class MorvikAuditSm::KelClock
    : public Kel::RepointedReactor<MorvikAuditSm, Kel::Clock::NotifieeConst,
                                   &MorvikAuditSm::handleAuditClockTimeout> {
 public:
  using RepointedReactor::RepointedReactor;
  void onTime() override { run(); }
};

}  // namespace MorvikLib

#endif
