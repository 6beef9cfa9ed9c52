#ifndef MORVIK_SIM_SHMREGION_H
#define MORVIK_SIM_SHMREGION_H

#include <string>

#include "Kel/Types.h"

namespace MorvikSim {

// One DMA region of the simulated machine that this run owns: removed when the object goes, so a
// run leaves no shared memory behind, also when it ends by an exception. The machine is the one
// "SIMULATION_VMID" names when each call is made.
class ShmRegion {
 public:
  explicit ShmRegion(std::string name) : name_(std::move(name)) {}
  ~ShmRegion() { release(); }
  ShmRegion(const ShmRegion&) = delete;
  ShmRegion& operator=(const ShmRegion&) = delete;

  const std::string& name() const { return name_; }

  // Creates the region (zero-filled) and owns it; returns its physical address, 0 on failure.
  U64 allocate(U32 length, const char* owner);
  // Owns a region that someone else (the library) creates on our behalf.
  void adopt() { owned_ = true; }
  // A read-only view of the whole region, mapped on first use; 0 when it cannot be mapped.
  const U8* view(U32 length);
  // Unmaps the view and removes the region, if owned.
  void release();

 private:
  std::string name_;
  bool owned_ = false;
  U64 view_ = 0;
  U32 viewLength_ = 0;
};

}  // namespace MorvikSim

#endif
