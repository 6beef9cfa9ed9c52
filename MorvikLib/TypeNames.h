#ifndef MORVIKLIB_TYPENAMES_H
#define MORVIKLIB_TYPENAMES_H

#include <type_traits>

namespace MorvikLib {

// The library's type names, kept together in this order and spelled nowhere else: each class's
// fwkType(), its registration with the generic interface, and every attribute or argument of its
// type (through genericTypeName below) read them here.
inline constexpr char kMorvikMemorySmTypeName[] = "MorvikLib::MorvikMemorySm";
inline constexpr char kMorvikMemoryTypeName[] = "MorvikLib::MorvikMemory";
inline constexpr char kMorvikAuditSmTypeName[] = "MorvikLib::MorvikAuditSm";
inline constexpr char kMemoryMappingTypeName[] = "MorvikLib::MemoryMapping";
inline constexpr const char* kTypeNames[] = {kMorvikMemorySmTypeName, kMorvikMemoryTypeName,
                                             kMorvikAuditSmTypeName, kMemoryMappingTypeName};

class MorvikMemorySm;
class MorvikMemory;
class MorvikAuditSm;
class MemoryMapping;

constexpr const char* genericTypeName(std::type_identity<MorvikMemorySm>) {
  return kMorvikMemorySmTypeName;
}
constexpr const char* genericTypeName(std::type_identity<MorvikMemory>) {
  return kMorvikMemoryTypeName;
}
constexpr const char* genericTypeName(std::type_identity<MorvikAuditSm>) {
  return kMorvikAuditSmTypeName;
}
constexpr const char* genericTypeName(std::type_identity<MemoryMapping>) {
  return kMemoryMappingTypeName;
}

}  // namespace MorvikLib

#endif
