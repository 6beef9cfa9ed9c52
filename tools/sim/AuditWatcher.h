#ifndef MORVIK_SIM_AUDITWATCHER_H
#define MORVIK_SIM_AUDITWATCHER_H

#include <cstddef>

#include "Kel/Ptr.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"

namespace MorvikSim {

class Monitor;

// Follows one feature's audit request, as the active side writes it: a new requestId is a new
// cycle (and, when the previous one was never answered, the audit gave up on a silent standby and
// resynced); a new auditErrorsFixed is a repair of a confirmed mismatch.
class AuditWatcher : public Morvik::AuditRequest::NotifieeConst {
 public:
  static Kel::Ptr<AuditWatcher> create(Monitor& monitor, std::size_t feature,
                                       const Kel::Ptr<Morvik::AuditRequest>& request,
                                       const Kel::Ptr<Morvik::AuditStatus>& status);

  AuditWatcher(Monitor& monitor, std::size_t feature,
               const Kel::Ptr<Morvik::AuditStatus const>& status)
      : monitor_(monitor), feature_(feature), status_(status) {}

  void onRequestId() override;
  void onAuditErrorsFixed() override;

 private:
  Monitor& monitor_;
  std::size_t feature_;
  Kel::Ptr<Morvik::AuditStatus const> status_;
};

}  // namespace MorvikSim

#endif
