#ifndef KEL_NOTIFIEECONSTOF_H
#define KEL_NOTIFIEECONSTOF_H

#include <type_traits>

#include "Kel/Entity.h"

namespace Kel {

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
