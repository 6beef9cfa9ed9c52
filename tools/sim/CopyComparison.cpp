#include "CopyComparison.h"

#include <algorithm>
#include <cstring>

#include "Chassis.h"
#include "CorruptionTracker.h"

namespace MorvikSim {

namespace {

std::vector<U32> outstandingOffsets(const CorruptionTracker& tracker, std::size_t feature) {
  std::vector<U32> offsets;
  for (const Corruption& c : tracker.corruptions()) {
    if (!c.healed && c.feature == feature) offsets.push_back(c.offset);
  }
  std::sort(offsets.begin(), offsets.end());
  offsets.erase(std::unique(offsets.begin(), offsets.end()), offsets.end());
  return offsets;
}

// Counts the differing bytes only when the chunk differs at all: most do not.
void compare(const U8* local, const U8* remote, const std::vector<U32>& corrupt, ChunkState& c) {
  if (std::memcmp(local + c.begin, remote + c.begin, c.end - c.begin) == 0) return;
  for (U32 i = c.begin; i < c.end; ++i) {
    if (local[i] == remote[i]) continue;
    ++c.differingBytes;
    if (std::binary_search(corrupt.begin(), corrupt.end(), i)) ++c.corruptBytes;
  }
}

}  // namespace

void forEachChunk(const Chassis& chassis, const CorruptionTracker& tracker,
                  const std::function<void(const ChunkState&)>& visit) {
  for (std::size_t f = 0; f < chassis.features(); ++f) {
    const auto& memory = chassis.memory(f);
    const U32 chunk = memory->remoteCopyChunkSize();
    const U32 size = chassis.layout().size(f);
    const U8* local = chassis.localBytes(f);
    const U8* remote = chassis.remoteBytes(f);
    const std::vector<U32> corrupt = outstandingOffsets(tracker, f);
    for (U32 begin = 0; begin < size; begin += chunk) {
      ChunkState c;
      c.feature = f;
      c.begin = begin;
      c.end = std::min(size, begin + chunk);
      c.pending = memory->replicationStatus(begin);
      if (local != nullptr && remote != nullptr) compare(local, remote, corrupt, c);
      visit(c);
    }
  }
}

CopyComparison compareCopies(const Chassis& chassis, const CorruptionTracker& tracker) {
  CopyComparison out;
  out.standbyPresent = chassis.standbyPresent();
  forEachChunk(chassis, tracker, [&out](const ChunkState& c) {
    if (c.pending) {
      ++out.pendingChunks;
      out.pendingBytes += c.end - c.begin;
    }
    if (c.differingBytes == 0) return;
    ++out.differingChunks;
    out.differingBytes += c.differingBytes;
    out.corruptBytes += c.corruptBytes;
    if (c.staleBytes() == 0) return;
    ++out.staleChunks;
    out.staleBytes += c.staleBytes();
    if (!c.pending) ++out.unaccountedChunks;
  });
  return out;
}

}  // namespace MorvikSim
