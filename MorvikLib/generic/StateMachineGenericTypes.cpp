#include "MorvikLib/generic/StateMachineGenericTypes.h"

#include "Kel/GenericTableType.h"
#include "Morvik/GenericRecordTypes.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace MorvikLib {

namespace {

// A script holds a state machine as a counted object, not as an entity.
constexpr auto kStateMachine = Kel::GenericType::Kind::refCounted;

}  // namespace

std::unique_ptr<Kel::GenericType> morvikMemorySmGenericType() {
  using S = MorvikMemorySm;
  auto t = Kel::GenericTableType<S>::create(
      &morvikMemorySmFactory,
      {"name", "morvikStatus", "morvikManifest", "morvikAudit", "morvikAuditRequest",
       "morvikAuditRequests", "morvikMemory"},
      kStateMachine);
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

std::unique_ptr<Kel::GenericType> morvikAuditSmGenericType() {
  using A = MorvikAuditSm;
  auto t =
      Kel::GenericTableType<A>::create(&morvikAuditSmFactory,
                                       {"name", "morvikMemory", "morvikStatus", "morvikManifest",
                                        "auditRequest", "auditStatus", "clock"},
                                       kStateMachine);
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
