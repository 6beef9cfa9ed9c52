#ifndef MORVIK_PYTHON_MEMORYMODEL_H
#define MORVIK_PYTHON_MEMORYMODEL_H

#include <string>
#include <vector>

#include "Check.h"
#include "MorvikLib/MemoryMapping.h"
#include "MorvikLib/MorvikMemory.h"

namespace morvikpy {

// One side of a memory entity: the region as the library reads it and the shadow it stores
// through. A side that a handler being checked is about to map is `predicted`: its size is known,
// its addresses are not yet, so only sizes are checked there.
struct MemorySide {
  const char* what;  // "local memory", "remote memory"
  MorvikLib::MemoryMapping primary;
  MorvikLib::MemoryMapping shadow;
  bool predicted = false;

  bool mapped() const { return primary.vaddr() != 0; }
  U64 size() const { return primary.size(); }
};

// A memory entity as an operation will find it: its two sides, its chunk size and its pending
// chunks, changed step by step as the operation being checked would change them.
struct MemoryView {
  std::string name;
  MemorySide local{"local memory", {}, {}};
  MemorySide remote{"remote memory", {}, {}};
  U32 chunk = 0;
  const MorvikLib::MorvikMemory::ReplicationStatusBitmap* bitmap = nullptr;
  std::vector<U64> addedPending;  // chunk offsets marked by the steps checked so far

  static MemoryView of(const MorvikLib::MorvikMemory& memory);
  // Offsets of the pending chunks below the local region's end, as the copier visits them.
  std::vector<U64> pendingChunks() const;
};

// A caller's buffer of `size` bytes that the library reads (Access::read) or fills.
void checkBuffer(const Check& check, U64 address, U64 size, ProcessMaps::Access access);
// [offset, offset + size) inside `side`, in 64-bit arithmetic.
void checkWithin(const Check& check, const MemorySide& side, U64 offset, U64 size,
                 const char* assertion = nullptr);
// Reads of `side` at an offset through the region's own address.
void checkRead(const Check& check, const MemorySide& side, U64 offset, U64 size);
// A store through getShadow at `dest`: the library's assertions there, the shadow's memory, and a
// refusal for an address outside both regions (getShadow would store there untranslated).
void checkStore(const Check& check, const MemoryView& view, U64 dest, U64 size);
// remoteCopy(offset, size): direct copies of short pieces, chunks marked for the copier.
void checkRemoteCopy(const Check& check, MemoryView& view, U32 offset, U32 size);
// What the background copier will copy, chunk by chunk, from `view`.
void checkCopier(const Check& check, const MemoryView& view);
// doSync(): the pending set rebuilt from the remote region's size.
void checkSync(const Check& check, MemoryView& view);

}  // namespace morvikpy

#endif
