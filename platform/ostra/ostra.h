#ifndef OSTRA_OSTRA_H
#define OSTRA_OSTRA_H

// DMA memory as a simulated machine sees it: named regions of "physical" memory that any process
// of the same machine can map.
//
// Machines and names. The simulated machine is the value of the environment variable
// "SIMULATION_VMID", read anew at every call; an unset variable means the same machine as an
// empty one. Each region lives in one POSIX shared-memory object whose name is derived from the
// machine and the region name: plain letters, digits, '-' and '_' are kept, every other byte is
// written as "%hh", and a pair too long for a flat object name is replaced by a hash of both. Any
// bytes are therefore safe in either part ("../x" or "a/b" never leave the shared-memory
// namespace), and different pairs never share an object. A region name must be non-empty, and
// machine and name together at most 64 KiB.
//
// Objects are created with owner-only access (0600, whatever the umask), zero-filled, and hold a
// header in front of the region's bytes with its length, physical address, owner and creating
// process, so every process sees the same region. If a creator dies before finishing its header,
// the region stays unusable (calls fail after a short wait) until ostra_free removes it, or
// ostra::reclaimRegion ("ostra/OstraReclaim.h") finds it left behind.
//
// Physical and DMA addresses. A region's physical address depends only on its name: the 64 KiB
// slot in [2^32, 2^40) chosen by a hash of the name. It is non-zero, page-aligned, the same in
// every process, run and machine, and differs between names unless their hashes pick the same
// slot (about one chance in 2^24 per pair). The bus is 32 bits wide: the DMA address of a physical
// address is its low 32 bits, so byte offsets carry over unchanged.
//
// Threads. Every function may be called from any thread.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Maps the bytes [byteOffset, byteOffset + length) of region `name` of the current machine,
// read-write when `writable` is non-zero and read-only otherwise (a store through a read-only
// mapping faults). The offset need not be page-aligned. Returns the address of the range's first
// byte, or 0 when the region does not exist, the range is empty or reaches past the region's end,
// or the system refuses the mapping. Every successful call needs its own ostra_unmap.
uintptr_t ostra_map(const char* name, int writable, uint32_t byteOffset, uint32_t length);

// Undoes one ostra_map that returned `addr` for (`name`, `length`) on the current machine. Returns
// 0 on success; non-zero, touching nothing, when no such mapping is live (unknown address, other
// name, machine or length, or already unmapped), or when the system refuses to unmap it.
int ostra_unmap(const char* name, uintptr_t addr, uint32_t length);

// Creates region `name` of `length` bytes on the current machine, recording `owner` (NULL is
// taken as ""), or finds the region that already exists there, and returns its physical address.
// An existing region is found again by any caller asking for at most its length, whatever the
// owner. Returns 0 when `length` is 0, the name is invalid, an existing region is shorter than
// `length`, or the system refuses to create it.
uint64_t ostra_alloc_func(const char* name, uint32_t length, const char* owner);

// The 32-bit DMA (bus) address of physical address `paddr`: its low 32 bits.
uint32_t ostra_pa_to_dma(uint64_t paddr);

// Removes region `name` from the current machine. Live mappings keep working; later calls no
// longer find the region, and a later ostra_alloc_func creates a fresh, zero-filled one. Returns
// 0 on success, non-zero when there is no such region or it cannot be removed.
int ostra_free(const char* name);

#ifdef __cplusplus
}
#endif

#endif
