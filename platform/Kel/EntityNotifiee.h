#ifndef KEL_ENTITYNOTIFIEE_H
#define KEL_ENTITYNOTIFIEE_H

#include <cstddef>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"

namespace Kel {

class Entity;
template <class T>
class NotifieeConstOf;

// The base of every notifiee (Entity::NotifieeConst); only NotifieeConstOf<T> derives from it. It
// holds a counted reference to its notifier, whose list holds it by a plain pointer (B, C, D and
// the zombie rule in Kel.h).
class EntityNotifiee : public PtrInterface {
 public:
  const Ptr<Entity const>& notifierEntity() const { return notifier_; }
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

// An entity's notifiees. A visit stays correct while handlers register, unregister or destroy
// notifiees of the same list: removal leaves a hole that the visit skips (holes are closed once the
// outermost visit ends), and notifiees added during a visit hear only of later changes.
class NotifieeList {
 public:
  NotifieeList() = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;
  ~NotifieeList();

  bool empty() const { return live_ == 0; }
  std::size_t size() const { return live_; }
  bool contains(const EntityNotifiee* notifiee) const;

  void add(EntityNotifiee* notifiee);
  void remove(EntityNotifiee* notifiee);
  // Takes every notifiee out; used by an entity that is going away.
  void removeAll();

  template <class F>
  void doVisit(F&& visit) {
    VisitScope scope(*this);
    const std::size_t count = entries_.size();
    for (std::size_t i = 0; i < count; ++i) {
      EntityNotifiee* n = entries_[i];
      if (!n) continue;
      // The handler may drop the last other reference to its own notifiee.
      Ptr<EntityNotifiee> hold(n);
      visit(n);
    }
  }

 private:
  // A handler may throw out of a visit (a failed mapping, say); the list must still leave the
  // visiting state, or removals would turn into holes that are never closed.
  struct VisitScope {
    explicit VisitScope(NotifieeList& list) : list_(list) { ++list_.visiting_; }
    ~VisitScope() {
      if (--list_.visiting_ == 0 && list_.holes_) list_.compact();
    }
    NotifieeList& list_;
  };

  void compact();

  std::vector<EntityNotifiee*> entries_;
  std::size_t live_ = 0;
  int visiting_ = 0;
  bool holes_ = false;
};

}  // namespace Kel

#endif
