#include "SimRegions.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "ostra/OstraKey.h"
#include "ostra/OstraRegion.h"

namespace morvikpy {

bool inSimulation() {
  return std::getenv("SIMULATION_VMID") != nullptr;
}

DmaRegion dmaRegion(const char* name) {
  const auto key = ostra::currentKey(name);
  if (!key) return {true, false, 0};
  const ostra::Region region = ostra::Region::open(*key, false);
  if (region.valid()) return {true, true, region.info().length};
  const int fd = shm_open(key->objectName.c_str(), O_RDONLY, 0);
  const bool exists = fd >= 0 || errno != ENOENT;
  if (fd >= 0) close(fd);
  return {exists, false, 0};
}

std::string dmaRegionPath(const char* name) {
  const auto key = ostra::currentKey(name);
  return key ? "/dev/shm" + key->objectName : std::string();
}

}  // namespace morvikpy
