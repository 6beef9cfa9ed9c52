#include "agents/StandbyResponder.h"

#include <deque>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/Checksum.h"

namespace MorvikAgents {

class StandbyResponder::RequestReactor : public Morvik::AuditRequest::NotifieeConst {
 public:
  explicit RequestReactor(StandbyResponder* owner) : owner_(owner) {}
  void onAuditTrigger() override { owner_->onTrigger(); }
  void detach() { kelDoZombieReactors(true); }

 private:
  StandbyResponder* owner_;
};

// Holds late answers until their time comes, each request's own: a standby that is slow still
// answers every request it saw, in the order it saw them.
class StandbyResponder::LateClock : public Kel::Clock::NotifieeConst {
 public:
  explicit LateClock(StandbyResponder* owner) : owner_(owner) {}
  void answerAt(double t, U64 checksum, U32 requestId, U64 activeChecksum) {
    pending_.push_back({t, checksum, requestId, activeChecksum});
    if (pending_.size() == 1) timeMinIs(t);
  }
  void onTime() override {
    Answer answer = pending_.front();
    pending_.pop_front();
    if (!pending_.empty()) timeMinIs(pending_.front().time);
    owner_->publish(answer.checksum, answer.requestId, answer.activeChecksum);
  }
  std::size_t pending() const { return pending_.size(); }
  void detach() { kelDoZombieReactors(true); }

 private:
  struct Answer {
    double time;
    U64 checksum;
    U32 requestId;
    U64 activeChecksum;
  };
  StandbyResponder* owner_;
  std::deque<Answer> pending_;
};

StandbyResponder::StandbyResponder(const Kel::Ptr<Morvik::AuditRequest>& request,
                                   const Kel::Ptr<Morvik::AuditStatus>& status, U64 copyBase,
                                   U32 copySize)
    : request_(request), status_(status), copyBase_(copyBase), copySize_(copySize) {
  reactor_ = Kel::allocate<RequestReactor>(this);
  reactor_->notifierIs(request_);
  reactor_->isRegisteredNotifieeIs(true);
  lateClock_ = Kel::allocate<LateClock>(this);
  lateClock_->notifierIs(Kel::activityManager()->clock());
  lateClock_->isRegisteredNotifieeIs(true);
}

StandbyResponder::~StandbyResponder() {
  reactor_->detach();
  lateClock_->detach();
}

U64 StandbyResponder::checksumOfCopy() const {
  return Morvik::auditChecksum(*request_, copyBase_, copySize_);
}

std::size_t StandbyResponder::answersPending() const {
  return lateClock_->pending();
}

void StandbyResponder::onTrigger() {
  ++triggersSeen_;
  if (mode_ == Mode::silent) return;
  U64 checksum = checksumOfCopy();
  if (mode_ == Mode::late) {
    lateClock_->answerAt(Kel::System::currentTime() + lateDelay_, checksum, request_->requestId(),
                         request_->activeChecksum());
    return;
  }
  publish(checksum, request_->requestId(), request_->activeChecksum());
}

void StandbyResponder::publish(U64 checksum, U32 requestId, U64 activeChecksum) {
  bool equal = checksum == activeChecksum;
  if (mode_ == Mode::lie) equal = !equal;
  ++answersGiven_;
  status_->standbyChecksumIs(checksum);
  status_->checksumResultIs(equal ? 0 : 1);
  status_->resultIdIs(requestId);
  status_->resyncTriggerInc(1);
}

}  // namespace MorvikAgents
