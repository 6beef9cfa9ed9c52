#ifndef MORVIKLIB_MEMMAP_H
#define MORVIKLIB_MEMMAP_H

#include "Kel/String.h"
#include "Kel/Types.h"

namespace MorvikLib {

// Which side a range belongs to; any non-zero value is remote.
enum MemMapType { memMapTypeLocal = 0, memMapTypeRemote = 1 };

// How a range is mapped; any non-zero value is read-only.
enum MemMapAccess { memMapAccessReadWrite = 0, memMapAccessReadOnly = 1 };

// Maps a range and returns its address in the process. On hardware `file` and `paddr` are used
// (the offset is passed to mmap unrounded, so callers pass a page-aligned paddr); in simulation
// ("SIMULATION_VMID" set) `byteOffset` into the DMA region is. Sizes keep only their low 32 bits.
U64 doMmap(Kel::String file, U64 paddr, U64 byteOffset, U64 size, MemMapType type,
           MemMapAccess access);

// Unmaps a range returned by doMmap; returns 0. A failed simulated unmap is an assertion.
int doMunmap(U64 vaddr, U64 size, MemMapType type);

}  // namespace MorvikLib

#endif
