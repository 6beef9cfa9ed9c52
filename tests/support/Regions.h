#ifndef TESTS_SUPPORT_REGIONS_H
#define TESTS_SUPPORT_REGIONS_H

#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Types.h"
#include "MorvikLib/MemoryMapping.h"

namespace MorvikTest {

// One side as the state machine hands it to the memory entity: the region mapped read-only and a
// writable shadow of the same bytes.
struct MappedPair {
  MorvikLib::MemoryMapping memory;
  MorvikLib::MemoryMapping shadow;
};

// Real memory for a test: a local and a remote region, mapped through the library's own mapping
// layer exactly as the state machine maps them.
//
// Simulated regions are the DMA regions "MorvikLocal" and "MorvikRemote" on a simulated machine of
// this object's own (a fresh "SIMULATION_VMID"), so tests never share bytes. Device regions are
// two ranges of a regular temporary file mapped through the hardware path ("SIMULATION_VMID"
// unset), standing in for the device file.
//
// A death test that re-executes the binary builds its fixture again in the child, which then dies
// without tearing it down; such a child attaches to the regions its parent made (the machine named
// by the inherited "SIMULATION_VMID") and leaves them to the parent.
//
// Mappings handed out by mapLocal()/mapRemote() belong to whoever installs them (the entity unmaps
// them); they must be unmapped while this object lives, since the environment that chose the
// mapping path is restored when it goes. Declare it before the entity that uses it.
class Regions {
 public:
  enum class Kind { simulated, device };
  enum class Ownership { create, attach };

  Regions(Kind kind, U32 localSize, U32 remoteSize, Ownership ownership = Ownership::create);
  ~Regions();
  Regions(const Regions&) = delete;
  Regions& operator=(const Regions&) = delete;

  Kind kind() const { return kind_; }
  U32 localSize() const { return localSize_; }
  U32 remoteSize() const { return remoteSize_; }
  U64 localPaddr() const { return localPaddr_; }
  U64 remotePaddr() const { return remotePaddr_; }
  const std::string& vmid() const { return vmid_; }

  MappedPair mapLocal() const;
  MappedPair mapRemote() const;

  // Every byte of a region, read through a mapping of this object's own, so a test can look at a
  // region whatever the entity currently has mapped.
  const U8* localBytes() const { return bytes(localView_); }
  const U8* remoteBytes() const { return bytes(remoteView_); }

  // Sets (or, with nullptr, unsets) an environment variable until this object goes away.
  void envIs(const char* name, const char* value);

  // Whether a mapping of one of these regions covers `vaddr`. Only the process's map is asked, so
  // an address that was unmapped and then reused for something else does not count.
  bool mapped(U64 vaddr) const;

 private:
  MappedPair mapPair(bool remote) const;
  MorvikLib::MemoryMapping mapOne(bool remote, bool writable) const;
  void unmapOne(bool remote, U64 vaddr) const;
  static const U8* bytes(U64 vaddr) { return reinterpret_cast<const U8*>(vaddr); }
  void setUpSimulated();
  void setUpDevice();
  void restoreEnvironment();
  // Unmaps the views, frees what this object created and puts the environment back.
  void release();

  Kind kind_;
  Ownership ownership_;
  U32 localSize_;
  U32 remoteSize_;
  std::string vmid_;
  std::string file_;
  U64 localPaddr_ = 0;
  U64 remotePaddr_ = 0;
  U64 localView_ = 0;
  U64 remoteView_ = 0;
  // Original values, in the order first changed; restored backwards.
  std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv_;
};

// Names the kind in test output.
void PrintTo(Regions::Kind kind, std::ostream* out);

}  // namespace MorvikTest

#endif
