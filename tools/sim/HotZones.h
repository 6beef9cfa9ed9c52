#ifndef MORVIK_SIM_HOTZONES_H
#define MORVIK_SIM_HOTZONES_H

#include <vector>

#include "Kel/Types.h"
#include "Layout.h"
#include "SimOptions.h"

namespace MorvikSim {

// The part of a feature where most of its writes land: an eighth of it (at least one chunk of the
// largest size the run uses), made of whole chunks of every size, at a place fixed by the seed.
struct HotZone {
  U32 start = 0;
  U32 size = 0;
  bool contains(U32 offset) const { return offset >= start && offset - start < size; }
};

std::vector<HotZone> hotZones(const SimOptions& options, const Layout& layout);

// An offset of the feature outside its hot zone, uniform over the rest (anywhere when the zone is
// the whole feature), for a draw in [0, 2^64).
U32 coldOffset(const HotZone& zone, U32 featureSize, U64 draw);

}  // namespace MorvikSim

#endif
