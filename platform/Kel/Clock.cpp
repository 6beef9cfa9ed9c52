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

// Runs, in order of key, the requests that were due when the pass began and are still scheduled
// when their turn comes: earlier handlers may cancel, re-arm or destroy later ones, and a handler
// may run a pass of its own. Every key made from here on, "now" included, has a sequence of at
// least `first`, so whatever a handler asks for waits for a later pass.
std::size_t Clock::runPass(double now) const {
  const std::uint64_t first = sequence_;
  std::size_t ran = 0;
  for (auto it = schedule_.begin(); it != schedule_.end() && it->key.first <= now;) {
    if (it->key.second >= first) {
      ++it;
      continue;
    }
    NotifieeConst* notifiee = it->notifiee;
    schedule_.erase(it);
    notifiee->scheduled_ = false;
    notifiee->requested_ = false;
    Ptr<NotifieeConst> hold(notifiee);
    notifiee->onTime();
    ++ran;
    it = schedule_.begin();
  }
  return ran;
}

}  // namespace Kel
