#ifndef MORVIKLIB_GENERIC_GENERICTYPENAMES_H
#define MORVIKLIB_GENERIC_GENERICTYPENAMES_H

namespace MorvikLib {

// The library's type names in the generic interface, kept together in this order.
inline constexpr const char* kGenericTypeNames[] = {
    "MorvikLib::MorvikMemorySm",
    "MorvikLib::MorvikMemory",
    "MorvikLib::MorvikAuditSm",
    "MorvikLib::MemoryMapping",
};

}  // namespace MorvikLib

#endif
