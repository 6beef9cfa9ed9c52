#ifndef MORVIK_PYTHON_SIMREGIONS_H
#define MORVIK_PYTHON_SIMREGIONS_H

#include <string>

#include "Kel/Types.h"

namespace morvikpy {

// The simulated machine's DMA regions as the library will find them: the machine is the one
// SIMULATION_VMID names now.
bool inSimulation();
// A region as ostra_alloc_func and ostra_map will find it.
struct DmaRegion {
  bool exists = false;  // an object of that name is there, usable or not
  bool usable = false;  // its header is complete: it can be found and mapped
  U64 length = 0;
};
DmaRegion dmaRegion(const char* name);
// The file through which a mapping of the region shows in /proc/self/maps.
std::string dmaRegionPath(const char* name);

}  // namespace morvikpy

#endif
