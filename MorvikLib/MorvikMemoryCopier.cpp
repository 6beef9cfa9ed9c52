// Mirroring of changed ranges: direct copies of short pieces, and the chunked background copier.
#include "Kel/Assert.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/Environment.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/StreamCopy.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {
constexpr const char* kSigSchedule = "bool MorvikLib::MorvikMemory::scheduleRemoteCopy(U32, U32)";
constexpr const char* kSigChunk = "void MorvikLib::MorvikMemory::remoteCopyChunk()";
constexpr const char* kSigSync = "void MorvikLib::MorvikMemory::doSync()";
constexpr const char* kSigFlush = "void MorvikLib::MorvikMemory::doFlushWithRead()";
constexpr const char* kSigRemoteCopy = "void MorvikLib::MorvikMemory::remoteCopy(U32, U32)";
// From this size on a resync streams: below it (16 MiB measured) the cached copy was faster.
constexpr U32 kStreamingRegionSize = 64 << 20;
}  // namespace

void MorvikMemory::remoteCopy(U32 byteOffset, U32 size) {
  KEL_ASSERT_IN(localMemory().vaddr(), kSigRemoteCopy);
  U32 offset = byteOffset;
  U32 remaining = size;
  U32 length = remoteCopyChunkSize() - (byteOffset & (remoteCopyChunkSize() - 1));
  bool deferred = false;
  if (length < remaining) {
    do {
      deferred |= scheduleRemoteCopy(offset, length);
      remaining -= length;
      offset += length;
      length = remoteCopyChunkSize();
    } while (remaining > remoteCopyChunkSize());
  }
  if (scheduleRemoteCopy(offset, remaining) || deferred) remoteCopyPendingIs(true);
}

bool MorvikMemory::scheduleRemoteCopy(U32 byteOffset, U32 size) {
  if (remoteMemory().vaddr() != 0 && size < remoteCopyChunkSize()) {
    MORVIK_TRACE(9, "scheduleRemoteCopy")
        << kSigSchedule << " Copy data @ " << Kel::hex(byteOffset) << " size " << Kel::hex(size);
    protectedMemoryCopy(remoteMemory().vaddr() + byteOffset, localMemory().vaddr() + byteOffset,
                        size);
    return false;
  }
  MORVIK_TRACE(9, "scheduleRemoteCopy") << kSigSchedule << " Scheduled data copy @ "
                                        << Kel::hex(byteOffset) << " size " << Kel::hex(size);
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
  MORVIK_TRACE(9, "remoteCopyChunk") << kSigChunk;
  remoteCopyPendingIs(false);
  U64 chunk = 0;
  // With either region unmapped every pending chunk is skipped and stays pending: no search.
  bool found = localMemory().vaddr() != 0 && remoteMemory().vaddr() != 0 && nextPendingChunk(chunk);
  if (!found) {
    MORVIK_TRACE(9, "remoteCopyChunk")
        << kSigChunk << "remoteCopyPending = " << (remoteCopyPending() ? 1 : 0);
    return;
  }
  const U64 chunkSize = remoteCopyChunkSize();
  const U64 offset = chunk * chunkSize;
  MORVIK_TRACE(9, "remoteCopyChunk")
      << kSigChunk << " Copy of chunk @ " << Kel::hex(offset) << " size " << Kel::hex(chunkSize);
  copyChunk(remoteMemory().vaddr() + offset, localMemory().vaddr() + offset,
            static_cast<U32>(chunkSize));
  replicationStatusIs(offset, false);
  remoteCopyPendingIs(true);
  MORVIK_TRACE(9, "remoteCopyChunk") << kSigChunk << "remoteCopyPending = " << 1;
}

// A region that outgrows the cache streams its chunks past it, after the protected copy's checks.
void MorvikMemory::copyChunk(const U64& dest, const U64& src, U32 size) const {
  if (localMemory().size() < kStreamingRegionSize) return protectedMemoryCopy(dest, src, size);
  streamCopy(address::pointer(getShadow(dest, size)), address::pointer(src), size);
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
