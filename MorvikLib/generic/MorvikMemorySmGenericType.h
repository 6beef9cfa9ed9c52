#ifndef MORVIKLIB_GENERIC_MORVIKMEMORYSMGENERICTYPE_H
#define MORVIKLIB_GENERIC_MORVIKMEMORYSMGENERICTYPE_H

#include <memory>

#include "Kel/GenericType.h"

namespace MorvikLib {

// MorvikMemorySm in the generic interface: its inputs, flags and handlers in declared order,
// constructed through morvikMemorySmFactory.
std::unique_ptr<Kel::GenericType> morvikMemorySmGenericType();

}  // namespace MorvikLib

#endif
