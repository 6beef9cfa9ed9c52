#include "HealCause.h"

namespace MorvikSim {

const char* healCauseName(HealCause cause) {
  switch (cause) {
    case HealCause::none:
      return "none";
    case HealCause::audit:
      return "audit";
    case HealCause::write:
      return "write";
    case HealCause::standbyReturn:
      return "standby_return";
    case HealCause::chunkChange:
      return "chunk_change";
    case HealCause::retryResync:
      return "retry_resync";
    case HealCause::chunkCopy:
      return "chunk_copy";
  }
  return "?";
}

const char* healCauseText(HealCause cause) {
  switch (cause) {
    case HealCause::none:
      return "nothing";
    case HealCause::audit:
      return "the audit";
    case HealCause::write:
      return "a feature write";
    case HealCause::standbyReturn:
      return "the resync after the standby's memory returned";
    case HealCause::chunkChange:
      return "the resync after a chunk-size change";
    case HealCause::retryResync:
      return "the resync after the standby stayed silent";
    case HealCause::chunkCopy:
      return "a chunk copy for another write";
  }
  return "?";
}

}  // namespace MorvikSim
