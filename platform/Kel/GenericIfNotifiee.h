#ifndef KEL_GENERICIFNOTIFIEE_H
#define KEL_GENERICIFNOTIFIEE_H

#include "Kel/GenericValue.h"
#include "Kel/PtrInterface.h"
#include "Kel/Types.h"

namespace Kel {

// A generic watcher (GenericIf::NotifieeConst): told of every change of a watched object by the
// attribute's identifier (its position in the type node's attributes), with the key for a keyed
// attribute. A type's generic notifiee holds the watcher and forwards its handlers here.
class GenericIfNotifiee : public PtrInterface {
 public:
  virtual void onRawAttribute(U32 attributeId) = 0;
  virtual void onRawAttribute(U32 attributeId, const GenericValue& key) = 0;

 protected:
  ~GenericIfNotifiee() override = default;
};

}  // namespace Kel

#endif
