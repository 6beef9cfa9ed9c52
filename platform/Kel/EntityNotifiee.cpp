#include "Kel/EntityNotifiee.h"

#include "Kel/Entity.h"

namespace Kel {

EntityNotifiee::EntityNotifiee() {
  PtrInterface::hasNotificationActiveIs(true);
}

EntityNotifiee::~EntityNotifiee() {
  // A zombie was detached when it turned zombie; anyone else still listed leaves now.
  if (notifier_ && inList_) {
    Ptr<Entity const> hold = notifier_;
    leave();
  }
  notifier_ = nullptr;
}

void EntityNotifiee::notifierIs(const Ptr<PtrInterface const>& candidate) {
  const Entity* next = notifierCast(candidate.ptr());
  if (next == notifier_.ptr()) return;
  Ptr<Entity const> old = notifier_;
  if (inList_) leave();
  notifier_ = Ptr<Entity const>(next);
  if (isRegisteredNotifiee_ && !zombie()) join();
}

void EntityNotifiee::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee_) return;
  isRegisteredNotifiee_ = registered;
  if (!notifier_) return;
  Ptr<Entity const> hold = notifier_;
  if (registered && !zombie()) {
    join();
  } else if (!registered) {
    leave();
  }
}

void EntityNotifiee::kelDoZombieReactors(bool zombie) {
  if (zombie == this->zombie()) return;
  zombieBitIs(zombie);
  if (zombie) {
    leave();
  } else if (isRegisteredNotifiee_ && notifier_) {
    join();
  }
}

void EntityNotifiee::maybeDelete() {
  if (inList_) {
    Ptr<Entity const> hold = notifier_;
    leave();
  }
  PtrInterface::maybeDelete();
}

void EntityNotifiee::join() {
  if (inList_ || !notifier_) return;
  NotifieeList* list = notifier_->notifieeList();
  if (!list) return;
  list->add(this);
  inList_ = true;
  notifieeListMembershipIs(true);
}

void EntityNotifiee::leave() {
  if (!inList_) return;
  inList_ = false;
  if (NotifieeList* list = notifier_ ? notifier_->notifieeList() : nullptr) list->remove(this);
  notifieeListMembershipIs(false);
}

}  // namespace Kel
