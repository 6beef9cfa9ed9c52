#include "MorvikLib/generic/GenericRegistration.h"

#include "Kel/GenericType.h"
#include "MorvikLib/TypeNames.h"
#include "MorvikLib/generic/MemoryMappingGenericType.h"
#include "MorvikLib/generic/MorvikMemoryGenericType.h"
#include "MorvikLib/generic/StateMachineGenericTypes.h"

namespace MorvikLib {

void registerGenericTypes() {
  Kel::typeNodeIs(std::make_unique<MemoryMappingGenericType>());
  Kel::typeNodeIs(morvikAuditSmGenericType());
  Kel::typeNodeIs(std::make_unique<MorvikMemoryGenericType>());
  Kel::typeNodeIs(morvikMemorySmGenericType());
}

void unregisterGenericTypes() {
  for (const char* name : kTypeNames) Kel::typeNodeDel(name);
}

}  // namespace MorvikLib
