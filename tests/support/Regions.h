#ifndef TESTS_SUPPORT_REGIONS_H
#define TESTS_SUPPORT_REGIONS_H

#include <optional>
#include <string>

#include "Kel/Types.h"
#include "MorvikLib/MemoryMapping.h"
#include "MorvikLib/MorvikMemory.h"

namespace MorvikTest {

// One side as the state machine hands it over: the region read-only and a writable shadow of it.
struct MappedPair {
  MorvikLib::MemoryMapping memory;
  MorvikLib::MemoryMapping shadow;
};

// Real memory for a test, mapped through the library's own mapping layer: the DMA regions
// "MorvikLocal" and "MorvikRemote" on a fresh simulated machine ("SIMULATION_VMID" set while this
// lives), or two ranges of a temporary regular file through the hardware path, standing in for
// the device file. Mappings handed out must be unmapped while this lives: declare it first.
class Regions {
 public:
  enum class Kind { simulated, device };

  Regions(Kind kind, U32 localSize, U32 remoteSize);
  ~Regions();
  Regions(const Regions&) = delete;
  Regions& operator=(const Regions&) = delete;

  const std::string& vmid() const { return vmid_; }
  // The stand-in device file and where the remote range begins in it.
  const std::string& file() const { return file_; }
  U64 remotePaddr() const { return paddr_[1]; }
  MappedPair mapLocal() const { return {mapOne(false, false), mapOne(false, true)}; }
  MappedPair mapRemote() const { return {mapOne(true, false), mapOne(true, true)}; }
  // Maps one side and installs it, as the state machine does.
  void setLocal(MorvikLib::MorvikMemory& memory) const;
  void setRemote(MorvikLib::MorvikMemory& memory) const;

  // Every byte of a region, through a mapping of this object's own.
  const U8* localBytes() const { return reinterpret_cast<const U8*>(view_[0]); }
  const U8* remoteBytes() const { return reinterpret_cast<const U8*>(view_[1]); }

  // Whether a shared mapping (a region's, or the device file's) covers `vaddr`. What an allocator
  // maps into the hole an unmap left is private, and does not count.
  bool mapped(U64 vaddr) const;

 private:
  MorvikLib::MemoryMapping mapOne(bool remote, bool writable) const;
  void release();

  Kind kind_;
  // Indexed by side: 0 local, 1 remote.
  U32 size_[2];
  U64 paddr_[2] = {0, 0};
  U64 view_[2] = {0, 0};
  std::string vmid_;
  std::string file_;
  // "SIMULATION_VMID" as it was, put back when this object goes.
  std::optional<std::string> savedVmid_;
};

}  // namespace MorvikTest

#endif
