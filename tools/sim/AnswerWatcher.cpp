#include "AnswerWatcher.h"

#include "Kel/Allocate.h"
#include "Monitor.h"

namespace MorvikSim {

Kel::Ptr<AnswerWatcher> AnswerWatcher::create(Monitor& monitor,
                                              const Kel::Ptr<Morvik::AuditStatus>& status) {
  Kel::Ptr<AnswerWatcher> watcher = Kel::allocate<AnswerWatcher>(monitor);
  watcher->notifierIs(status);
  watcher->isRegisteredNotifieeIs(true);
  return watcher;
}

void AnswerWatcher::onResyncTrigger() {
  monitor_.auditAnswer(notifier()->checksumResult() != 0);
}

}  // namespace MorvikSim
