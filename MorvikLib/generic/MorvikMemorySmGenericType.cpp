#include "MorvikLib/generic/MorvikMemorySmGenericType.h"

#include "Kel/GenericTableType.h"
#include "Morvik/GenericRecordTypes.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace MorvikLib {

std::unique_ptr<Kel::GenericType> morvikMemorySmGenericType() {
  using S = MorvikMemorySm;
  auto t = Kel::GenericTableType<S>::create(
      Kel::GenericType::Kind::refCounted, &morvikMemorySmFactory,
      {"name", "morvikStatus", "morvikManifest", "morvikAudit", "morvikAuditRequest",
       "morvikAuditRequests", "morvikMemory"});
  t->readable("name", &S::name);
  KEL_GENERIC_SETTABLE(*t, morvikStatus);
  KEL_GENERIC_SETTABLE(*t, morvikManifest);
  KEL_GENERIC_SETTABLE(*t, morvikAudit);
  t->readable("morvikAuditRequest", &S::morvikAuditRequest);
  KEL_GENERIC_SETTABLE(*t, morvikAuditRequests);
  KEL_GENERIC_SETTABLE(*t, morvikMemory);
  t->function("handleLocalMemoryChange", &S::handleLocalMemoryChange);
  t->function("handleRemoteMemoryChange", &S::handleRemoteMemoryChange);
  t->function("handleMorvikRemoteMemVersion", &S::handleMorvikRemoteMemVersion);
  t->function("handleSupStateChange", &S::handleSupStateChange);
  t->function("resetAuditSm", static_cast<void (S::*)(const Kel::Name&)>(&S::resetAuditSm),
              {"name"});
  KEL_GENERIC_SETTABLE(*t, morvikAuditSm);
  KEL_GENERIC_SETTABLE(*t, deletion);
  t->function("handleDeletion", &S::handleDeletion);
  KEL_GENERIC_SETTABLE(*t, initialized);
  t->function("handleInitialized", &S::handleInitialized);
  KEL_GENERIC_SETTABLE(*t, wrClock);
  t->function("scheduleClockTimeout", &S::scheduleClockTimeout);
  t->function("overlap", &S::overlap, {"start1", "size1", "start2", "size2"});
  t->function("setWriteAccess", &S::setWriteAccess, {"dest", "size", "prot"});
  return t;
}

}  // namespace MorvikLib
