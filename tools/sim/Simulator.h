#ifndef MORVIK_SIM_SIMULATOR_H
#define MORVIK_SIM_SIMULATOR_H

#include "Report.h"
#include "SimOptions.h"

namespace MorvikSim {

// One run of the chassis, from the records being published to the switchover and the checks.
// Runs in the calling thread on the framework's activity manager.
class Simulator {
 public:
  // The options must have passed validateOptions.
  explicit Simulator(SimOptions options) : options_(std::move(options)) {}

  // Throws std::runtime_error when the chassis cannot be set up (its shared memory, say); every
  // region it made is removed again.
  Report run();

 private:
  SimOptions options_;
};

}  // namespace MorvikSim

#endif
