#include "Kel/EntityNotifiee.h"

#include "Kel/Entity.h"

namespace Kel {

EntityNotifiee::EntityNotifiee() {
  PtrInterface::hasNotificationActiveIs(true);
}

EntityNotifiee::~EntityNotifiee() {
  Ptr<Entity const> hold = notifier_;
  listedIs(false);
}

void EntityNotifiee::notifierIs(const Ptr<PtrInterface const>& candidate) {
  const Entity* next = notifierCast(candidate.ptr());
  if (next == notifier_.ptr()) return;
  Ptr<Entity const> old = notifier_;
  listedIs(false);
  notifier_ = Ptr<Entity const>(next);
  listedIs(isRegisteredNotifiee_ && !zombie());
}

void EntityNotifiee::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee_) return;
  isRegisteredNotifiee_ = registered;
  Ptr<Entity const> hold = notifier_;
  listedIs(registered && !zombie());
}

void EntityNotifiee::kelDoZombieReactors(bool zombie) {
  if (zombie == this->zombie()) return;
  zombieBitIs(zombie);
  listedIs(isRegisteredNotifiee_ && !zombie);
}

void EntityNotifiee::maybeDelete() {
  {
    Ptr<Entity const> hold = notifier_;
    listedIs(false);
  }
  PtrInterface::maybeDelete();
}

void EntityNotifiee::listedIs(bool listed) {
  NotifieeList* list = notifier_ ? notifier_->notifieeList() : nullptr;
  if (listed == inList_ || !list) return;
  inList_ = listed;
  if (listed) {
    list->add(this);
  } else {
    list->remove(this);
  }
  notifieeListMembershipIs(listed);
}

}  // namespace Kel
