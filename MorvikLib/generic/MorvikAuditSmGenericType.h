#ifndef MORVIKLIB_GENERIC_MORVIKAUDITSMGENERICTYPE_H
#define MORVIKLIB_GENERIC_MORVIKAUDITSMGENERICTYPE_H

#include <memory>

#include "Kel/GenericType.h"

namespace MorvikLib {

// MorvikAuditSm in the generic interface: its inputs, settings and handlers in declared order,
// constructed through morvikAuditSmFactory.
std::unique_ptr<Kel::GenericType> morvikAuditSmGenericType();

}  // namespace MorvikLib

#endif
