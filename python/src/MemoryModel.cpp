#include "MemoryModel.h"

#include <algorithm>
#include <cstdlib>

#include "Assertions.h"

namespace morvikpy {

namespace {

using Access = ProcessMaps::Access;
using Wide = unsigned __int128;

Wide end(U64 start, U64 size) {
  return static_cast<Wide>(start) + size;
}

bool inside(const MemorySide& side, U64 address) {
  return side.primary.vaddr() <= address && address < end(side.primary.vaddr(), side.size());
}

void checkShadowMemory(const Check& check, const MemorySide& side, U64 offset, U64 size) {
  if (size == 0 || (side.predicted && side.mapped())) return;
  check.require(check.maps().covers(side.shadow.vaddr() + offset, size, Access::write),
                "bytes " + byteRange(offset, size) + " of " + side.what +
                    " are not writable through its shadow at " + hex(side.shadow.vaddr()) +
                    " (unmapped, or write-protected by setWriteAccess)");
}

// One whole chunk copied by remoteCopyChunk, from local memory into remote memory.
void checkChunkCopy(const Check& check, const MemoryView& view, U64 offset) {
  const std::string chunk = "chunk " + byteRange(offset, view.chunk);
  check.require(offset < view.remote.size(), chunk + " is pending but lies outside " +
                                                 view.remote.what + " (" +
                                                 std::to_string(view.remote.size()) + " bytes)");
  check.require(end(offset, view.chunk) <= view.remote.size(),
                chunk + " is pending but runs past the end of remote memory (" +
                    std::to_string(view.remote.size()) + " bytes)",
                assertion::kRemoteEnd);
  checkRead(check, view.local, offset, view.chunk);
  checkShadowMemory(check, view.remote, offset, view.chunk);
}

}  // namespace

MemoryView MemoryView::of(const MorvikLib::MorvikMemory& memory) {
  MemoryView view;
  view.name = memory.name().string().stdString();
  view.local.primary = memory.localMemory();
  view.local.shadow = memory.localMemoryWritableShadow();
  view.remote.primary = memory.remoteMemory();
  view.remote.shadow = memory.remoteMemoryWritableShadow();
  view.chunk = memory.remoteCopyChunkSize();
  view.bitmap = &memory.replicationStatusBitmap();
  return view;
}

std::vector<U64> MemoryView::pendingChunks() const {
  std::vector<U64> offsets = addedPending;
  if (bitmap && chunk) {
    for (const auto& [key, bits] : *bitmap) {
      for (unsigned bit = 0; bit < 8; ++bit) {
        if (!(bits >> bit & 1)) continue;
        const Wide offset = (static_cast<Wide>(key) * 8 + bit) * chunk;
        if (offset < local.size()) offsets.push_back(static_cast<U64>(offset));
      }
    }
  }
  std::erase_if(offsets, [this](U64 offset) { return offset >= local.size(); });
  std::sort(offsets.begin(), offsets.end());
  offsets.erase(std::unique(offsets.begin(), offsets.end()), offsets.end());
  return offsets;
}

void checkBuffer(const Check& check, U64 address, U64 size, Access access) {
  check.require(address != 0, "the buffer address is null");
  const char* use = access == Access::read ? "readable" : "writable";
  check.require(check.maps().covers(address, size, access),
                "the buffer at " + hex(address) + " is not " + use +
                    " memory of this process for " + std::to_string(size) + " bytes");
}

void checkWithin(const Check& check, const MemorySide& side, U64 offset, U64 size,
                 const char* assertion) {
  check.require(end(offset, size) <= side.size(),
                "bytes " + byteRange(offset, size) + " lie outside " + side.what + " (" +
                    std::to_string(side.size()) + " bytes)",
                assertion);
}

void checkRead(const Check& check, const MemorySide& side, U64 offset, U64 size) {
  if (size == 0 || (side.predicted && side.mapped())) return;
  check.require(side.mapped(), std::string(side.what) + " is not mapped");
  check.require(check.maps().covers(side.primary.vaddr() + offset, size, Access::read),
                "bytes " + byteRange(offset, size) + " of " + side.what + " at " +
                    hex(side.primary.vaddr()) + " are not readable memory of this process");
}

void checkStore(const Check& check, const MemoryView& view, U64 dest, U64 size) {
  // Like getShadow: the remote region first, and only the start address picks the region.
  for (const MemorySide* side : {&view.remote, &view.local}) {
    if (!inside(*side, dest)) continue;
    const U64 offset = dest - side->primary.vaddr();
    const bool remote = side == &view.remote;
    checkWithin(check, *side, offset, size, remote ? assertion::kRemoteEnd : assertion::kLocalEnd);
    if (remote) {
      check.require(size <= view.chunk,
                    "a store of " + std::to_string(size) + " bytes into remote memory is longer " +
                        "than a chunk (" + std::to_string(view.chunk) + " bytes)",
                    assertion::kRemoteChunk);
    }
    return checkShadowMemory(check, *side, offset, size);
  }
  check.fail("address " + hex(dest) + " lies outside the mapped regions (local " +
             hex(view.local.primary.vaddr()) + " " + std::to_string(view.local.size()) +
             " bytes, remote " + hex(view.remote.primary.vaddr()) + " " +
             std::to_string(view.remote.size()) + " bytes)");
}

void checkRemoteCopy(const Check& check, MemoryView& view, U32 offset, U32 size) {
  check.require(view.local.mapped(), "local memory is not mapped", assertion::kLocalMapped);
  // The same cut as remoteCopy: a first piece up to the next chunk boundary, whole chunks, the
  // rest.
  const U32 chunk = view.chunk;
  bool deferred = false;
  view.addedPending.clear();
  auto piece = [&](U32 at, U32 length) {
    if (view.remote.mapped() && length < chunk) {
      if (length == 0) return;
      checkRead(check, view.local, at, length);
      check.require(at < view.remote.size(), "bytes " + byteRange(at, length) +
                                                 " would be copied outside remote memory (" +
                                                 std::to_string(view.remote.size()) + " bytes)");
      checkWithin(check, view.remote, at, length, assertion::kRemoteEnd);
      return checkShadowMemory(check, view.remote, at, length);
    }
    view.addedPending.push_back(at & ~(chunk - 1));
    deferred = true;
  };
  U32 at = offset;
  U32 remaining = size;
  U32 length = chunk - (offset & (chunk - 1));
  if (length < remaining) {
    do {
      piece(at, length);
      remaining -= length;
      at += length;
      length = chunk;
    } while (remaining > chunk);
  }
  piece(at, remaining);
  // The chunks this call leaves pending; those pending before are the loop's to check.
  if (deferred && view.local.mapped() && view.remote.mapped()) {
    std::vector<U64> added = view.addedPending;
    std::erase_if(added, [&](U64 chunkOffset) { return chunkOffset >= view.local.size(); });
    for (U64 chunkOffset : added) {
      checkChunkCopy(check.within("the background copier"), view, chunkOffset);
    }
  }
}

void checkCopier(const Check& check, const MemoryView& view) {
  if (!view.local.mapped() || !view.remote.mapped()) return;
  for (U64 offset : view.pendingChunks()) {
    checkChunkCopy(check.within("the background copier"), view, offset);
  }
}

void checkSync(const Check& check, MemoryView& view) {
  if (std::getenv("NOSYNC_MORVIK")) return;
  view.bitmap = nullptr;
  view.addedPending.clear();
  checkRemoteCopy(check.within("doSync"), view, 0, static_cast<U32>(view.remote.size()));
}

}  // namespace morvikpy
