#include "StateMachineModel.h"

#include "Assertions.h"
#include "Mappings.h"
#include "Morvik/ActiveSupeType.h"
#include "Morvik/Checksum.h"
#include "SimRegions.h"

namespace morvikpy {

namespace {

using Wide = unsigned __int128;
using MorvikLib::MemoryMapping;

constexpr U32 kStandby = 2;
constexpr U32 kNoRole = 0;

// A side that the handler being checked maps: whether the mapping will come back non-null is
// known, its address is not.
void predictMapped(MemorySide& side, bool mapped, U32 size) {
  const MemoryMapping mapping(Kel::Name("mem"), mapped ? 1 : 0, size, 0, 0);
  side.primary = mapping;
  side.shadow = mapping;
  side.predicted = true;
}

std::string feature(const MemorySmInputs& in, const Morvik::FeatureManifest& entry) {
  return "feature '" + in.name + "' at " + byteRange(entry.byteOffset(), entry.size());
}

}  // namespace

void requireInput(const Check& check, bool present, const std::string& input) {
  check.require(present, input +
                             " is None, and the state machine dereferences it (the process "
                             "would end with a null-pointer fatal error)");
}

MemorySmInputs MemorySmInputs::of(const MorvikLib::MorvikMemorySm& sm) {
  MemorySmInputs in;
  in.name = sm.name().string().stdString();
  in.statusIs(sm.morvikStatus());
  in.manifestIs(sm.morvikManifest());
  in.memory = sm.morvikMemory();
  in.audit = static_cast<bool>(sm.morvikAudit());
  in.auditRequest = static_cast<bool>(sm.morvikAuditRequest());
  in.auditSm = static_cast<bool>(sm.morvikAuditSm());
  return in;
}

void MemorySmInputs::statusIs(const Kel::Ptr<Morvik::Status const>& s) {
  status = s;
  activeSupe = s ? static_cast<U32>(s->activeSupe()) : 0;
  remoteRange = s ? s->remoteMemory() : nullptr;
}

void MemorySmInputs::manifestIs(const Kel::Ptr<Morvik::Manifest const>& m) {
  manifest = m;
  localRange = m ? m->localMemory() : nullptr;
}

void checkInitialization(const Check& check, const MemorySmInputs& in) {
  check.require(in.audit == in.auditRequest,
                "the audit and the audit request must be given together or not at all",
                assertion::kAuditPair);
  // The role is evaluated before and after the mappings, as handleInitialized does.
  checkSupStateHandler(check, in);
  checkVersionHandler(check, in);
}

void checkSupStateHandler(const Check& check, const MemorySmInputs& in) {
  requireInput(check, static_cast<bool>(in.status), "its status");
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  checkResetAudit(check, in, false);
}

void checkVersionHandler(const Check& check, const MemorySmInputs& in) {
  requireInput(check, static_cast<bool>(in.manifest), "its manifest");
  if (!in.manifest->manifest(Kel::Name(in.name)) || !in.memory) return;
  MemoryView view = MemoryView::of(*in.memory);
  checkLocalHandler(check.within("handleLocalMemoryChange"), in, view);
  checkRemoteHandler(check.within("handleRemoteMemoryChange"), in, view);
}

void checkLocalHandler(const Check& check, const MemorySmInputs& in, MemoryView& view) {
  if (!in.memory || view.local.mapped()) return;
  requireInput(check, static_cast<bool>(in.manifest), "its manifest");
  const auto entry = in.manifest->manifest(Kel::Name(in.name));
  if (!entry) return;
  const U32 total = Morvik::morvikSummer(*in.manifest);
  check.require(static_cast<Wide>(entry->byteOffset()) + entry->size() <= total,
                feature(in, *entry) + " reaches past the mirrored memory of the manifest (" +
                    std::to_string(total) + " bytes)",
                assertion::kFeatureInTotal);
  bool mapped = true;
  if (inSimulation()) {
    check.require(in.memory->localMemorySimPaddr() == 0,
                  "the memory's localMemorySimPaddr is already set (" +
                      hex(in.memory->localMemorySimPaddr()) + ") while local memory is unmapped",
                  assertion::kSimPaddrFree);
    const DmaRegion region = dmaRegion("MorvikLocal");
    check.require(
        total != 0 && (!region.exists || (region.usable && region.length >= total)),
        "the DMA region MorvikLocal of " + std::to_string(total) + " bytes cannot be had (" +
            (total == 0 ? std::string("the manifest lays out no bytes")
             : region.usable
                 ? "an existing one holds only " + std::to_string(region.length) + " bytes"
                 : std::string("an unusable one is in the way")) +
            ")",
        assertion::kLocalPaddr);
    mapped = entry->size() != 0;
  } else {
    check.require(static_cast<bool>(in.localRange),
                  "outside simulation the manifest must give the local memory's range "
                  "(its localMemory is None), and the state machine dereferences it");
  }
  predictMapped(view.local, mapped, static_cast<U32>(entry->size()));
}

void checkRemoteHandler(const Check& check, const MemorySmInputs& in, MemoryView& view) {
  requireInput(check, static_cast<bool>(in.status), "its status");
  if (in.activeSupe == kStandby) return;
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  checkUnset(check.within("unsetRemote"), view.remote, assertion::kRemoteShadow, "MorvikRemote");
  view.remote.primary = MemoryMapping();
  const bool simulation = inSimulation();
  const bool usable = in.remoteRange && in.remoteRange->addr().value() != 0 &&
                      (simulation || in.status->peerMemory().value() != 0);
  if (usable) {
    requireInput(check, static_cast<bool>(in.manifest), "its manifest");
    const auto entry = in.manifest->manifest(Kel::Name(in.name));
    check.require(static_cast<bool>(entry), "the manifest has no entry for '" + in.name +
                                                "', and mapping remote memory dereferences it");
    const Wide end = static_cast<Wide>(entry->byteOffset()) + entry->size();
    check.require(end <= in.remoteRange->size(),
                  feature(in, *entry) + " reaches past the peer's range in the status (" +
                      std::to_string(in.remoteRange->size()) + " bytes)",
                  assertion::kFeatureInPeer);
    bool mapped = true;
    if (simulation) {
      const DmaRegion region = dmaRegion("MorvikRemote");
      mapped = region.usable && entry->size() != 0 && end <= region.length;
    }
    predictMapped(view.remote, mapped, static_cast<U32>(entry->size()));
    checkSync(check, view);
  }
  checkResetAudit(check.within("resetAuditSm"), in, false);
}

void checkLocalMemoryChange(const Check& check, const MemorySmInputs& in) {
  if (!in.memory) return;
  MemoryView view = MemoryView::of(*in.memory);
  checkLocalHandler(check, in, view);
}

void checkRemoteMemoryChange(const Check& check, const MemorySmInputs& in) {
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  MemoryView view = MemoryView::of(*in.memory);
  checkRemoteHandler(check, in, view);
}

void checkSmDeletion(const Check& check, const MemorySmInputs& in) {
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  checkMemoryDeletion(check, *in.memory);
}

void checkResetAudit(const Check& check, const MemorySmInputs& in, bool named) {
  if (!named && !(in.audit && in.auditRequest)) return;
  requireInput(check, static_cast<bool>(in.status), "its status");
  if (!in.audit) {
    check.require(!in.auditSm, "an audit state machine is set without an audit record",
                  assertion::kNoAuditSm);
    return;
  }
  if (in.activeSupe == kNoRole) return;
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  if (!in.memory->remoteMemoryReady()) return;
  requireInput(check, in.auditRequest, "its audit request");
}

void checkMemoryDeletion(const Check& check, const MorvikLib::MorvikMemory& memory) {
  const MemoryView view = MemoryView::of(memory);
  checkUnset(check, view.remote, assertion::kRemoteShadow, "MorvikRemote");
  checkUnset(check, view.local, assertion::kLocalShadow, "MorvikLocal");
}

AuditInputs AuditInputs::of(const MorvikLib::MorvikAuditSm& sm) {
  AuditInputs in;
  in.memory = sm.morvikMemory();
  in.statusIs(sm.morvikStatus());
  in.manifest = sm.morvikManifest();
  in.request = sm.auditRequest();
  in.auditStatus = sm.auditStatus();
  in.initialized = sm.initialized();
  in.enabled = sm.auditEnabled();
  in.retry = sm.resultRetryCount();
  in.retryMax = sm.resultRetryCountMax();
  return in;
}

void AuditInputs::statusIs(const Kel::Ptr<Morvik::Status const>& s) {
  status = s;
  activeSupe = s ? static_cast<U32>(s->activeSupe()) : 0;
  featureAuditTrigger = s ? s->featureAuditTrigger() : 0;
}

void checkAuditTick(const Check& check, const AuditInputs& in) {
  check.require(in.status && in.activeSupe != kNoRole,
                in.status ? "the status's activeSupe is 0" : "the audit has no status",
                assertion::kRole);
  checkAuditMemory(check.within("auditMemory"), in);
}

void checkAuditTicks(const Check& check, const AuditInputs& in, U64 ticks) {
  if (ticks == 0) return;
  checkAuditTick(check, in);
  // Each tick without an answer counts one retry; a new cycle (request answered) starts the count
  // again and is itself unanswered on the next tick. A maximum of 0 never forces a resync.
  if (in.retryMax == 0 || in.retry >= in.retryMax || !in.request || !in.auditStatus) return;
  const bool answered = in.auditStatus->resultId() == in.request->requestId();
  const U64 ticksToResync = (in.retryMax - in.retry) + (answered ? 1 : 0);
  if (ticks < ticksToResync || !in.memory || !in.memory->localMemoryReady() ||
      !in.memory->remoteMemoryReady() || !in.enabled) {
    return;
  }
  MemoryView view = MemoryView::of(*in.memory);
  checkSync(check.within("its resync after " + std::to_string(in.retryMax) + " unanswered ticks"),
            view);
}

void checkAuditMemory(const Check& check, const AuditInputs& in) {
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  if (!in.memory->localMemoryReady()) return;
  if (!in.memory->remoteMemoryReady()) {
    requireInput(check, static_cast<bool>(in.manifest), "its manifest");
    return;
  }
  if (!in.enabled || in.memory->remoteCopyPending()) return;
  check.require(static_cast<bool>(in.request), "the audit has no audit request",
                assertion::kAuditRequest);
  requireInput(check, static_cast<bool>(in.auditStatus), "its audit status");
  if (in.auditStatus->resultId() != in.request->requestId() && in.retry + 1 == in.retryMax) {
    MemoryView view = MemoryView::of(*in.memory);
    checkSync(check, view);
  }
  checkChecksum(check.within("computeChecksum"), in);
}

void checkChecksum(const Check& check, const AuditInputs& in) {
  requireInput(check, static_cast<bool>(in.memory), "its memory");
  requireInput(check, static_cast<bool>(in.request), "its audit request");
  MemorySide local = MemoryView::of(*in.memory).local;
  if (!in.request->auditMapEnabled()) return checkRead(check, local, 0, local.size());
  for (const auto& [offset, length] : in.request->auditMap()) {
    const U32 bytes = static_cast<U32>(length);
    checkWithin(check, local, offset, bytes);
    checkRead(check, local, offset, bytes);
  }
}

void checkAuditResync(const Check& check, const AuditInputs& in) {
  check.require(static_cast<bool>(in.memory), "the audit has no memory", assertion::kAuditMemory);
  requireInput(check, static_cast<bool>(in.request), "its audit request");
  requireInput(check, static_cast<bool>(in.auditStatus), "its audit status");
  if (in.memory->ignoreChecksum() || in.auditStatus->checksumResult() == 0) return;
  if (in.request->requestId() != in.auditStatus->resultId()) return;
  MemoryView view = MemoryView::of(*in.memory);
  checkSync(check, view);
}

void checkAuditTrigger(const Check& check, const AuditInputs& in) {
  requireInput(check, static_cast<bool>(in.status), "its status");
  if (in.initialized && in.featureAuditTrigger != 0) {
    checkAuditTick(check.within("handleAuditClockTimeout"), in);
  }
}

}  // namespace morvikpy
