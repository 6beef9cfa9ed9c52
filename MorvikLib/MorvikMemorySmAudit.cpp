// Whether an audit exists, decided anew on every role, remote memory or audit status change.
#include "Kel/ActivityManager.h"
#include "Kel/Assert.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {

constexpr const char* kSigReset = "void MorvikLib::MorvikMemorySm::resetAuditSm(Kel::Name)";

template <class T>
Kel::Name nameOrNull(const Kel::Ptr<T>& entity) {
  return entity ? entity->name() : Kel::Name("null");
}

}  // namespace

void MorvikMemorySm::resetAuditSm() {
  if (morvikAudit() && morvikAuditRequest_) resetAuditSm(morvikAuditRequest_->name());
}

void MorvikMemorySm::resetAuditSm(const Kel::Name& triggerName) {
  Kel::Ptr<Morvik::Audit const> audit = morvikAudit();
  Kel::Ptr<Morvik::Status const> status = morvikStatus();
  MORVIK_TRACE(8, "resetAuditSm") << kSigReset << " name " << name_ << " triggerName "
                                  << triggerName << " morvikAudit " << nameOrNull(audit)
                                  << " activeSupe " << status->activeSupe();
  if (!audit) {
    KEL_ASSERT_IN(!morvikAuditSm(), kSigReset);
    return;
  }
  // Role 0 drops the audit; the memory paths test for 2 instead. The asymmetry is deliberate.
  if (status->activeSupe() == Morvik::activeSupeNone) return morvikAuditSmIs(nullptr);
  Kel::Ptr<MorvikMemory> memory = morvikMemory();
  if (!memory->remoteMemoryReady()) return morvikAuditSmIs(nullptr);
  Kel::Name auditName = morvikAuditRequest_->name();
  if (!(triggerName == auditName)) return;
  Kel::Ptr<Morvik::AuditStatus const> entry = audit->auditStatus(auditName);
  MORVIK_TRACE(8, "resetAuditSm") << kSigReset << " name " << name_ << " auditName " << auditName
                                  << " auditStatus " << nameOrNull(entry);
  if (!entry) return morvikAuditSmIs(nullptr);
  // Always a fresh machine: every qualifying change restarts the audit from its initial state.
  morvikAuditSmIs(morvikAuditSmFactory(auditName, memory, status, morvikManifest(),
                                       morvikAuditRequest_, entry,
                                       Kel::activityManager()->config()->clock()));
}

}  // namespace MorvikLib
