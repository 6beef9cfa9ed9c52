#ifndef MORVIKLIB_MORVIKAUDITSM_H
#define MORVIKLIB_MORVIKAUDITSM_H

#include <array>
#include <utility>

#include "Kel/Clock.h"
#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kel/Reactor.h"
#include "Kel/Types.h"
#include "Morvik/Audit.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/Manifest.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/TypeNames.h"

namespace MorvikLib {

// Audits one mirrored memory on the active supervisor: every auditInterval it checksums local
// memory, hands the checksum to the standby through the audit request, and repairs the standby's
// copy when the standby reports a mismatch for the current cycle.
class MorvikAuditSm : public Kel::StateMachine<MorvikAuditSm, Kel::PtrInterface> {
 public:
  class KelMorvikStatus;
  class KelMorvikAudit;
  class KelAuditStatus;
  class KelClock;
  using MemoryIn = Kel::Ptr<MorvikMemory>;
  using StatusIn = Kel::Ptr<Morvik::Status const>;
  using ManifestIn = Kel::Ptr<Morvik::Manifest const>;
  using AuditRequestIn = Kel::Ptr<Morvik::AuditRequest>;
  using AuditStatusIn = Kel::Ptr<Morvik::AuditStatus const>;
  using ClockIn = Kel::Ptr<Kel::Clock const>;

  MorvikAuditSm(const Kel::Name& name, const MemoryIn& memory, const StatusIn& status,
                const ManifestIn& manifest, const AuditRequestIn& auditRequest,
                const AuditStatusIn& auditStatus, const ClockIn& clock);
  ~MorvikAuditSm() override;

  const char* fwkType() const { return kMorvikAuditSmTypeName; }
  const Kel::Name& name() const { return name_; }

  const MemoryIn& morvikMemory() const { return morvikMemory_; }
  StatusIn morvikStatus() const;
  const ManifestIn& morvikManifest() const { return morvikManifest_; }
  Kel::Ptr<Morvik::Audit> morvikAudit() const;
  const AuditRequestIn& auditRequest() const { return auditRequest_; }
  AuditStatusIn auditStatus() const;
  ClockIn clock() const;
  // The reactor objects themselves, for tests and the generic interface.
  const Kel::Ptr<KelMorvikStatus>& morvikStatusReactor() const { return morvikStatus_; }
  const Kel::Ptr<KelMorvikAudit>& morvikAuditReactor() const { return morvikAudit_; }
  const Kel::Ptr<KelAuditStatus>& auditStatusReactor() const { return auditStatus_; }
  const Kel::Ptr<KelClock>& clockReactor() const { return clock_; }
  double auditInterval() const { return auditInterval_; }
  bool auditEnabled() const { return auditEnabled_; }
  bool initialized() const { return initialized_; }
  U32 resultRetryCount() const { return resultRetryCount_; }
  U32 resultRetryCountMax() const { return resultRetryCountMax_; }

  // Reactor setters: the current input does nothing, null drops the reactor, another input
  // re-points the existing reactor (which runs its handler once) or creates one.
  void morvikStatusIs(const StatusIn& status);
  void morvikStatusDel() { morvikStatusIs(nullptr); }
  void morvikAuditIs(const Kel::Ptr<Morvik::Audit>& audit);
  void morvikAuditDel() { morvikAuditIs(nullptr); }
  void auditStatusIs(const AuditStatusIn& auditStatus);
  void auditStatusDel() { auditStatusIs(nullptr); }
  void clockIs(const ClockIn& clock);
  void clockDel() { clockIs(nullptr); }

  // Plain setters: they store and do nothing else.
  void auditIntervalIs(const double& value) { auditInterval_ = value; }
  void auditEnabledIs(bool value) { auditEnabled_ = value; }
  void initializedIs(bool value) { initialized_ = value; }
  void resultRetryCountIs(U32 value) { resultRetryCount_ = value; }
  void resultRetryCountInc(U32 n) { resultRetryCount_ += n; }
  void resultRetryCountMaxIs(U32 value) { resultRetryCountMax_ = value; }

  void handleInitialized();
  void handleAuditClockTimeout();
  void handleFeatureAuditTrigger();
  void handleAuditResync();
  void auditMemory();
  U64 computeChecksum();

  // In the order notification and zombie changes reach them.
  std::array<Kel::Ptr<Kel::EntityNotifiee>, 4> reactors() const;

 private:
  Kel::Name name_;
  MemoryIn morvikMemory_;
  Kel::Ptr<KelMorvikStatus> morvikStatus_;
  ManifestIn morvikManifest_;
  Kel::Ptr<KelMorvikAudit> morvikAudit_;
  AuditRequestIn auditRequest_;
  Kel::Ptr<KelAuditStatus> auditStatus_;
  Kel::Ptr<KelClock> clock_;
  double auditInterval_ = 60.0;
  bool auditEnabled_ = true;
  bool initialized_ = false;
  U32 resultRetryCount_ = 0;
  U32 resultRetryCountMax_ = 5;
};

// Creates the machine the framework's way (allocation tracking, construction, then notification
// on, which reaches the reactors in the order above); "null ValidPtr" when none was made.
template <class... Inputs>
Kel::Ptr<MorvikAuditSm> MorvikAuditSmIs(Inputs&&... inputs) {
  return Kel::stateMachineNew<MorvikAuditSm>(std::forward<Inputs>(inputs)...);
}

inline Kel::Ptr<MorvikAuditSm> morvikAuditSmFactory(
    Kel::Name name, const MorvikAuditSm::MemoryIn& memory, const MorvikAuditSm::StatusIn& status,
    const MorvikAuditSm::ManifestIn& manifest, const MorvikAuditSm::AuditRequestIn& auditRequest,
    const MorvikAuditSm::AuditStatusIn& auditStatus, const MorvikAuditSm::ClockIn& clock) {
  return MorvikAuditSmIs(name, memory, status, manifest, auditRequest, auditStatus, clock);
}

}  // namespace MorvikLib

#endif
