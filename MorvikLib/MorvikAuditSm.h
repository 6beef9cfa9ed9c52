#ifndef MORVIKLIB_MORVIKAUDITSM_H
#define MORVIKLIB_MORVIKAUDITSM_H

#include "Kel/Clock.h"
#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
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
class MorvikAuditSm : public Kel::PtrInterface {
 public:
  class KelMorvikStatus;
  class KelMorvikAudit;
  class KelAuditStatus;
  class KelClock;

  MorvikAuditSm(const Kel::Name& name, const Kel::Ptr<MorvikMemory>& memory,
                const Kel::Ptr<Morvik::Status const>& status,
                const Kel::Ptr<Morvik::Manifest const>& manifest,
                const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                const Kel::Ptr<Morvik::AuditStatus const>& auditStatus,
                const Kel::Ptr<Kel::Clock const>& clock);
  ~MorvikAuditSm() override;

  const char* fwkType() const { return kMorvikAuditSmTypeName; }
  const Kel::Name& name() const { return name_; }
  void hasNotificationActiveIs(bool on) override;
  void kelDoZombieReactors(bool zombie);

  const Kel::Ptr<MorvikMemory>& morvikMemory() const { return morvikMemory_; }
  Kel::Ptr<Morvik::Status const> morvikStatus() const;
  const Kel::Ptr<Morvik::Manifest const>& morvikManifest() const { return morvikManifest_; }
  Kel::Ptr<Morvik::Audit> morvikAudit() const;
  const Kel::Ptr<Morvik::AuditRequest>& auditRequest() const { return auditRequest_; }
  Kel::Ptr<Morvik::AuditStatus const> auditStatus() const;
  Kel::Ptr<Kel::Clock const> clock() const;
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
  void morvikStatusIs(const Kel::Ptr<Morvik::Status const>& status);
  void morvikStatusDel() { morvikStatusIs(nullptr); }
  void morvikAuditIs(const Kel::Ptr<Morvik::Audit>& audit);
  void morvikAuditDel() { morvikAuditIs(nullptr); }
  void auditStatusIs(const Kel::Ptr<Morvik::AuditStatus const>& auditStatus);
  void auditStatusDel() { auditStatusIs(nullptr); }
  void clockIs(const Kel::Ptr<Kel::Clock const>& clock);
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

 private:
  template <class F>
  void forEachReactor(F&& f);

  Kel::Name name_;
  Kel::Ptr<MorvikMemory> morvikMemory_;
  Kel::Ptr<KelMorvikStatus> morvikStatus_;
  Kel::Ptr<Morvik::Manifest const> morvikManifest_;
  Kel::Ptr<KelMorvikAudit> morvikAudit_;
  Kel::Ptr<Morvik::AuditRequest> auditRequest_;
  Kel::Ptr<KelAuditStatus> auditStatus_;
  Kel::Ptr<KelClock> clock_;
  double auditInterval_ = 60.0;
  bool auditEnabled_ = true;
  bool initialized_ = false;
  U32 resultRetryCount_ = 0;
  U32 resultRetryCountMax_ = 5;
};

Kel::Ptr<MorvikAuditSm> MorvikAuditSmIs(const Kel::Name& name, const Kel::Ptr<MorvikMemory>& memory,
                                        const Kel::Ptr<Morvik::Status const>& status,
                                        const Kel::Ptr<Morvik::Manifest const>& manifest,
                                        const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                        const Kel::Ptr<Morvik::AuditStatus const>& auditStatus,
                                        const Kel::Ptr<Kel::Clock const>& clock);

Kel::Ptr<MorvikAuditSm> morvikAuditSmFactory(Kel::Name name, const Kel::Ptr<MorvikMemory>& memory,
                                             const Kel::Ptr<Morvik::Status const>& status,
                                             const Kel::Ptr<Morvik::Manifest const>& manifest,
                                             const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                             const Kel::Ptr<Morvik::AuditStatus const>& auditStatus,
                                             const Kel::Ptr<Kel::Clock const>& clock);

}  // namespace MorvikLib

#endif
