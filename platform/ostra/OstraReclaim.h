#ifndef OSTRA_OSTRARECLAIM_H
#define OSTRA_OSTRARECLAIM_H

#include <sys/types.h>

#include <cstdint>
#include <string_view>

namespace ostra {

// Regions outlive the processes that make them: the features and agents of one machine share them.
// A region whose creator has died and that no live process maps is debris, though, left by a
// process that was killed; whoever starts that machine afresh reclaims it here.
//
// Removes region `name` of machine `vmid` if it is debris. Returns 0 when the region does not
// exist (any more), otherwise the id of a live process that holds it: its creator, or a process
// that maps it. A region whose creator cannot be told (one from before creators were recorded, or
// whose creator died while making it) counts as having a dead creator.
pid_t reclaimRegion(std::string_view vmid, std::string_view name);
// The same for region `name` of the machine SIMULATION_VMID names now.
pid_t reclaimRegion(const char* name);

// When process `pid` started, in clock ticks since boot; 0 when it does not exist.
std::uint64_t processStart(pid_t pid);

}  // namespace ostra

#endif
