#ifndef MORVIKLIB_GENERIC_GENERICREGISTRATION_H
#define MORVIKLIB_GENERIC_GENERICREGISTRATION_H

namespace MorvikLib {

// Registers the library's four types with the framework's type registry, in the order
// MemoryMapping, MorvikAuditSm, MorvikMemory, MorvikMemorySm. Called when the library is loaded.
void registerGenericTypes();
// Takes them out again; called when the library is unloaded.
void unregisterGenericTypes();

}  // namespace MorvikLib

#endif
