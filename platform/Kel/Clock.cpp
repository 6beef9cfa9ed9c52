#include "Kel/Clock.h"

namespace Kel {

void Clock::NotifieeConst::timeMinIs(double t) {
  cancel();
  requested_ = true;
  time_ = t;
  if (inNotifieeList()) notifier()->enqueue(this);
}

Clock::NotifieeConst::~NotifieeConst() {
  cancel();
}

void Clock::NotifieeConst::notifieeListMembershipIs(bool inList) {
  if (inList) {
    if (requested_ && !scheduled_) notifier()->enqueue(this);
  } else if (scheduled_) {
    notifier()->dequeue(this);
  }
}

void Clock::NotifieeConst::cancel() {
  if (scheduled_) notifier()->dequeue(this);
  requested_ = false;
}

void Clock::enqueue(NotifieeConst* notifiee) const {
  notifiee->key_ = {notifiee->time_, sequence_++};
  if (notifiee->spare_.empty()) {
    schedule_.emplace(notifiee->key_, notifiee);
  } else {
    notifiee->spare_.key() = notifiee->key_;
    notifiee->spare_.mapped() = notifiee;
    schedule_.insert(std::move(notifiee->spare_));
  }
  notifiee->scheduled_ = true;
}

void Clock::dequeue(NotifieeConst* notifiee) const {
  notifiee->spare_ = schedule_.extract(notifiee->key_);
  notifiee->scheduled_ = false;
}

std::size_t Clock::runPass(double now) const {
  // A handler may run a pass of its own, so each pass works on its own list of due requests. It
  // borrows the spare list and hands it back, so a steady loop allocates nothing.
  std::vector<std::pair<double, std::uint64_t>> due = std::move(due_);
  due.clear();
  for (const auto& [key, notifiee] : schedule_) {
    if (key.first > now) break;
    due.push_back(key);
  }
  std::size_t ran = 0;
  // Earlier handlers may cancel, re-arm or destroy later ones: look each up again.
  for (const auto& key : due) {
    auto it = schedule_.find(key);
    if (it == schedule_.end()) continue;
    NotifieeConst* notifiee = it->second;
    notifiee->spare_ = schedule_.extract(it);
    notifiee->scheduled_ = false;
    notifiee->requested_ = false;
    Ptr<NotifieeConst> hold(notifiee);
    notifiee->onTime();
    ++ran;
  }
  if (due.capacity() > due_.capacity()) due_ = std::move(due);
  return ran;
}

}  // namespace Kel
