#ifndef KEL_ENTITYNOTIFIEE_H
#define KEL_ENTITYNOTIFIEE_H

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"

namespace Kel {

class Entity;
class NotifieeList;
template <class T>
class NotifieeConstOf;

// The base of every notifiee (Entity::NotifieeConst); only NotifieeConstOf<T> derives from it. It
// holds a counted reference to its notifier, whose list holds it by a plain pointer (B, C, D and
// the zombie rule in Kel.h).
class EntityNotifiee : public PtrInterface {
 public:
  Ptr<Entity const> notifierEntity() const { return notifier_; }
  // Whether this notifiee sits in its notifier's list now (registered and not zombie).
  bool inNotifieeList() const { return inList_; }

  virtual void notifierIs(const Ptr<PtrInterface const>& notifier);
  virtual void isRegisteredNotifieeIs(bool registered);
  virtual void onZeroReferences() {}
  virtual void kelDoZombieReactors(bool zombie);
  void kelMarkedForDeletionIs(bool marked) { markedForDeletion_ = marked; }

  // Leaves the list before any destructor runs: a visit never reaches a half-destroyed notifiee.
  void maybeDelete() override;

 protected:
  ~EntityNotifiee() override;
  // Converts a would-be notifier to the watched type; another type becomes null.
  virtual const Entity* notifierCast(const PtrInterface* candidate) const = 0;
  // Told whenever this notifiee joins or leaves its notifier's list.
  virtual void notifieeListMembershipIs(bool) {}

 private:
  template <class T>
  friend class NotifieeConstOf;
  friend class NotifieeList;
  EntityNotifiee();
  // A notifiee sits in its notifier's list exactly while it is registered and not zombie.
  void listedIs(bool listed);

  Ptr<Entity const> notifier_;
  bool isRegisteredNotifiee_ = false;
  bool inList_ = false;
  bool markedForDeletion_ = false;
};

}  // namespace Kel

#endif
