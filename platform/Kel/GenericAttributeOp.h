#ifndef KEL_GENERICATTRIBUTEOP_H
#define KEL_GENERICATTRIBUTEOP_H

#include <utility>
#include <vector>

#include "Kel/GenericAttribute.h"
#include "Kel/GenericValue.h"
#include "Kel/Types.h"

namespace Kel {

// One operation on one attribute of one object, as GenericIf hands it to the type's
// genericIfAttributeOp. GenericIf has already checked that the attribute exists and that the
// operation suits its kind, and converted `value` and `key` to the declared types; function
// arguments are left to the type, which unwraps them (GenericIfImpl::unwrapFunctionArgs).
class GenericAttributeOp {
 public:
  enum class Kind { get, set, memberGet, memberSet, memberDel, members, call };
  using Members = std::vector<std::pair<GenericValue, GenericValue>>;

  GenericAttributeOp(Kind kind, GenericValue self, const GenericAttribute& attribute,
                     U32 attributeId)
      : kind_(kind), self_(std::move(self)), attribute_(attribute), attributeId_(attributeId) {}

  Kind kind() const { return kind_; }
  const GenericValue& self() const { return self_; }
  const GenericAttribute& attribute() const { return attribute_; }
  U32 attributeId() const { return attributeId_; }

  // set: the new value; memberSet: the member's new value.
  GenericValue value;
  // memberGet, memberSet, memberDel, and members when fromKey is set.
  GenericValue key;
  bool fromKey = false;
  // call: the arguments as given.
  std::vector<GenericValue> args;
  // members: filled by the type, each member as (key, value), in the attribute's own order.
  Members members;

 private:
  Kind kind_;
  GenericValue self_;
  const GenericAttribute& attribute_;
  U32 attributeId_;
};

}  // namespace Kel

#endif
