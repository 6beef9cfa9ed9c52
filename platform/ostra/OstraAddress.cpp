#include "ostra/OstraAddress.h"

#include "ostra/OstraHash.h"

namespace ostra {

std::uint64_t physicalAddressFor(std::string_view name) {
  constexpr std::uint64_t slots =
      (kPhysicalLimit - kLongestRegionBytes - kPhysicalBase) / kPhysicalSlotBytes;
  return kPhysicalBase + fnv1a(name) % slots * kPhysicalSlotBytes;
}

}  // namespace ostra
