#ifndef MORVIKLIB_ENVIRONMENT_H
#define MORVIKLIB_ENVIRONMENT_H

#include <cstdlib>

namespace MorvikLib {

// The environment is read at every use, never cached: an agent (or a test) may change it while the
// library runs.

// Simulation is on whenever the variable is set, even to the empty string.
inline bool inSimulationEnv() {
  return std::getenv("SIMULATION_VMID") != nullptr;
}

inline bool noSyncRequested() {
  return std::getenv("NOSYNC_MORVIK") != nullptr;
}

inline const char* agentProcessName() {
  const char* name = std::getenv("AGENT_PROCESS_NAME");
  return name ? name : "@MorvikLib.kin";
}

}  // namespace MorvikLib

#endif
