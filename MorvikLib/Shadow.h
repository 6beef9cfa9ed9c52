#ifndef MORVIKLIB_SHADOW_H
#define MORVIKLIB_SHADOW_H

#include <cstring>

#include "Kel/Assert.h"
#include "Kel/Types.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/StreamCopy.h"

// The shadow lookup behind getShadow, inline: every store of the write path and of the copier
// goes through it, and a call per store would cost as much as a short store itself.
namespace MorvikLib::shadow {

inline constexpr const char* kSigShadow =
    "U64 MorvikLib::MorvikMemory::getShadow(const U64&, U32) const";

// Where a store lands: the address to store through and the size of the region that holds it
// (0 outside both regions).
struct Target {
  U64 address;
  U32 regionSize;
};

// The remote region is tested first; only the start address picks the region.
inline Target target(const MorvikMemory& memory, U64 dest, U32 size) {
  const MemoryMapping& remote = memory.remoteMemory();
  const U64 remoteEnd = remote.vaddr() + remote.size();
  if (remote.vaddr() <= dest && dest < remoteEnd) {
    KEL_ASSERT_TEXT(dest + size <= remoteEnd,
                    "dest + size <= remoteMemory().vaddr() + remoteMemory().size()", kSigShadow);
    KEL_ASSERT_TEXT(size <= memory.remoteCopyChunkSize(), "size <= remoteCopyChunkSize()",
                    kSigShadow);
    return {dest - remote.vaddr() + memory.remoteMemoryWritableShadow().vaddr(), remote.size()};
  }
  const MemoryMapping& local = memory.localMemory();
  const U64 localEnd = local.vaddr() + local.size();
  if (local.vaddr() <= dest && dest < localEnd) {
    KEL_ASSERT_TEXT(dest + size <= localEnd,
                    "dest + size <= localMemory().vaddr() + localMemory().size()", kSigShadow);
    return {dest - local.vaddr() + memory.localMemoryWritableShadow().vaddr(), local.size()};
  }
  return {dest, 0};
}

// protectedMemoryCopy: the one place that chooses between plain and streaming stores. An empty
// copy may come with a null buffer (a scripting caller's address 0): the translation and its
// checks still run, but memcpy is not handed a null pointer. Returns the address stored through.
inline U64 copy(const MorvikMemory& memory, U64 dest, U64 src, U32 size) {
  const Target to = target(memory, dest, size);
  if (size == 0) return to.address;
  if (streams(to.regionSize, size)) {
    streamCopy(address::pointer(to.address), address::pointer(src), size);
  } else {
    std::memcpy(address::pointer(to.address), address::pointer(src), size);
  }
  return to.address;
}

}  // namespace MorvikLib::shadow

#endif
