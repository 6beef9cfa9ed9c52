#ifndef OSTRA_OSTRAADDRESS_H
#define OSTRA_OSTRAADDRESS_H

#include <cstdint>
#include <string_view>

namespace ostra {

// Simulated physical memory: 64 KiB slots (page-aligned for every page size in use) above 4 GiB,
// so an address cut to 32 bits anywhere shows up as a wrong address; a region of any length ends
// below 2^40.
inline constexpr std::uint64_t kPhysicalBase = 1ull << 32;
inline constexpr std::uint64_t kLongestRegionBytes = 1ull << 32;
inline constexpr std::uint64_t kPhysicalLimit = 1ull << 40;
inline constexpr std::uint64_t kPhysicalSlotBytes = 1ull << 16;

// The physical address of region `name`, the same on every machine and in every run.
std::uint64_t physicalAddressFor(std::string_view name);

}  // namespace ostra

#endif
