// How the memory state machine maps this feature's share of local and remote memory from the
// manifest and the status.
#include <sys/mman.h>

#include "Kel/Assert.h"
#include "Morvik/Checksum.h"
#include "Morvik/PhysicalAddress.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/Environment.h"
#include "MorvikLib/MemMap.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "MorvikLib/Trace.h"
#include "ostra/ostra.h"

namespace MorvikLib {

namespace {

constexpr const char* kSigLocal = "void MorvikLib::MorvikMemorySm::handleLocalMemoryChange()";
constexpr const char* kSigRemote = "void MorvikLib::MorvikMemorySm::handleRemoteMemoryChange()";
constexpr const char* kSigVersion =
    "void MorvikLib::MorvikMemorySm::handleMorvikRemoteMemVersion()";

Kel::String hex0x(U64 value) {
  return Kel::format("0x%llx", static_cast<unsigned long long>(value));
}

struct MappingPair {
  MemoryMapping primary;
  MemoryMapping shadow;
};

// The writable shadow is mapped first, then the read-only primary through which the library reads.
// When the primary fails (only the device path throws), the shadow goes again, quietly: the
// failure's own trace and exception tell what happened.
MappingPair mapTwice(const Kel::String& file, U64 paddr, U64 byteOffset, U64 size, MemMapType type,
                     U64 paddrField, U64 versionField) {
  U64 shadow = doMmap(file, paddr, byteOffset, size, type, memMapAccessReadWrite);
  U64 primary;
  try {
    primary = doMmap(file, paddr, byteOffset, size, type, memMapAccessReadOnly);
  } catch (...) {
    ::munmap(address::pointer(shadow), address::low32(size));
    throw;
  }
  auto size32 = static_cast<U32>(size);
  return {MemoryMapping(Kel::Name("mem"), primary, size32, paddrField, versionField),
          MemoryMapping(Kel::Name("mem"), shadow, size32, paddrField, versionField)};
}

}  // namespace

void MorvikMemorySm::handleLocalMemoryChange() {
  MORVIK_TRACE(5, "handleLocalMemoryChange") << kSigLocal << " " << name_;
  Kel::Ptr<MorvikMemory> memory = morvikMemory();
  // morvikMemoryDel runs this too: without a memory entity there is nothing to map.
  if (!memory || memory->localMemory().vaddr() != 0) return;
  const bool simulation = inSimulationEnv();
  Kel::Ptr<Morvik::Manifest const> manifest = morvikManifest();
  Kel::Ptr<Morvik::FeatureManifest> entry = manifest->manifest(name_);
  if (!entry) {
    MORVIK_TRACE(0, "handleLocalMemoryChange") << kSigLocal << " Local Memory, not yet ready ";
    return;
  }
  const Kel::String file("/dev/mem");
  const U32 morvikTotal = Morvik::morvikSummer(*manifest);
  const U64 byteOffset = entry->byteOffset();
  const U64 size = entry->size();
  KEL_ASSERT_TEXT(byteOffset + size <= morvikTotal, "byteOffset + size <= morvikTotal", kSigLocal);
  Morvik::PhysicalAddress paddr;
  if (simulation) {
    KEL_ASSERT_TEXT(memory->localMemorySimPaddr() == 0,
                    "morvikMemory()->localMemorySimPaddr() == 0", kSigLocal);
    U64 localPaddr = ostra_alloc_func("MorvikLocal", morvikTotal, agentProcessName());
    KEL_ASSERT_IN(localPaddr, kSigLocal);
    memory->localMemorySimPaddrIs(localPaddr);
    paddr = byteOffset + memory->localMemorySimPaddr();
  } else {
    paddr = byteOffset + manifest->localMemory()->addr();
  }
  Morvik::DmaAddress dma(ostra_pa_to_dma(paddr));
  MORVIK_TRACE(0, "handleLocalMemoryChange")
      << kSigLocal << " Dma addr " << dma << " Paddr " << paddr;
  // The mappings' paddr deliberately holds the DMA address, not the physical one mapped.
  MappingPair local = mapTwice(file, paddr, byteOffset, size, memMapTypeLocal, dma.value(), 0);
  memory->setLocal(local.primary, local.shadow);
}

void MorvikMemorySm::handleRemoteMemoryChange() {
  MORVIK_TRACE(0, "handleRemoteMemoryChange") << kSigRemote;
  const bool simulation = inSimulationEnv();
  Kel::Ptr<Morvik::Status const> status = morvikStatus();
  if (status->activeSupe() == Morvik::activeSupeStandby) {
    MORVIK_TRACE(0, "handleRemoteMemoryChange") << kSigRemote << " not active sso supe, "
                                                << "won't use remote memory ";
    return;
  }
  Kel::Ptr<MorvikMemory> memory = morvikMemory();
  memory->unsetRemote();
  MORVIK_TRACE(5, "handleRemoteMemoryChange")
      << kSigRemote << " rem.vaddr " << Kel::hex(memory->remoteMemory().vaddr()) << " rem.size "
      << memory->remoteMemory().size();
  Kel::Ptr<Morvik::Region const> range = status->remoteMemory();
  if (range) {
    MORVIK_TRACE(5, "handleRemoteMemoryChange")
        << kSigRemote << " status.rem addr " << range->addr()
        << (simulation ? (range->addr() != 0 ? " inSimulation addr set" : " inSimulation addr 0")
                       : "");
  }
  KEL_ASSERT_TEXT(memory->remoteMemory().vaddr() == 0,
                  "morvikMemory()->remoteMemory().vaddr() == 0", kSigRemote);
  bool usable = range && range->addr() != 0 && (simulation || status->peerMemory() != 0);
  if (usable) {
    Kel::Ptr<Morvik::FeatureManifest> entry = morvikManifest()->manifest(name_);
    const U64 byteOffset = entry->byteOffset();
    const U64 sizeW = entry->size();
    const U64 paddr = byteOffset + range->addr();
    const U64 peerPhysicalAddr = byteOffset + status->peerMemory();
    KEL_ASSERT_TEXT(byteOffset + sizeW <= range->size(),
                    "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()", kSigRemote);
    // The mappings carry the peer's own physical address in their version field, deliberately.
    MappingPair remote = mapTwice(range->mapFile(), paddr, byteOffset, sizeW, memMapTypeRemote,
                                  paddr, peerPhysicalAddr);
    memory->setRemote(remote.primary, remote.shadow);
    memory->remoteMemoryVersionIs(range->version());
    MORVIK_TRACE(5, "handleRemoteMemoryChange")
        << kSigRemote << " mapFile " << range->mapFile()
        << " mmap byteOffset: " << hex0x(byteOffset) << " paddr:" << hex0x(paddr)
        << " size:" << hex0x(sizeW) << " returns:" << hex0x(remote.primary.vaddr())
        << " peerPhysicalAddr:" << hex0x(peerPhysicalAddr)
        << " peerMemory:" << hex0x(status->peerMemory()) << " version " << range->version();
    memory->doSync();
    memory->remoteMemoryChangedGenIdInc(1);
  }
  resetAuditSm();
}

void MorvikMemorySm::handleMorvikRemoteMemVersion() {
  MORVIK_TRACE(5, "handleMorvikRemoteMemVersion") << kSigVersion << " name " << name_;
  Kel::Ptr<Morvik::FeatureManifest> entry = morvikManifest()->manifest(name_);
  if (!entry) {
    MORVIK_TRACE(0, "handleMorvikRemoteMemVersion")
        << kSigVersion << "Plugin: " << name_ << ": not found in manifest";
    return;
  }
  MORVIK_TRACE(0, "handleMorvikRemoteMemVersion")
      << kSigVersion << " manifest " << name_ << " byteOffset " << Kel::hex(entry->byteOffset())
      << " size " << Kel::hex(entry->size());
  Kel::Ptr<MorvikMemory> memory = morvikMemory();
  MORVIK_TRACE(0, "handleMorvikRemoteMemVersion")
      << kSigVersion << " morvikMemory " << (memory ? memory->name() : Kel::Name("null"));
  if (!memory) return;
  handleLocalMemoryChange();
  handleRemoteMemoryChange();
}

}  // namespace MorvikLib
