#ifndef KEL_REACTOR_H
#define KEL_REACTOR_H

#include "Kel/Allocate.h"
#include "Kel/Ptr.h"

namespace Kel {

// A state machine's notifiee on one of its inputs: it holds a plain back pointer to its owner, who
// holds the reactor. Reactors are created registered on their notifier, without running a handler.
// Destruction turns the reactor zombie first, which takes it out of its notifier's list, so no
// handler reaches a half-destroyed owner.
template <class Owner, class Notifiee>
class Reactor : public Notifiee {
 public:
  template <class N>
  Reactor(Owner* owner, const Ptr<N>& notifier) : owner_(owner) {
    // Qualified: creating a reactor must not run a re-pointing handler of a derived reactor.
    this->EntityNotifiee::notifierIs(Ptr<PtrInterface const>(notifier));
    this->EntityNotifiee::isRegisteredNotifieeIs(true);
  }

  Owner* owner() const { return owner_; }

 protected:
  ~Reactor() override { this->kelDoZombieReactors(true); }

 private:
  Owner* owner_;
};

// Creates reactor R on `notifier` for `owner`; null when there is no notifier.
template <class R, class Owner, class N>
Ptr<R> reactorNew(Owner* owner, const Ptr<N>& notifier) {
  if (!notifier) return Ptr<R>();
  return allocate<R>(owner, notifier);
}

}  // namespace Kel

#endif
