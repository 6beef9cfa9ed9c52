// The checks of MorvikLib::MorvikMemorySm and MorvikLib::MorvikAuditSm: their construction, their
// handlers called by name, and the inputs set on them.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>

#include "Assertions.h"
#include "Checks.h"
#include "Kel/System.h"
#include "MemoryModel.h"
#include "StateMachineModel.h"

namespace morvikpy {

namespace {

using Kel::GenericValue;
using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemory;
using MorvikLib::MorvikMemorySm;

template <class T>
Kel::Ptr<T> objectOf(const GenericValue& value) {
  return value.as<Kel::Ptr<T>>();
}

MorvikMemorySm& smOf(const GenericValue& self) {
  return *objectOf<MorvikMemorySm>(self);
}

MorvikAuditSm& auditOf(const GenericValue& self) {
  return *objectOf<MorvikAuditSm>(self);
}

// A handler of the memory state machine, called by name, checked on its current inputs.
TypeChecks::Call smHandler(void (*model)(const Check&, const MemorySmInputs&)) {
  return [model](const Check& check, const GenericValue& self, const Args&) {
    model(check, MemorySmInputs::of(smOf(self)));
    return After();
  };
}

After constructMemorySm(const Check& check, const Args& a) {
  MemorySmInputs in;
  in.name = a[0].as<Kel::Name>().string().stdString();
  in.statusIs(a[1].as<Kel::Ptr<Morvik::Status const>>());
  in.manifestIs(a[2].as<Kel::Ptr<Morvik::Manifest const>>());
  in.audit = !a[3].isNull();
  in.auditRequest = !a[4].isNull();
  in.memory = a[6].as<Kel::Ptr<MorvikMemory>>();
  requireInput(check, static_cast<bool>(in.status), "argument 2 (Morvik::Status morvikStatus)");
  requireInput(check, static_cast<bool>(in.manifest),
               "argument 3 (Morvik::Manifest morvikManifest)");
  requireInput(check, static_cast<bool>(in.memory),
               "argument 7 (MorvikLib::MorvikMemory morvikMemory)");
  checkInitialization(check.within("handleInitialized"), in);
  return {};
}

After resetAuditSm(const Check& check, const GenericValue& self, const Args&) {
  checkResetAudit(check, MemorySmInputs::of(smOf(self)), true);
  return {};
}

bool validProtection(int prot) {
  return (prot & ~(PROT_READ | PROT_WRITE)) == 0;
}

After setWriteAccess(const Check& check, const GenericValue& self, const Args& a) {
  const MemorySmInputs in = MemorySmInputs::of(smOf(self));
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  const MemoryView view = MemoryView::of(*in.memory);
  const U64 dest = a[0].as<U64>();
  const U32 size = a[1].as<U32>();
  const int prot = a[2].as<int>();
  check.require(validProtection(prot), "protection " + std::to_string(prot) +
                                           " is not PROT_NONE, PROT_READ, PROT_WRITE or both");
  const U64 page = static_cast<U64>(sysconf(_SC_PAGESIZE));
  check.require(dest % page == 0,
                "address " + hex(dest) + " is not page-aligned (" + std::to_string(page) +
                    " bytes); mprotect would refuse",
                assertion::kProtected);
  // getShadow's choice: the remote region first, by the start address alone.
  for (const MemorySide* side : {&view.remote, &view.local}) {
    const U64 start = side->primary.vaddr();
    if (!side->mapped() || dest < start || dest - start >= side->size()) continue;
    const bool remote = side == &view.remote;
    checkWithin(check, *side, dest - start, size,
                remote ? assertion::kRemoteEnd : assertion::kLocalEnd);
    if (remote) {
      check.require(size <= view.chunk, "a remote range longer than a chunk",
                    assertion::kRemoteChunk);
    }
    const U64 shadow = dest - start + side->shadow.vaddr();
    check.require(
        shadow % page == 0 && check.maps().covers(shadow, size, ProcessMaps::Access::none),
        "the shadow of that range, at " + hex(shadow) + ", is not mapped whole pages",
        assertion::kProtected);
    return {};
  }
  check.fail("range " + byteRange(dest, size) + " does not start inside local or remote memory");
}

using Apply = void (*)(MemorySmInputs&, const GenericValue&);

TypeChecks::Set smInput(const char* input, Apply apply) {
  return [input, apply](const Check& check, const GenericValue& self, const GenericValue& value) {
    requireInput(check, !value.isNull(), std::string("the new ") + input);
    const MemorySmInputs before = MemorySmInputs::of(smOf(self));
    MemorySmInputs in = before;
    apply(in, value);
    // A new manifest or memory runs handleLocalMemoryChange.
    if (in.manifest.ptr() != before.manifest.ptr() || in.memory.ptr() != before.memory.ptr()) {
      checkLocalMemoryChange(check.within("handleLocalMemoryChange"), in);
    }
    return After();
  };
}

After setAudit(const Check& check, const GenericValue& self, const GenericValue& value) {
  const MemorySmInputs in = MemorySmInputs::of(smOf(self));
  check.require(value.isNull() != in.auditRequest,
                "the audit and the audit request must be given together or not at all (the "
                "audit request is " +
                    std::string(in.auditRequest ? "set" : "None") + ")",
                assertion::kAuditPair);
  return {};
}

After setAuditSm(const Check& check, const GenericValue& self, const GenericValue& value) {
  check.require(value.isNull() || MemorySmInputs::of(smOf(self)).audit,
                "an audit state machine needs the audit record (morvikAudit is None)",
                assertion::kNoAuditSm);
  return {};
}

// The audit state machine.

AuditInputs auditInputs(const GenericValue& self) {
  return AuditInputs::of(auditOf(self));
}

TypeChecks::Call auditHandler(void (*model)(const Check&, const AuditInputs&)) {
  return [model](const Check& check, const GenericValue& self, const Args&) {
    model(check, auditInputs(self));
    return After();
  };
}

After constructAudit(const Check& check, const Args& a) {
  static const char* const kInputs[] = {nullptr,
                                        "argument 2 (MorvikLib::MorvikMemory morvikMemory)",
                                        "argument 3 (Morvik::Status morvikStatus)",
                                        "argument 4 (Morvik::Manifest morvikManifest)",
                                        "argument 5 (Morvik::AuditRequest auditRequest)",
                                        "argument 6 (Morvik::AuditStatus auditStatus)"};
  for (std::size_t i = 1; i <= 5; ++i) requireInput(check, !a[i].isNull(), kInputs[i]);
  return {};
}

// A new input re-points the audit's reactor, which runs its handler once.
TypeChecks::Set auditInput(const char* input, bool optional,
                           void (*model)(const Check&, const AuditInputs&, const GenericValue&)) {
  return [input, optional, model](const Check& check, const GenericValue& self,
                                  const GenericValue& value) {
    if (value.isNull()) {
      requireInput(check, optional, std::string("the new ") + input);
      return After();
    }
    model(check, auditInputs(self), value);
    return After();
  };
}

void newStatus(const Check& check, const AuditInputs& current, const GenericValue& value) {
  if (!current.status || current.status.ptr() == value.object().ptr()) return;
  AuditInputs in = current;
  in.statusIs(value.as<Kel::Ptr<Morvik::Status const>>());
  checkAuditTrigger(check.within("handleFeatureAuditTrigger"), in);
}

void newAuditStatus(const Check& check, const AuditInputs& current, const GenericValue& value) {
  if (!current.auditStatus || current.auditStatus.ptr() == value.object().ptr()) return;
  AuditInputs in = current;
  in.auditStatus = value.as<Kel::Ptr<Morvik::AuditStatus const>>();
  checkAuditResync(check.within("handleAuditResync"), in);
}

TypeChecks::Set newClock() {
  return [](const Check& check, const GenericValue& self, const GenericValue& value) {
    const MorvikAuditSm& audit = auditOf(self);
    if (!value.isNull() && audit.clock() && audit.clock().ptr() != value.object().ptr()) {
      checkAuditTick(check.within("handleAuditClockTimeout"), AuditInputs::of(audit));
    }
    return After();
  };
}

After setInterval(const Check& check, const GenericValue&, const GenericValue& value) {
  const double interval = value.as<double>();
  const double now = Kel::System::currentTime();
  check.require(std::isfinite(interval) && interval > 0 && now + interval > now,
                "the audit interval must be a positive number of seconds that moves the clock "
                "on; " +
                    decimal(interval) +
                    " would re-arm the audit at the same time "
                    "forever");
  return {};
}

}  // namespace

TypeChecks memoryStateMachineChecks() {
  TypeChecks checks;
  checks.construct = constructMemorySm;
  checks.calls = {
      {"handleInitialized", smHandler(checkInitialization)},
      {"handleSupStateChange", smHandler(checkSupStateHandler)},
      {"handleMorvikRemoteMemVersion", smHandler(checkVersionHandler)},
      {"handleLocalMemoryChange", smHandler(checkLocalMemoryChange)},
      {"handleRemoteMemoryChange", smHandler(checkRemoteMemoryChange)},
      {"handleDeletion", smHandler(checkSmDeletion)},
      {"resetAuditSm", resetAuditSm},
      {"setWriteAccess", setWriteAccess},
  };
  checks.sets = {
      {"morvikStatus", smInput("status",
                               [](MemorySmInputs& in, const GenericValue& v) {
                                 in.statusIs(v.as<Kel::Ptr<Morvik::Status const>>());
                               })},
      {"morvikManifest", smInput("manifest",
                                 [](MemorySmInputs& in, const GenericValue& v) {
                                   in.manifestIs(v.as<Kel::Ptr<Morvik::Manifest const>>());
                                 })},
      {"morvikMemory", smInput("memory",
                               [](MemorySmInputs& in, const GenericValue& v) {
                                 in.memory = v.as<Kel::Ptr<MorvikMemory>>();
                               })},
      {"morvikAudit", setAudit},
      {"morvikAuditSm", setAuditSm},
  };
  return checks;
}

TypeChecks auditStateMachineChecks() {
  TypeChecks checks;
  checks.construct = constructAudit;
  checks.calls = {
      {"auditMemory", auditHandler(checkAuditMemory)},
      {"handleAuditClockTimeout", auditHandler(checkAuditTick)},
      {"handleAuditResync", auditHandler(checkAuditResync)},
      {"computeChecksum", auditHandler(checkChecksum)},
      {"handleFeatureAuditTrigger", auditHandler(checkAuditTrigger)},
  };
  checks.sets = {
      {"morvikStatus", auditInput("status", false, newStatus)},
      {"auditStatus", auditInput("audit status", false, newAuditStatus)},
      {"clock", newClock()},
      {"auditInterval", setInterval},
  };
  return checks;
}

}  // namespace morvikpy
