#ifndef MORVIKLIB_GENERIC_STATEMACHINEGENERICTYPES_H
#define MORVIKLIB_GENERIC_STATEMACHINEGENERICTYPES_H

#include <memory>

#include "Kel/GenericType.h"

namespace MorvikLib {

// The state machines in the generic interface: their inputs, settings and handlers in declared
// order, constructed through their factories.
std::unique_ptr<Kel::GenericType> morvikMemorySmGenericType();
std::unique_ptr<Kel::GenericType> morvikAuditSmGenericType();

}  // namespace MorvikLib

#endif
