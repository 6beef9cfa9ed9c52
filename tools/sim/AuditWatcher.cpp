#include "AuditWatcher.h"

#include "Kel/Allocate.h"
#include "Monitor.h"

namespace MorvikSim {

Kel::Ptr<AuditWatcher> AuditWatcher::create(Monitor& monitor, std::size_t feature,
                                            const Kel::Ptr<Morvik::AuditRequest>& request,
                                            const Kel::Ptr<Morvik::AuditStatus>& status) {
  Kel::Ptr<AuditWatcher> watcher = Kel::allocate<AuditWatcher>(monitor, feature, status);
  watcher->notifierIs(request);
  watcher->isRegisteredNotifieeIs(true);
  return watcher;
}

void AuditWatcher::onRequestId() {
  const U32 requestId = notifier()->requestId();
  // The first cycle has no predecessor to have been answered.
  const bool previousUnanswered = requestId > 1 && status_->resultId() != requestId - 1;
  monitor_.auditCycle(feature_, previousUnanswered);
}

void AuditWatcher::onAuditErrorsFixed() {
  monitor_.auditRepair(feature_);
}

}  // namespace MorvikSim
