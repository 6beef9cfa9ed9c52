#ifndef MORVIK_SIM_COPYCOMPARISON_H
#define MORVIK_SIM_COPYCOMPARISON_H

#include <cstddef>
#include <functional>

#include "Kel/Types.h"

namespace MorvikSim {

class Chassis;
class CorruptionTracker;

// How far the standby's copy is behind the active's memory at one instant.
struct CopyComparison {
  bool standbyPresent = true;
  // Chunks the copier still had to copy, and their bytes.
  U64 pendingChunks = 0;
  U64 pendingBytes = 0;
  // Chunks and bytes that differ for want of copying (outstanding corruptions left out).
  U64 staleChunks = 0;
  U64 staleBytes = 0;
  // Bytes of outstanding corruptions that still differ.
  U64 corruptBytes = 0;
  // Stale chunks that the copier did not even know about: the mirror lost them.
  U64 unaccountedChunks = 0;
  // Every differing byte, corruptions included; 0 means the copies are equal.
  U64 differingBytes = 0;
  U64 differingChunks = 0;
};

// One chunk of a feature, [begin, end) in it, as the comparison of the two copies finds it. The
// counts stay 0 while the standby's memory is away.
struct ChunkState {
  std::size_t feature = 0;
  U32 begin = 0;
  U32 end = 0;
  bool pending = false;
  U64 differingBytes = 0;
  // Differing bytes that are outstanding corruptions rather than writes not yet copied.
  U64 corruptBytes = 0;
  U64 staleBytes() const { return differingBytes - corruptBytes; }
};

// Visits every chunk of every feature, at each memory's current chunk size.
void forEachChunk(const Chassis& chassis, const CorruptionTracker& tracker,
                  const std::function<void(const ChunkState&)>& visit);

// Compares the two copies of every feature chunk by chunk.
CopyComparison compareCopies(const Chassis& chassis, const CorruptionTracker& tracker);

}  // namespace MorvikSim

#endif
