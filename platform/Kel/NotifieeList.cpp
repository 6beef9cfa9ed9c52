#include "Kel/NotifieeList.h"

#include <algorithm>

#include "Kel/Entity.h"

namespace Kel {

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
