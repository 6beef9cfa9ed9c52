#ifndef MORVIKLIB_GENERIC_MORVIKMEMORYGENERICTYPE_H
#define MORVIKLIB_GENERIC_MORVIKMEMORYGENERICTYPE_H

#include "Kel/GenericTableType.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/TypeNames.h"

namespace MorvikLib {

// MorvikMemory in the generic interface: the framework's standard entity attributes, then the
// entity's own attributes and functions in their declared order. Every scalar but the standard
// ones is settable through its setter, so a set notifies like any other change.
class MorvikMemoryGenericType : public Kel::GenericTableType<MorvikMemory> {
 public:
  MorvikMemoryGenericType();

  Kel::Ptr<Kel::EntityNotifiee> genericIfNotifiee(
      const Kel::GenericValue& self,
      const Kel::Ptr<Kel::GenericIfNotifiee>& watcher) const override;

 private:
  void standardAttributes();
  void mappingAttributes();
  void dataFunctions();
  void testFunctions();
  void copierAttributes();
  void shadowFunctions();
};

}  // namespace MorvikLib

#endif
