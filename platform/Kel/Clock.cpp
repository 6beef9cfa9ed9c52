#include "Kel/Clock.h"

#include <algorithm>

namespace Kel {

void Clock::NotifieeConst::timeMinIs(double t) {
  cancel();
  requested_ = true;
  time_ = t;
  if (inNotifieeList()) clock()->enqueue(this);
}

Clock::NotifieeConst::~NotifieeConst() {
  cancel();
}

void Clock::NotifieeConst::notifieeListMembershipIs(bool inList) {
  if (inList) {
    if (requested_ && !scheduled_) clock()->enqueue(this);
  } else if (scheduled_) {
    clock()->dequeue(this);
  }
}

void Clock::NotifieeConst::cancel() {
  if (scheduled_) clock()->dequeue(this);
  requested_ = false;
}

// A new request has the highest sequence yet: it goes after every request of its time or earlier.
void Clock::enqueue(NotifieeConst* notifiee) const {
  notifiee->key_ = {notifiee->time_, sequence_++};
  const auto at = std::upper_bound(
      schedule_.begin(), schedule_.end(), notifiee->time_,
      [](double time, const Request& request) { return time < request.key.first; });
  schedule_.insert(at, Request{notifiee->key_, notifiee});
  notifiee->scheduled_ = true;
}

void Clock::dequeue(NotifieeConst* notifiee) const {
  schedule_.erase(find(notifiee->key_));
  notifiee->scheduled_ = false;
}

std::vector<Clock::Request>::iterator Clock::find(const Key& key) const {
  const auto at =
      std::lower_bound(schedule_.begin(), schedule_.end(), key,
                       [](const Request& request, const Key& k) { return request.key < k; });
  return at != schedule_.end() && at->key == key ? at : schedule_.end();
}

std::size_t Clock::runPass(double now) const {
  // A handler may run a pass of its own, so each pass works on its own list of due requests. It
  // borrows the spare list and hands it back, so a steady loop allocates nothing.
  std::vector<std::pair<double, std::uint64_t>> due = std::move(due_);
  due.clear();
  for (const Request& request : schedule_) {
    if (request.key.first > now) break;
    due.push_back(request.key);
  }
  std::size_t ran = 0;
  // Earlier handlers may cancel, re-arm or destroy later ones: look each up again.
  for (const auto& key : due) {
    const auto it = find(key);
    if (it == schedule_.end()) continue;
    NotifieeConst* notifiee = it->notifiee;
    schedule_.erase(it);
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
