#ifndef KEL_ENTITY_H
#define KEL_ENTITY_H

#include <type_traits>

#include "Kel/EntityNotifiee.h"
#include "Kel/Name.h"
#include "Kel/NotifieeList.h"
#include "Kel/PtrInterface.h"

namespace Kel {

// The base of every entity. Each entity type holds its own name and notifiee list and exposes them
// through name() and notifieeList(); the base only defines the contract.
class Entity : public PtrInterface {
 public:
  using NotifieeConst = EntityNotifiee;

  virtual NotifieeList* notifieeList() const = 0;
  virtual Name name() const = 0;
  virtual void nameIsFromBackup(const Name& name) = 0;
  virtual bool referenceTrackingEnabled() const { return true; }
  virtual const char* fwkType() const = 0;

  // Tells every notifiee that the last reference is gone; the argument is not looked at.
  void zeroReferencesIs(bool) override;

 protected:
  Entity() = default;
  ~Entity() override = default;

  // The scalar setter's rule: compare, store, and notify the attribute's handler only when the
  // value changed. Returns whether it did.
  template <class N, class V>
  bool attributeIs(V& slot, const std::type_identity_t<V>& value, void (N::*handler)()) {
    if (slot == value) return false;
    slot = value;
    notify<N>([handler](N* n) { (n->*handler)(); });
    return true;
  }

  // Visits the notifiee list with each notifiee seen as the entity's own notifiee type.
  template <class N, class F>
  void notify(F&& handler) const {
    NotifieeList* list = notifieeList();
    if (!list || list->empty()) return;
    // A handler may let go of the last other reference to this entity (re-pointing the only
    // notifiee away, say); the list must outlive the visit. A listed notifiee holds a reference,
    // so the count is never zero here.
    Ptr<Entity const> self(this);
    list->doVisit([&](EntityNotifiee* n) { handler(static_cast<N*>(n)); });
  }
};

}  // namespace Kel

#endif
