#ifndef MORVIK_SIM_HEALCAUSE_H
#define MORVIK_SIM_HEALCAUSE_H

namespace MorvikSim {

// What put an injected corruption right again. Only `audit` means that the audit found it; the
// others healed it before the audit could, or without the audit's help.
enum class HealCause {
  none,           // nothing yet
  audit,          // an audit cycle saw the mismatch and resynced the feature
  write,          // a feature write covered the byte
  standbyReturn,  // the resync after the standby's memory came back
  chunkChange,    // the resync after a chunk-size change
  retryResync,    // the audit gave up on a silent standby and resynced
  chunkCopy,      // the copier rewrote the chunk for some other reason
};

constexpr int kHealCauses = 7;

// Short names for reports: "audit", "write", "standby-return", ...
const char* healCauseName(HealCause cause);
// How the text report says it: "a feature write", "the resync after the standby returned", ...
const char* healCauseText(HealCause cause);

}  // namespace MorvikSim

#endif
