#ifndef MORVIKLIB_MORVIKMEMORYSMREACTORS_H
#define MORVIKLIB_MORVIKMEMORYSMREACTORS_H

// The memory state machine's reactors: one notifiee per input, each overriding only the handlers
// the state machine reacts to. A new input replaces the reactor.

#include "Kel/Reactor.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace MorvikLib {

class MorvikMemorySm::KelMorvikStatus
    : public Kel::Reactor<MorvikMemorySm, Morvik::Status::NotifieeConst> {
 public:
  using Reactor::Reactor;
  void onActiveSupe() override { react(&MorvikMemorySm::handleSupStateChange); }
  void onRemoteMemory() override { react(&MorvikMemorySm::handleMorvikRemoteMemVersion); }
};

class MorvikMemorySm::KelMorvikManifest
    : public Kel::Reactor<MorvikMemorySm, Morvik::Manifest::NotifieeConst> {
 public:
  using Reactor::Reactor;
  void onLocalMemory() override { react(&MorvikMemorySm::handleLocalMemoryChange); }
};

class MorvikMemorySm::KelMorvikAudit
    : public Kel::Reactor<MorvikMemorySm, Morvik::Audit::NotifieeConst> {
 public:
  using Reactor::Reactor;
  void onAuditStatus(const Kel::Name& name) override {
    react<const Kel::Name&>(&MorvikMemorySm::resetAuditSm, name);
  }
};

// Keeps the directory of audit requests referenced; reacts to nothing.
class MorvikMemorySm::KelMorvikAuditRequests
    : public Kel::Reactor<MorvikMemorySm, Kel::Dir::NotifieeConst> {
 public:
  using Reactor::Reactor;
};

class MorvikMemorySm::KelMorvikMemory
    : public Kel::Reactor<MorvikMemorySm, MorvikMemory::NotifieeConst> {
 public:
  using Reactor::Reactor;
  void onRemoteCopyPending() override { react(&MorvikMemorySm::scheduleClockTimeout); }
  void onRemoteCopyChunkSize() override {
    react(&MorvikMemorySm::kel_handleMorvikMemory_remoteCopyChunkSize);
  }
};

class MorvikMemorySm::KelWrClock : public Kel::Reactor<MorvikMemorySm, Kel::Clock::NotifieeConst> {
 public:
  using Reactor::Reactor;
  void onTime() override { react(&MorvikMemorySm::kel_handleWrClock_time); }
};

}  // namespace MorvikLib

#endif
