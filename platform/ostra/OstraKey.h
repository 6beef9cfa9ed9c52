#ifndef OSTRA_OSTRAKEY_H
#define OSTRA_OSTRAKEY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ostra {

// A region: the simulated machine it belongs to, its name there, and the shared-memory object
// that holds it.
struct RegionKey {
  std::string vmid;
  std::string name;
  std::string objectName;
};

// The flat shared-memory object name ("/" plus no other '/', at most 200 bytes) for region `name`
// of machine `vmid`; distinct pairs give distinct names.
std::string objectNameFor(std::string_view vmid, std::string_view name);

// The key of region `name` on the machine named by SIMULATION_VMID now; nothing for a null or
// empty name or a key (machine and name) longer than 64 KiB, which the region's header stores.
std::optional<RegionKey> currentKey(const char* name);

// The physical address of region `name`, the same on every machine and in every run: a 64 KiB
// slot (page-aligned for every page size in use) above 4 GiB, so an address cut to 32 bits
// anywhere shows up as a wrong address; a region of any length ends below 2^40.
std::uint64_t physicalAddressFor(std::string_view name);

}  // namespace ostra

#endif
