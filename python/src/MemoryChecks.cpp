// The checks of MorvikLib::MorvikMemory's functions and attributes.
#include "Assertions.h"
#include "Checks.h"
#include "LiveObjects.h"
#include "Mappings.h"
#include "MemoryModel.h"
#include "SimRegions.h"

namespace morvikpy {

namespace {

using Access = ProcessMaps::Access;
using Kel::GenericValue;
using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;

MorvikMemory& memoryOf(const GenericValue& self) {
  return *self.as<Kel::Ptr<MorvikMemory>>();
}

// The buffer argument of a data function: a byte pointer, or its address as a number (_py).
U64 bufferAddress(const GenericValue& data) {
  if (data.kind() == GenericValue::Kind::bytePtr) {
    return static_cast<U64>(reinterpret_cast<std::uintptr_t>(data.bytePtr()));
  }
  return data.as<U64>();
}

bool insideRegion(const MemoryView& view, U64 address) {
  for (const MemorySide* side : {&view.remote, &view.local}) {
    const U64 start = side->primary.vaddr();
    if (start <= address && address - start < side->size()) return true;
  }
  return false;
}

// A buffer the library fills through protectedMemoryCopy: inside a region it is a store through
// that region's shadow, anywhere else a plain write into the caller's memory.
void checkFilledBuffer(const Check& check, const MemoryView& view, U64 address, U32 size) {
  check.require(address != 0, "the buffer address is null");
  if (insideRegion(view, address)) return checkStore(check, view, address, size);
  checkBuffer(check, address, size, Access::write);
}

void requireLocalMapped(const Check& check, const MemoryView& view) {
  check.require(view.local.mapped(), "local memory is not mapped", assertion::kLocalMapped);
}

void requireSimulation(const Check& check) {
  check.require(inSimulation(), "a test path, for simulation only: SIMULATION_VMID is not set",
                assertion::kSimulation);
}

// A store at `offset` of one side through getShadow. A range that starts inside the region and
// runs past it fails getShadow's assertion; one that starts past it is not translated at all and
// would land wherever that address is (the shadow itself, often).
void checkSideStore(const Check& check, const MemoryView& view, const MemorySide& side, U32 offset,
                    U32 size, const char* endAssertion) {
  checkWithin(check, side, offset, size, offset < side.size() ? endAssertion : nullptr);
  if (size) checkStore(check, view, side.primary.vaddr() + offset, size);
}

void checkLocalStore(const Check& check, const MemoryView& view, U32 offset, U32 size) {
  requireLocalMapped(check, view);
  checkSideStore(check, view, view.local, offset, size, assertion::kLocalEnd);
}

void checkRemoteStore(const Check& check, const MemoryView& view, U32 offset, U32 size) {
  checkSideStore(check, view, view.remote, offset, size, assertion::kRemoteEnd);
}

// A store of `size` bytes at `offset` of local memory, then its mirroring.
void checkLocalChange(const Check& check, MemoryView& view, U32 offset, U32 size) {
  checkLocalStore(check, view, offset, size);
  checkRemoteCopy(check, view, offset, size);
}

After doRead(const Check& check, const GenericValue& self, const Args& a) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[2].as<U32>();
  requireLocalMapped(check, view);
  check.require(view.local.size() != 0, "local memory is mapped with a size of 0",
                assertion::kLocalSize);
  checkWithin(check, view.local, offset, size, assertion::kLocalBound);
  checkFilledBuffer(check, view, bufferAddress(a[1]), size);
  checkRead(check, view.local, offset, size);
  return {};
}

After doWrite(const Check& check, const GenericValue& self, const Args& a) {
  MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[2].as<U32>();
  checkWithin(check, view.local, offset, size, assertion::kLocalBound);
  checkBuffer(check, bufferAddress(a[1]), size, Access::read);
  checkLocalChange(check, view, offset, size);
  return {};
}

After doSet(const Check& check, const GenericValue& self, const Args& a) {
  MemoryView view = MemoryView::of(memoryOf(self));
  checkLocalChange(check, view, a[0].as<U32>(), a[2].as<U32>());
  return {};
}

After doCopy(const Check& check, const GenericValue& self, const Args& a) {
  MemoryView view = MemoryView::of(memoryOf(self));
  const U32 destination = a[0].as<U32>(), source = a[1].as<U32>(), size = a[2].as<U32>();
  requireLocalMapped(check, view);
  checkWithin(check, view.local, source, size);
  checkRead(check, view.local, source, size);
  checkLocalChange(check, view, destination, size);
  return {};
}

After doSync(const Check& check, const GenericValue& self, const Args&) {
  MemoryView view = MemoryView::of(memoryOf(self));
  checkSync(check, view);
  return {};
}

After remoteSet(const Check& check, const GenericValue& self, const Args& a) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  // With remote memory unmapped remoteSet only traces.
  if (!view.remote.mapped()) return {};
  checkRemoteStore(check, view, a[0].as<U32>(), a[2].as<U32>());
  return {};
}

After remoteCopy(const Check& check, const GenericValue& self, const Args& a) {
  MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[1].as<U32>();
  requireLocalMapped(check, view);
  checkWithin(check, view.local, offset, size);
  checkRemoteCopy(check, view, offset, size);
  return {};
}

After scheduleRemoteCopy(const Check& check, const GenericValue& self, const Args& a) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[1].as<U32>();
  checkWithin(check, view.local, offset, size);
  // Copied at once only when remote memory is mapped and the piece is shorter than a chunk.
  if (!view.remote.mapped() || size >= view.chunk || size == 0) return {};
  requireLocalMapped(check, view);
  checkRead(check, view.local, offset, size);
  checkRemoteStore(check, view, offset, size);
  return {};
}

After remoteCopyChunk(const Check& check, const GenericValue& self, const Args&) {
  MemoryView view = MemoryView::of(memoryOf(self));
  // One call copies the lowest pending chunk only.
  std::vector<U64> pending = view.pendingChunks();
  if (pending.size() > 1) pending.resize(1);
  view.bitmap = nullptr;
  view.addedPending = pending;
  checkCopier(check, view);
  return {};
}

// getShadow, protectedMemoryCopy, protectedMemorySet: `dest` must lie in one of the regions.
void checkRegionAddress(const Check& check, const MemoryView& view, U64 dest) {
  check.require(insideRegion(view, dest),
                "address " + hex(dest) + " lies outside the mapped regions of '" + view.name + "'");
}

After getShadow(const Check& check, const GenericValue& self, const Args& a) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U64 dest = a[0].as<U64>();
  const U32 size = a[1].as<U32>();
  checkRegionAddress(check, view, dest);
  // Only the region's bounds: getShadow itself stores nothing.
  const bool remote = view.remote.primary.vaddr() <= dest &&
                      dest - view.remote.primary.vaddr() < view.remote.size();
  const MemorySide& side = remote ? view.remote : view.local;
  checkWithin(check, side, dest - side.primary.vaddr(), size,
              remote ? assertion::kRemoteEnd : assertion::kLocalEnd);
  if (remote) {
    check.require(size <= view.chunk, "a remote range longer than a chunk",
                  assertion::kRemoteChunk);
  }
  return {};
}

After protectedMemoryCopy(const Check& check, const GenericValue& self, const Args& a) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U64 dest = a[0].as<U64>();
  const U32 size = a[2].as<U32>();
  checkRegionAddress(check, view, dest);
  checkBuffer(check, a[1].as<U64>(), size, Access::read);
  checkStore(check, view, dest, size);
  return {};
}

After protectedMemorySet(const Check& check, const GenericValue& self, const Args& a) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U64 dest = a[0].as<U64>();
  checkRegionAddress(check, view, dest);
  checkStore(check, view, dest, a[2].as<U32>());
  return {};
}

After doReadRemoteTest(const Check& check, const GenericValue& self, const Args& a) {
  requireSimulation(check);
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[2].as<U32>();
  checkWithin(check, view.remote, offset, size, assertion::kRemoteBound);
  checkFilledBuffer(check, view, bufferAddress(a[1]), size);
  checkRead(check, view.remote, offset, size);
  return {};
}

After doWriteRemoteTest(const Check& check, const GenericValue& self, const Args& a) {
  requireSimulation(check);
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[2].as<U32>();
  checkWithin(check, view.remote, offset, size, assertion::kRemoteBound);
  checkBuffer(check, bufferAddress(a[1]), size, Access::read);
  checkRemoteStore(check, view, offset, size);
  return {};
}

After doWriteLocalTest(const Check& check, const GenericValue& self, const Args& a) {
  requireSimulation(check);
  const MemoryView view = MemoryView::of(memoryOf(self));
  const U32 offset = a[0].as<U32>(), size = a[2].as<U32>();
  // The remote region's bound, deliberately, although the store goes to local memory.
  checkWithin(check, view.remote, offset, size, assertion::kRemoteBound);
  checkBuffer(check, bufferAddress(a[1]), size, Access::read);
  checkLocalStore(check, view, offset, size);
  return {};
}

// Slots of one side: which mappings it holds, and how the entity's view changes with new ones.
struct SideSlots {
  Slot primary;
  Slot shadow;
  const char* shadowAssertion;
  MemorySide MemoryView::*side;
};

const SideSlots kLocal{Slot::localPrimary, Slot::localShadow, assertion::kLocalShadow,
                       &MemoryView::local};
const SideSlots kRemote{Slot::remotePrimary, Slot::remoteShadow, assertion::kRemoteShadow,
                        &MemoryView::remote};

// A side's new pair of mappings, set by setLocal/setRemote or one attribute at a time.
After checkNewPair(const Check& check, const MorvikMemory& memory, const SideSlots& slots,
                   const MemoryMapping& primary, const MemoryMapping& shadow,
                   const std::string& primaryName, const std::string& shadowName) {
  MemoryView view = MemoryView::of(memory);
  const MemorySide old = view.*slots.side;
  Mappings::checkHandOver(check, primaryName, slots.primary, old.primary, primary);
  Mappings::checkHandOver(check, shadowName, slots.shadow, old.shadow, shadow);
  if (primary.vaddr() != 0) {
    check.require(shadow.vaddr() != 0,
                  primaryName +
                      " is mapped but its writable shadow is not; every store would "
                      "fault and unmapping would fail",
                  slots.shadowAssertion);
    check.require(check.maps().covers(shadow.vaddr(), shadow.size(), Access::write),
                  shadowName + " at " + hex(shadow.vaddr()) + " is not a live writable mapping");
  }
  (view.*slots.side).primary = primary;
  (view.*slots.side).shadow = shadow;
  if (memory.remoteCopyPending()) checkCopier(check, view);
  return [slots, old, primary, shadow] {
    Mappings::handedOver(slots.primary, old.primary, primary, old.mapped());
    Mappings::handedOver(slots.shadow, old.shadow, shadow, old.mapped());
  };
}

TypeChecks::Call setPair(const SideSlots& slots) {
  return [&slots](const Check& check, const GenericValue& self, const Args& a) {
    return checkNewPair(check, memoryOf(self), slots, a[0].as<MemoryMapping>(),
                        a[1].as<MemoryMapping>(), "argument 1 (map)", "argument 2 (shadow)");
  };
}

TypeChecks::Set setOne(const SideSlots& slots, bool primary) {
  return [&slots, primary](const Check& check, const GenericValue& self, const GenericValue& v) {
    const MorvikMemory& memory = memoryOf(self);
    const MemorySide side = MemoryView::of(memory).*slots.side;
    const MemoryMapping given = v.as<MemoryMapping>();
    return checkNewPair(check, memory, slots, primary ? given : side.primary,
                        primary ? side.shadow : given, primary ? "the mapping" : "its primary",
                        primary ? "its shadow" : "the mapping");
  };
}

TypeChecks::Call unset(const SideSlots& slots, const char* region) {
  return [&slots, region](const Check& check, const GenericValue& self, const Args&) {
    checkUnset(check, MemoryView::of(memoryOf(self)).*slots.side, slots.shadowAssertion, region);
    return After();
  };
}

After handleDeletion(const Check& check, const GenericValue& self, const Args&) {
  const MemoryView view = MemoryView::of(memoryOf(self));
  checkUnset(check, view.remote, assertion::kRemoteShadow, "MorvikRemote");
  checkUnset(check, view.local, assertion::kLocalShadow, "MorvikLocal");
  return {};
}

After setChunkSize(const Check& check, const GenericValue& self, const GenericValue& v) {
  const U32 chunk = v.as<U32>();
  check.require(chunk != 0 && (chunk & (chunk - 1)) == 0,
                std::to_string(chunk) + " is not a non-zero power of two: chunk boundaries are " +
                    "found by masking with the chunk size less one");
  const MorvikMemory& memory = memoryOf(self);
  if (chunk == memory.remoteCopyChunkSize()) return {};
  MemoryView view = MemoryView::of(memory);
  view.chunk = chunk;
  // A state machine driving the entity resynchronises at once with the new chunk size.
  if (!LiveObjects::drivers(memory).empty()) {
    checkSync(check.within("its state machine's resync"), view);
  } else if (memory.remoteCopyPending()) {
    checkCopier(check, view);
  }
  return {};
}

// A change of remoteCopyPending wakes the copier of every state machine driving the entity.
After setCopyPending(const Check& check, const GenericValue& self, const GenericValue& v) {
  const MorvikMemory& memory = memoryOf(self);
  if (v.as<bool>() == memory.remoteCopyPending() || LiveObjects::drivers(memory).empty()) return {};
  checkCopier(check, MemoryView::of(memory));
  return {};
}

}  // namespace

TypeChecks memoryChecks() {
  TypeChecks checks;
  checks.calls = {
      {"doRead", doRead},
      {"doRead_py", doRead},
      {"doWrite", doWrite},
      {"doWrite_py", doWrite},
      {"doSet", doSet},
      {"doCopy", doCopy},
      {"doSync", doSync},
      {"remoteSet", remoteSet},
      {"remoteCopy", remoteCopy},
      {"scheduleRemoteCopy", scheduleRemoteCopy},
      {"remoteCopyChunk", remoteCopyChunk},
      {"getShadow", getShadow},
      {"protectedMemoryCopy", protectedMemoryCopy},
      {"protectedMemorySet", protectedMemorySet},
      {"doReadRemoteTest", doReadRemoteTest},
      {"doReadRemoteTest_py", doReadRemoteTest},
      {"doWriteRemoteTest", doWriteRemoteTest},
      {"doWriteRemoteTest_py", doWriteRemoteTest},
      {"doWriteLocalTest", doWriteLocalTest},
      {"doWriteLocalTest_py", doWriteLocalTest},
      {"setLocal", setPair(kLocal)},
      {"setRemote", setPair(kRemote)},
      {"unsetLocal", unset(kLocal, "MorvikLocal")},
      {"unsetRemote", unset(kRemote, "MorvikRemote")},
      {"handleDeletion", handleDeletion},
  };
  checks.sets = {
      {"localMemory", setOne(kLocal, true)},
      {"localMemoryWritableShadow", setOne(kLocal, false)},
      {"remoteMemory", setOne(kRemote, true)},
      {"remoteMemoryWritableShadow", setOne(kRemote, false)},
      {"remoteCopyChunkSize", setChunkSize},
      {"remoteCopyPending", setCopyPending},
  };
  return checks;
}

}  // namespace morvikpy
