#include "HotZones.h"

#include <algorithm>

#include "Rng.h"

namespace MorvikSim {

namespace {
constexpr U64 kStream = 0x686f747a6f6e65ULL;
}

std::vector<HotZone> hotZones(const SimOptions& options, const Layout& layout) {
  U32 largest = 1;
  for (U32 chunk : options.chunkSizes) largest = std::max(largest, chunk);
  for (const Fault& f : options.faults) largest = std::max(largest, f.chunkSize);
  Rng rng(options.seed ^ kStream);
  std::vector<HotZone> zones;
  for (std::size_t f = 0; f < layout.features(); ++f) {
    const U32 size = layout.size(f);
    HotZone zone;
    zone.size = std::min(size, std::max(size / 8 / largest * largest, largest));
    zone.start = static_cast<U32>(rng.below((size - zone.size) / largest + 1)) * largest;
    zones.push_back(zone);
  }
  return zones;
}

U32 coldOffset(const HotZone& zone, U32 featureSize, U64 draw) {
  const U32 cold = featureSize - zone.size;
  if (cold == 0) return static_cast<U32>(draw % featureSize);
  const U32 offset = static_cast<U32>(draw % cold);
  return offset < zone.start ? offset : offset + zone.size;
}

}  // namespace MorvikSim
