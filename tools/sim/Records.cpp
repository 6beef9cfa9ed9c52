#include "Records.h"

namespace MorvikSim {

const char* opKindName(OpKind kind) {
  switch (kind) {
    case OpKind::small:
      return "small";
    case OpKind::table:
      return "table";
    case OpKind::set:
      return "set";
    case OpKind::copy:
      return "copy";
  }
  return "?";
}

const char* resyncKindName(ResyncKind kind) {
  switch (kind) {
    case ResyncKind::initial:
      return "initial";
    case ResyncKind::standbyReturn:
      return "standby_return";
    case ResyncKind::chunkChange:
      return "chunk_change";
    case ResyncKind::auditRepair:
      return "audit_repair";
    case ResyncKind::retryResync:
      return "retry_resync";
  }
  return "?";
}

const char* resyncKindText(ResyncKind kind) {
  switch (kind) {
    case ResyncKind::initial:
      return "initial sync";
    case ResyncKind::standbyReturn:
      return "standby memory back";
    case ResyncKind::chunkChange:
      return "chunk-size change";
    case ResyncKind::auditRepair:
      return "audit repair";
    case ResyncKind::retryResync:
      return "silent-standby retry";
  }
  return "?";
}

}  // namespace MorvikSim
