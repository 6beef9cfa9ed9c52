#ifndef MORVIK_SIM_MEMORYWATCHER_H
#define MORVIK_SIM_MEMORYWATCHER_H

#include <cstddef>
#include <unordered_map>

#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "MorvikLib/MorvikMemory.h"

namespace MorvikSim {

class Monitor;

// Follows one memory's replication status bitmap, the copier's to-do list: a bit that is set is a
// chunk waiting; a bit cleared in a member that stays is a chunk the copier has just copied (a
// resync deletes members instead, and then sets their bits again).
class MemoryWatcher : public MorvikLib::MorvikMemory::NotifieeConst {
 public:
  static Kel::Ptr<MemoryWatcher> create(Monitor& monitor, std::size_t feature,
                                        const Kel::Ptr<MorvikLib::MorvikMemory>& memory);

  MemoryWatcher(Monitor& monitor, std::size_t feature) : monitor_(monitor), feature_(feature) {}

  void onReplicationStatusBitmap(const U64& key) override;

 private:
  Monitor& monitor_;
  std::size_t feature_;
  // What each member held when last seen.
  std::unordered_map<U64, U8> seen_;
};

}  // namespace MorvikSim

#endif
