#ifndef MORVIKLIB_MORVIKAUDITSMREACTORS_H
#define MORVIKLIB_MORVIKAUDITSMREACTORS_H

// The audit state machine's reactors. Unlike the memory state machine's, they are re-pointed
// rather than replaced, and re-pointing one at a new input runs its handler once, as if the
// watched attribute had changed.

#include "Kel/Reactor.h"
#include "MorvikLib/MorvikAuditSm.h"

namespace MorvikLib {

template <class Notifiee>
class AuditReactor : public Kel::Reactor<MorvikAuditSm, Notifiee> {
 public:
  using Kel::Reactor<MorvikAuditSm, Notifiee>::Reactor;

  void notifierIs(const Kel::Ptr<Kel::PtrInterface const>& candidate) override {
    if (this->notifierCast(candidate.ptr()) == this->notifierEntity().ptr()) return;
    Kel::EntityNotifiee::notifierIs(candidate);
    if (this->notifierEntity() && !this->zombie()) run();
    this->isRegisteredNotifieeIs(true);
  }

 protected:
  // The machine stays alive until its handler returns, even when the handler's own doing
  // (a watcher of the request, say) drops the last reference to it.
  void run() {
    Kel::Ptr<MorvikAuditSm> hold(this->owner());
    react();
  }
  virtual void react() = 0;
};

class MorvikAuditSm::KelMorvikStatus : public AuditReactor<Morvik::Status::NotifieeConst> {
 public:
  using AuditReactor::AuditReactor;
  void onFeatureAuditTrigger() override { run(); }

 protected:
  void react() override { owner()->handleFeatureAuditTrigger(); }
};

// Keeps the audit referenced; reacts to nothing.
class MorvikAuditSm::KelMorvikAudit
    : public Kel::Reactor<MorvikAuditSm, Morvik::Audit::NotifieeConst> {
 public:
  using Reactor::Reactor;
};

class MorvikAuditSm::KelAuditStatus : public AuditReactor<Morvik::AuditStatus::NotifieeConst> {
 public:
  using AuditReactor::AuditReactor;
  void onResyncTrigger() override { run(); }

 protected:
  void react() override { owner()->handleAuditResync(); }
};

class MorvikAuditSm::KelClock : public AuditReactor<Kel::Clock::NotifieeConst> {
 public:
  using AuditReactor::AuditReactor;
  void onTime() override { run(); }

 protected:
  void react() override { owner()->handleAuditClockTimeout(); }
};

}  // namespace MorvikLib

#endif
