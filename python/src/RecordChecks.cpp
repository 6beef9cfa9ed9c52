// A change of a shared record runs the handlers of the state machines that watch it, inside the
// setter: those handlers are checked here, on the record as the change leaves it.
#include "Checks.h"
#include "LiveObjects.h"
#include "Morvik/Audit.h"
#include "StateMachineModel.h"

namespace morvikpy {

namespace {

using Kel::GenericValue;
using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemorySm;

const Kel::PtrInterface* objectOf(const GenericValue& value) {
  return value.object().ptr();
}

Check machine(const Check& check, const std::string& name, const char* handler) {
  return check.within("state machine '" + name + "', " + handler);
}

// Every memory state machine whose input `input(sm)` is the record.
template <class Input, class Model>
void forMemoryMachines(const GenericValue& record, Input input, Model model) {
  for (const auto& sm : LiveObjects::memoryStateMachines()) {
    if (input(*sm) == objectOf(record)) model(*sm);
  }
}

template <class Input, class Model>
void forAudits(const GenericValue& record, Input input, Model model) {
  for (const auto& audit : LiveObjects::auditStateMachines()) {
    if (input(*audit) == objectOf(record)) model(*audit);
  }
}

const Kel::PtrInterface* statusOf(const MorvikMemorySm& sm) {
  return sm.morvikStatus().ptr();
}

template <class R>
const R& recordOf(const GenericValue& self) {
  return *self.as<Kel::Ptr<R>>();
}

After activeSupe(const Check& check, const GenericValue& self, const GenericValue& value) {
  const U32 role = value.as<U32>();
  if (role == static_cast<U32>(recordOf<Morvik::Status>(self).activeSupe())) return {};
  forMemoryMachines(self, statusOf, [&](const MorvikMemorySm& sm) {
    MemorySmInputs in = MemorySmInputs::of(sm);
    in.activeSupe = role;
    checkSupStateHandler(machine(check, in.name, "handleSupStateChange"), in);
  });
  return {};
}

After remoteMemory(const Check& check, const GenericValue& self, const GenericValue& value) {
  const auto range = value.as<Kel::Ptr<Morvik::Region const>>();
  if (range == recordOf<Morvik::Status>(self).remoteMemory()) return {};
  forMemoryMachines(self, statusOf, [&](const MorvikMemorySm& sm) {
    MemorySmInputs in = MemorySmInputs::of(sm);
    in.remoteRange = range;
    checkVersionHandler(machine(check, in.name, "handleMorvikRemoteMemVersion"), in);
  });
  return {};
}

After featureAuditTrigger(const Check& check, const GenericValue& self, const GenericValue& value) {
  const U32 trigger = value.as<U32>();
  if (trigger == recordOf<Morvik::Status>(self).featureAuditTrigger()) return {};
  forAudits(
      self, [](const MorvikAuditSm& a) { return a.morvikStatus().ptr(); },
      [&](const MorvikAuditSm& audit) {
        AuditInputs in = AuditInputs::of(audit);
        in.featureAuditTrigger = trigger;
        checkAuditTrigger(check.within("audit '" + audit.name().string().stdString() +
                                       "', handleFeatureAuditTrigger"),
                          in);
      });
  return {};
}

After manifestLocalMemory(const Check& check, const GenericValue& self, const GenericValue& value) {
  const auto range = value.as<Kel::Ptr<Morvik::Region const>>();
  if (range == recordOf<Morvik::Manifest>(self).localMemory()) return {};
  forMemoryMachines(
      self, [](const MorvikMemorySm& sm) { return sm.morvikManifest().ptr(); },
      [&](const MorvikMemorySm& sm) {
        MemorySmInputs in = MemorySmInputs::of(sm);
        in.localRange = range;
        checkLocalMemoryChange(machine(check, in.name, "handleLocalMemoryChange"), in);
      });
  return {};
}

After auditStatusMember(const Check& check, const GenericValue& self, const GenericValue&,
                        const GenericValue*) {
  forMemoryMachines(
      self, [](const MorvikMemorySm& sm) { return sm.morvikAudit().ptr(); },
      [&](const MorvikMemorySm& sm) {
        const MemorySmInputs in = MemorySmInputs::of(sm);
        checkResetAudit(machine(check, in.name, "resetAuditSm"), in, true);
      });
  return {};
}

After resyncTrigger(const Check& check, const GenericValue& self, const GenericValue& value) {
  if (value.as<U32>() == recordOf<Morvik::AuditStatus>(self).resyncTrigger()) return {};
  forAudits(
      self, [](const MorvikAuditSm& a) { return a.auditStatus().ptr(); },
      [&](const MorvikAuditSm& audit) {
        checkAuditResync(
            check.within("audit '" + audit.name().string().stdString() + "', handleAuditResync"),
            AuditInputs::of(audit));
      });
  return {};
}

}  // namespace

std::map<std::string, TypeChecks> recordChecks() {
  std::map<std::string, TypeChecks> checks;
  checks["Morvik::Status"].sets = {{"activeSupe", activeSupe},
                                   {"remoteMemory", remoteMemory},
                                   {"featureAuditTrigger", featureAuditTrigger}};
  checks["Morvik::Manifest"].sets = {{"localMemory", manifestLocalMemory}};
  checks["Morvik::Audit"].members = {{"auditStatus", auditStatusMember}};
  checks["Morvik::AuditStatus"].sets = {{"resyncTrigger", resyncTrigger}};
  return checks;
}

}  // namespace morvikpy
