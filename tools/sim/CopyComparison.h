#ifndef MORVIK_SIM_COPYCOMPARISON_H
#define MORVIK_SIM_COPYCOMPARISON_H

#include <vector>

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

// Compares the two copies of every feature chunk by chunk, at each memory's current chunk size.
CopyComparison compareCopies(const Chassis& chassis, const CorruptionTracker& tracker);

}  // namespace MorvikSim

#endif
