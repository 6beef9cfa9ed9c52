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

void compareChunk(const U8* local, const U8* remote, U32 begin, U32 end,
                  const std::vector<U32>& corrupt, bool pending, CopyComparison& out) {
  if (std::memcmp(local + begin, remote + begin, end - begin) == 0) return;
  U64 differing = 0;
  U64 corrupted = 0;
  for (U32 i = begin; i < end; ++i) {
    if (local[i] == remote[i]) continue;
    ++differing;
    if (std::binary_search(corrupt.begin(), corrupt.end(), i)) ++corrupted;
  }
  ++out.differingChunks;
  out.differingBytes += differing;
  out.corruptBytes += corrupted;
  if (differing == corrupted) return;
  ++out.staleChunks;
  out.staleBytes += differing - corrupted;
  if (!pending) ++out.unaccountedChunks;
}

}  // namespace

CopyComparison compareCopies(const Chassis& chassis, const CorruptionTracker& tracker) {
  CopyComparison out;
  out.standbyPresent = chassis.standbyPresent();
  for (std::size_t f = 0; f < chassis.features(); ++f) {
    const auto& memory = chassis.memory(f);
    const U32 chunk = memory->remoteCopyChunkSize();
    const U32 size = chassis.layout().size(f);
    const U8* local = chassis.localBytes(f);
    const U8* remote = chassis.remoteBytes(f);
    const std::vector<U32> corrupt = outstandingOffsets(tracker, f);
    for (U32 begin = 0; begin < size; begin += chunk) {
      const bool pending = memory->replicationStatus(begin);
      if (pending) {
        ++out.pendingChunks;
        out.pendingBytes += chunk;
      }
      if (local == nullptr || remote == nullptr) continue;
      compareChunk(local, remote, begin, std::min(size, begin + chunk), corrupt, pending, out);
    }
  }
  return out;
}

}  // namespace MorvikSim
