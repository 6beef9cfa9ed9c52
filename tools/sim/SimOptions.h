#ifndef MORVIK_SIM_SIMOPTIONS_H
#define MORVIK_SIM_SIMOPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "Fault.h"
#include "Kel/Types.h"

namespace MorvikSim {

struct Feature {
  std::string name;
  U32 size = 0;
};

// Relative weights of the workload's operations.
struct MixWeights {
  double small = 80.0;  // short doWrite updates, copied to the standby at once
  double table = 4.0;   // whole-chunk doWrite tables, left to the background copier
  double set = 8.0;     // doSet fills of up to 512 bytes
  double copy = 8.0;    // doCopy moves of up to 512 bytes inside a feature
  double total() const { return small + table + set + copy; }
};

// Everything a run is made of. The defaults are the demonstration: an hour of chassis time,
// 60-second audits, four features and every kind of fault.
struct SimOptions {
  std::vector<Feature> features{{"routes", 1u << 20},
                                {"neighbors", 512u << 10},
                                {"sessions", 256u << 10},
                                {"counters", 64u << 10}};
  double duration = 3600.0;
  std::optional<double> switchoverAt;
  double auditInterval = 60.0;
  double rate = 200.0;
  U64 seed = 1;
  MixWeights mix;
  U32 smallMax = 256;
  // The share of operations that land in their feature's hot eighth; the rest go anywhere in it.
  double locality = 0.95;
  // The first is the chunk size at start; chunk faults without a size take the next one in turn.
  std::vector<U32> chunkSizes{4096, 16384};
  // Whether the default fault schedule runs: automatic means only when no --fault is given.
  enum class FaultSet { automatic, defaults, none };
  FaultSet faultSet = FaultSet::automatic;
  unsigned corruptions = 8;
  std::vector<Fault> faults;
  // Seconds between two timeline samples; 0 picks about 720 samples per run.
  double sampleInterval = 0.0;
  bool realTime = false;
  bool json = false;
  bool nosync = false;
  bool quiet = false;
  std::string csvFile;
  std::string plotFile;
  std::string vmid;
  bool help = false;

  // When the active stops: the switchover time, or the end of the run.
  double switchoverTime() const { return switchoverAt ? *switchoverAt : duration; }
  bool usesDefaultFaults() const {
    return faultSet == FaultSet::defaults || (faultSet == FaultSet::automatic && faults.empty());
  }
  // The chunk sizes given, then those of chunk faults.
  std::vector<U32> chunkSizesUsed() const {
    std::vector<U32> sizes = chunkSizes;
    for (const Fault& f : faults) {
      if (f.kind == Fault::Kind::chunk && f.chunkSize != 0) sizes.push_back(f.chunkSize);
    }
    return sizes;
  }
};

}  // namespace MorvikSim

#endif
