#ifndef KEL_ENTITYNOTIFIEE_H
#define KEL_ENTITYNOTIFIEE_H

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"

namespace Kel {

class Entity;
class NotifieeList;

// The base of every notifiee (Entity::NotifieeConst). It holds a counted reference to its notifier,
// so a watched entity outlives the interest of everyone watching it.
//
// Who takes a notifiee out of its notifier's list:
//  - unregistering it, or pointing it at another notifier;
//  - turning it zombie (kelDoZombieReactors(true)): a zombie is detached at once, so the
//  destructor,
//    which skips zombies, never leaves a dangling entry behind;
//  - dropping its last reference: it leaves the list before any destructor runs, so a visit in
//    progress can never reach an object that is being torn down.
class EntityNotifiee : public PtrInterface {
 public:
  Ptr<Entity const> notifierEntity() const { return notifier_; }
  bool isRegisteredNotifiee() const { return isRegisteredNotifiee_; }
  // Whether this notifiee currently sits in its notifier's list (registered and not zombie).
  bool inNotifieeList() const { return inList_; }

  virtual void notifierIs(const Ptr<PtrInterface const>& notifier);
  virtual void isRegisteredNotifieeIs(bool registered);
  virtual void onZeroReferences() {}
  virtual void kelDoZombieReactors(bool zombie);

  void kelMarkedForDeletionIs(bool marked) { markedForDeletion_ = marked; }

  void maybeDelete() override;

 protected:
  // Only typed notifiees exist: an entity calls its handlers through its own notifiee type.
  EntityNotifiee();
  ~EntityNotifiee() override;
  // Converts a would-be notifier to the watched type; another type becomes null.
  virtual const Entity* notifierCast(const PtrInterface* candidate) const;
  // Told whenever this notifiee joins or leaves its notifier's list.
  virtual void notifieeListMembershipIs(bool) {}

 private:
  friend class NotifieeList;
  void join();
  void leave();

  Ptr<Entity const> notifier_;
  bool isRegisteredNotifiee_ = false;
  bool inList_ = false;
  bool markedForDeletion_ = false;
};

}  // namespace Kel

#endif
