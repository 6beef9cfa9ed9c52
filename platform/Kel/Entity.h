#ifndef KEL_ENTITY_H
#define KEL_ENTITY_H

#include <type_traits>

#include "Kel/EntityNotifiee.h"
#include "Kel/Name.h"
#include "Kel/PtrInterface.h"

namespace Kel {

// The base of every entity. Each entity type holds its own name and notifiee list and exposes them
// through name() and notifieeList().
class Entity : public PtrInterface {
 public:
  using NotifieeConst = EntityNotifiee;

  virtual NotifieeList* notifieeList() const = 0;
  virtual Name name() const = 0;
  virtual void nameIsFromBackup(const Name& name) = 0;
  virtual bool referenceTrackingEnabled() const { return true; }
  virtual const char* fwkType() const = 0;

  void zeroReferencesIs(bool) override {
    visitNotifiees([](EntityNotifiee* n) { n->onZeroReferences(); });
  }

 protected:
  Entity() = default;
  ~Entity() override = default;

  template <class F>
  void visitNotifiees(F&& visit) const {
    NotifieeList* list = notifieeList();
    if (!list || list->empty()) return;
    // A handler may let go of the last other reference to this entity (re-pointing the only
    // notifiee away, say); the list must outlive the visit.
    Ptr<Entity const> self(this);
    list->doVisit(visit);
  }
};

// The base of entity type T, which is final. Only T::NotifieeConst objects ever join a T's list
// (see NotifieeConstOf), so a visit hands every listed notifiee to T's handlers as it is.
template <class T>
class EntityOf : public Entity {
 protected:
  // The scalar setter's rule (A): compare, store, and notify the attribute's handler only when the
  // value changed. Returns whether it did.
  template <class V, class N>
  bool attributeIs(V& slot, const std::type_identity_t<V>& value, void (N::*handler)()) {
    if (slot == value) return false;
    slot = value;
    notify<N>([handler](N* n) { (n->*handler)(); });
    return true;
  }

  template <class N, class F>
  void notify(F&& handler) const {
    static_assert(std::is_same_v<N, typename T::NotifieeConst>,
                  "an entity tells its own notifiees");
    visitNotifiees([&handler](EntityNotifiee* n) { handler(static_cast<N*>(n)); });
  }
};

// The typed part of entity type T's notifiee. T::NotifieeConst derives from it, adding one handler
// per attribute of T, and nothing else can. It joins only the list of an entity that converts to
// T, which, T being final, is a T: so every notifiee in a T's list is a T::NotifieeConst.
template <class T>
class NotifieeConstOf : public EntityNotifiee {
 public:
  Ptr<T const> notifier() const {
    return Ptr<T const>(static_cast<T const*>(notifierEntity().ptr()));
  }

 protected:
  const Entity* notifierCast(const PtrInterface* candidate) const override {
    static_assert(std::is_final_v<T> && std::is_base_of_v<EntityOf<T>, T>,
                  "a watched entity type is final and derives from EntityOf<itself>");
    return dynamic_cast<const T*>(candidate);
  }

 private:
  friend typename T::NotifieeConst;
  NotifieeConstOf() = default;
};

}  // namespace Kel

#endif
