#ifndef KEL_NOTIFIEECONSTOF_H
#define KEL_NOTIFIEECONSTOF_H

#include "Kel/Entity.h"

namespace Kel {

// The typed part of an entity type's notifiee: T::NotifieeConst derives from this and adds one
// handler per attribute of T.
template <class T>
class NotifieeConstOf : public Entity::NotifieeConst {
 public:
  Ptr<T const> notifier() const {
    return Ptr<T const>(static_cast<T const*>(notifierEntity().ptr()));
  }

 protected:
  const Entity* notifierCast(const PtrInterface* candidate) const override {
    return dynamic_cast<const T*>(candidate);
  }
};

}  // namespace Kel

#endif
