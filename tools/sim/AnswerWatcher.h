#ifndef MORVIK_SIM_ANSWERWATCHER_H
#define MORVIK_SIM_ANSWERWATCHER_H

#include "Kel/Ptr.h"
#include "Morvik/AuditStatus.h"

namespace MorvikSim {

class Monitor;

// Counts the standby's answers and the mismatches among them; the standby advances resyncTrigger
// last, once its verdict is in place.
class AnswerWatcher : public Morvik::AuditStatus::NotifieeConst {
 public:
  static Kel::Ptr<AnswerWatcher> create(Monitor& monitor,
                                        const Kel::Ptr<Morvik::AuditStatus>& status);

  explicit AnswerWatcher(Monitor& monitor) : monitor_(monitor) {}

  void onResyncTrigger() override;

 private:
  Monitor& monitor_;
};

}  // namespace MorvikSim

#endif
