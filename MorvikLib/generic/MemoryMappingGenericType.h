#ifndef MORVIKLIB_GENERIC_MEMORYMAPPINGGENERICTYPE_H
#define MORVIKLIB_GENERIC_MEMORYMAPPINGGENERICTYPE_H

#include <cstddef>

#include "Kel/GenericTableType.h"
#include "MorvikLib/MemoryMapping.h"
#include "MorvikLib/TypeNames.h"

namespace MorvikLib {

// MemoryMapping in the generic interface: an immutable value. Its five fields are readable (a set
// is refused), it compares with ==, < and !, parses from and prints to its text form, and refuses
// to be hashed.
class MemoryMappingGenericType : public Kel::GenericTableType<const MemoryMapping> {
 public:
  MemoryMappingGenericType();

  Kel::GenericValue genericIfFromStrRep(const Kel::String& text) const override;
  Kel::String genericIfStrRep(const Kel::GenericValue& value) const override;
  bool genericIfTypeOp(TypeOp op, const Kel::GenericValue& a,
                       const Kel::GenericValue& b) const override;
  std::size_t genericIfHash(const Kel::GenericValue& value) const override;
};

}  // namespace MorvikLib

#endif
