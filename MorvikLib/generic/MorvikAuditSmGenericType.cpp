#include "MorvikLib/generic/MorvikAuditSmGenericType.h"

#include "Kel/GenericTableType.h"
#include "Morvik/GenericRecordTypes.h"
#include "MorvikLib/MorvikAuditSm.h"

namespace MorvikLib {

std::unique_ptr<Kel::GenericType> morvikAuditSmGenericType() {
  using A = MorvikAuditSm;
  auto t =
      Kel::GenericTableType<A>::create(Kel::GenericType::Kind::refCounted, &morvikAuditSmFactory,
                                       {"name", "morvikMemory", "morvikStatus", "morvikManifest",
                                        "auditRequest", "auditStatus", "clock"});
  t->readable("name", &A::name);
  t->readable("morvikMemory", &A::morvikMemory);
  KEL_GENERIC_SETTABLE(*t, morvikStatus);
  t->readable("morvikManifest", &A::morvikManifest);
  KEL_GENERIC_SETTABLE(*t, morvikAudit);
  t->readable("auditRequest", &A::auditRequest);
  KEL_GENERIC_SETTABLE(*t, auditStatus);
  KEL_GENERIC_SETTABLE(*t, clock);
  t->function("auditMemory", &A::auditMemory);
  t->function("handleAuditClockTimeout", &A::handleAuditClockTimeout);
  t->function("handleAuditResync", &A::handleAuditResync);
  KEL_GENERIC_SETTABLE(*t, auditInterval);
  KEL_GENERIC_SETTABLE(*t, auditEnabled);
  t->function("computeChecksum", &A::computeChecksum);
  t->function("handleFeatureAuditTrigger", &A::handleFeatureAuditTrigger);
  KEL_GENERIC_SETTABLE(*t, initialized);
  t->function("handleInitialized", &A::handleInitialized);
  KEL_GENERIC_SETTABLE(*t, resultRetryCount);
  KEL_GENERIC_SETTABLE(*t, resultRetryCountMax);
  return t;
}

}  // namespace MorvikLib
