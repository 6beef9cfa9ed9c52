#include "Kel/Clock.h"

#include <algorithm>

namespace Kel {

void Clock::NotifieeConst::timeMinIs(double t) {
  // Asking again for a time no earlier than the last request's, while this is that last request,
  // leaves it where a fresh request would go: at the end. The copier asks so twice a pass.
  if (scheduled_ && clock()->renewLast(this, t)) return;
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

bool Clock::renewLast(NotifieeConst* notifiee, double t) const {
  Request& last = schedule_.back();
  if (last.notifiee != notifiee || t < last.key.first) return false;
  notifiee->requested_ = true;
  notifiee->time_ = t;
  notifiee->key_ = last.key = {t, sequence_++};
  return true;
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
  if (schedule_.empty() || schedule_.front().key.first > now) return 0;
  // One request due, the loop's usual case: nothing after it can run in this pass.
  if (schedule_.size() == 1 || schedule_[1].key.first > now) {
    NotifieeConst* notifiee = schedule_.front().notifiee;
    schedule_.erase(schedule_.begin());
    runRequest(notifiee);
    return 1;
  }
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
    runRequest(notifiee);
    ++ran;
  }
  if (due.capacity() > due_.capacity()) due_ = std::move(due);
  return ran;
}

// The request has left the schedule: whatever the handler asks for runs on a later pass.
void Clock::runRequest(NotifieeConst* notifiee) const {
  notifiee->scheduled_ = false;
  notifiee->requested_ = false;
  Ptr<NotifieeConst> hold(notifiee);
  notifiee->onTime();
}

}  // namespace Kel
