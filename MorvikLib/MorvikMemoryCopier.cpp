// Mirroring of changed ranges: direct copies of short pieces, and the chunked background copier.
//
// The paths that trace many times are written once and built twice: with tracing (every trace line
// in place) and without (no trace statement at all), and the caller picks one with a single test of
// the trace level. The untraced build is what a feature's write costs when tracing is off; doWrite
// lives here so that its untraced path, the mirror included, compiles into doWrite itself.
#include <cstring>
#include <string_view>

#include "Kel/Assert.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/Environment.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Shadow.h"
#include "MorvikLib/StreamCopy.h"
#include "MorvikLib/Trace.h"
#include "Tralux/BlockTimer.h"
#include "Tralux/MsgDesc.h"
#include "Tralux/TraceHandle.h"

namespace MorvikLib {

namespace {
constexpr const char* kSigWrite = "void MorvikLib::MorvikMemory::doWrite(U32, Kel::BytePtr, U32)";
constexpr const char* kSigSchedule = "bool MorvikLib::MorvikMemory::scheduleRemoteCopy(U32, U32)";
constexpr const char* kSigChunk = "void MorvikLib::MorvikMemory::remoteCopyChunk()";
constexpr const char* kSigSync = "void MorvikLib::MorvikMemory::doSync()";
constexpr const char* kSigFlush = "void MorvikLib::MorvikMemory::doFlushWithRead()";
constexpr const char* kSigRemoteCopy = "void MorvikLib::MorvikMemory::remoteCopy(U32, U32)";

Tralux::MsgDesc& doWriteTimerDesc() {
  static U32 messageId = 0;
  static Tralux::MsgDesc* desc = [] {
    auto* d = new Tralux::MsgDesc(Tralux::defaultTraluxHandle().mtTraceFile(), &messageId,
                                  "MorvikLib", __LINE__, true);
    *d << "doWrite";
    d->finish();
    return d;
  }();
  return *desc;
}
}  // namespace

// doWrite after its checks: the local store through the shadow, then the mirror. Forced inline, as
// is the mirror: two more calls cost a short write a sixth of its instructions.
template <bool kTraced>
__attribute__((always_inline)) inline void MorvikMemory::writeMirrored(U32 byteOffset,
                                                                       Kel::BytePtr data,
                                                                       U32 size) {
  if constexpr (kTraced) {
    MORVIK_TRACE(9, "doWrite") << kSigWrite << " byteOffset " << byteOffset << " size " << size
                               << " data64 " << address::signWidened(data) << " data "
                               << std::string_view(
                                      reinterpret_cast<const char*>(data),
                                      data ? strnlen(reinterpret_cast<const char*>(data), size)
                                           : 0);
    MORVIK_TRACE(9, "doWrite") << kSigWrite
                               << " write to local memory : " << Kel::hex(localMemory().vaddr());
    MORVIK_TRACE(9, "doWrite") << kSigWrite << " memcpy : "
                               << Kel::hex(address::low32(localMemory().vaddr() + byteOffset))
                               << " size " << size;
  }
  const U64 dest = localMemory().vaddr() + byteOffset;
  const U64 stored = shadow::copy(*this, dest, address::of(data), size);
  if constexpr (kTraced) {
    MORVIK_TRACE(9, "doWrite") << kSigWrite
                               << " write to remote memory : " << Kel::hex(remoteMemory().vaddr());
    MORVIK_TRACE(9, "doWrite") << kSigWrite << " memcpy : "
                               << Kel::hex(address::low32(remoteMemory().vaddr() + byteOffset))
                               << " size " << size;
  }
  // The mirror may read the bytes back through the local shadow only if that is where they went.
  mirror<kTraced>(byteOffset, size,
                  stored == dest - localMemory().vaddr() + localMemoryWritableShadow().vaddr());
}

void MorvikMemory::doWrite(U32 byteOffset, Kel::BytePtr data, U32 size) {
  Tralux::BlockTimer timer(doWriteTimerDesc());
  // The setter's own comparison, inline: a write does not pay a call to learn the flag is set.
  if (!ignoreChecksum()) ignoreChecksumIs(true);
  KEL_ASSERT_TEXT(localMemory().size() >= static_cast<U32>(byteOffset + size),
                  "localMemory().size() >= ( byteOffset + size )", kSigWrite);
  if (tracing(9)) return writeMirrored<true>(byteOffset, data, size);
  writeMirrored<false>(byteOffset, data, size);
}

void MorvikMemory::remoteCopy(U32 byteOffset, U32 size) {
  if (tracing(9)) return mirror<true>(byteOffset, size, false);
  mirror<false>(byteOffset, size, false);
}

bool MorvikMemory::scheduleRemoteCopy(U32 byteOffset, U32 size) {
  bool fromShadow = false;
  if (tracing(9)) return schedulePiece<true>(byteOffset, size, fromShadow);
  return schedulePiece<false>(byteOffset, size, fromShadow);
}

// remoteCopy's walk over the pieces. The chunk size and the mappings are read afresh for every
// piece: a deferred piece changes the replication status, which notifies, and a notifiee may
// change either.
template <bool kTraced>
__attribute__((always_inline)) inline void MorvikMemory::mirror(U32 byteOffset, U32 size,
                                                                bool fromShadow) {
  KEL_ASSERT_IN(localMemory().vaddr(), kSigRemoteCopy);
  U32 offset = byteOffset;
  U32 remaining = size;
  U32 length = remoteCopyChunkSize() - (byteOffset & (remoteCopyChunkSize() - 1));
  bool deferred = false;
  if (length < remaining) {
    do {
      deferred |= schedulePiece<kTraced>(offset, length, fromShadow);
      remaining -= length;
      offset += length;
      length = remoteCopyChunkSize();
    } while (remaining > remoteCopyChunkSize());
  }
  if (schedulePiece<kTraced>(offset, remaining, fromShadow) || deferred) remoteCopyPendingIs(true);
}

// scheduleRemoteCopy. A piece copied at once is read through the local region's own mapping, or,
// while `fromShadow` holds, through the local writable shadow: doWrite stored those very bytes
// through it an instant before, and reading them back through the mapping that stored them spares
// the processor a store it cannot forward across two mappings. The first deferred piece notifies,
// after which nothing is assumed about the shadow any more.
template <bool kTraced>
bool MorvikMemory::schedulePiece(U32 byteOffset, U32 size, bool& fromShadow) {
  if (remoteMemory().vaddr() != 0 && size < remoteCopyChunkSize()) {
    if constexpr (kTraced) {
      MORVIK_TRACE(9, "scheduleRemoteCopy")
          << kSigSchedule << " Copy data @ " << Kel::hex(byteOffset) << " size " << Kel::hex(size);
    }
    const U64 source = fromShadow ? localMemoryWritableShadow().vaddr() : localMemory().vaddr();
    shadow::copy(*this, remoteMemory().vaddr() + byteOffset, source + byteOffset, size);
    return false;
  }
  if constexpr (kTraced) {
    MORVIK_TRACE(9, "scheduleRemoteCopy") << kSigSchedule << " Scheduled data copy @ "
                                          << Kel::hex(byteOffset) << " size " << Kel::hex(size);
  }
  fromShadow = false;
  replicationStatusIs(byteOffset & ~(remoteCopyChunkSize() - 1), true);
  return true;
}

// Finds the lowest pending chunk whose offset lies below the local region's size, starting from
// the lower bound rather than from chunk 0: a resync of n chunks then costs O(n) lookups in all,
// not O(n^2). Whole zero members are skipped eight chunks at a time.
bool MorvikMemory::nextPendingChunk(U64& chunk) {
  const U64 chunkSize = remoteCopyChunkSize();
  const U64 endChunk = (U64{localMemory().size()} + chunkSize - 1) / chunkSize;
  U64 at = pendingLowerBound_;
  while (at < endChunk) {
    U8 bits = static_cast<U8>(replicationStatusBitmap(at >> 3) >> (at & 7));
    if (bits == 0) {
      at = ((at >> 3) + 1) << 3;
      continue;
    }
    at += static_cast<U64>(__builtin_ctz(bits));
    if (at >= endChunk) break;
    pendingLowerBound_ = at;
    chunk = at;
    return true;
  }
  if (pendingLowerBound_ < endChunk) pendingLowerBound_ = endChunk;
  return false;
}

void MorvikMemory::remoteCopyChunk() {
  if (tracing(9)) return copyNextChunk<true>();
  copyNextChunk<false>();
}

template <bool kTraced>
void MorvikMemory::copyNextChunk() {
  if constexpr (kTraced) MORVIK_TRACE(9, "remoteCopyChunk") << kSigChunk;
  remoteCopyPendingIs(false);
  U64 chunk = 0;
  // With either region unmapped every pending chunk is skipped and stays pending: no search.
  bool found = localMemory().vaddr() != 0 && remoteMemory().vaddr() != 0 && nextPendingChunk(chunk);
  if (!found) {
    if constexpr (kTraced) {
      MORVIK_TRACE(9, "remoteCopyChunk")
          << kSigChunk << "remoteCopyPending = " << (remoteCopyPending() ? 1 : 0);
    }
    return;
  }
  const U64 chunkSize = remoteCopyChunkSize();
  const U64 offset = chunk * chunkSize;
  if constexpr (kTraced) {
    MORVIK_TRACE(9, "remoteCopyChunk")
        << kSigChunk << " Copy of chunk @ " << Kel::hex(offset) << " size " << Kel::hex(chunkSize);
  }
  shadow::copy(*this, remoteMemory().vaddr() + offset, localMemory().vaddr() + offset,
               static_cast<U32>(chunkSize));
  prefetchChunkAfter(offset);
  replicationStatusIs(offset, false);
  remoteCopyPendingIs(true);
  if constexpr (kTraced)
    MORVIK_TRACE(9, "remoteCopyChunk") << kSigChunk << "remoteCopyPending = " << 1;
}

// A resync copies chunk after chunk: the next one's source bytes are asked for now, to arrive while
// this pass ends and the loop comes round again. Only where chunks stream: regions small enough for
// plain stores sit in the caches already. A prefetch changes no byte and cannot fault.
void MorvikMemory::prefetchChunkAfter(U64 offset) const {
  const U64 chunkSize = remoteCopyChunkSize();
  const U64 next = offset + chunkSize;
  if (!streams(remoteMemory().size(), chunkSize) || next + chunkSize > localMemory().size()) return;
  prefetchChunk(address::pointer(localMemory().vaddr() + next), chunkSize);
}

void MorvikMemory::doSync() {
  if (noSyncRequested()) {
    MORVIK_TRACE(0, "doSync") << kSigSync << " NOSYNC_MORVIK ";
    return;
  }
  replicationStatusBitmapDelAll();
  // The remote region's size, not the local one's.
  remoteCopy(0, remoteMemory().size());
}

void MorvikMemory::doFlushWithRead() {
  if (!remoteMemoryReady()) return;
  if (remoteMemory().vaddr() == 0) return;
  MORVIK_TRACE(9, "doFlushWithRead") << kSigFlush << " flush pending writes with remote read ";
}

}  // namespace MorvikLib
