#include "Kel/EntityNotifiee.h"

#include <algorithm>

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

NotifieeList::~NotifieeList() {
  removeAll();
}

bool NotifieeList::contains(const EntityNotifiee* notifiee) const {
  return notifiee && std::find(entries_.begin(), entries_.end(), notifiee) != entries_.end();
}

void NotifieeList::add(EntityNotifiee* notifiee) {
  if (!notifiee || contains(notifiee)) return;
  entries_.push_back(notifiee);
  ++live_;
}

void NotifieeList::remove(EntityNotifiee* notifiee) {
  auto it = std::find(entries_.begin(), entries_.end(), notifiee);
  if (!notifiee || it == entries_.end()) return;
  --live_;
  if (visiting_) {
    *it = nullptr;
    holes_ = true;
  } else {
    entries_.erase(it);
  }
}

void NotifieeList::removeAll() {
  for (EntityNotifiee*& n : entries_) {
    if (!n) continue;
    EntityNotifiee* gone = n;
    n = nullptr;
    --live_;
    gone->inList_ = false;
    gone->notifieeListMembershipIs(false);
  }
  holes_ = true;
  if (!visiting_) compact();
}

void NotifieeList::compact() {
  if (!holes_) return;
  entries_.erase(std::remove(entries_.begin(), entries_.end(), nullptr), entries_.end());
  holes_ = false;
}

}  // namespace Kel
