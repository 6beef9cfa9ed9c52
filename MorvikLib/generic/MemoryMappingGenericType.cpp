#include "MorvikLib/generic/MemoryMappingGenericType.h"

namespace MorvikLib {

MemoryMappingGenericType::MemoryMappingGenericType()
    : GenericTableType([](Kel::Name name, U64 vaddr, U32 size, U64 paddr,
                          U64 version) { return MemoryMapping(name, vaddr, size, paddr, version); },
                       {"name", "vaddr", "size", "paddr", "version"}) {
  readable("vaddr", &MemoryMapping::vaddr);
  readable("size", &MemoryMapping::size);
  readable("paddr", &MemoryMapping::paddr);
  readable("version", &MemoryMapping::version);
}

Kel::GenericValue MemoryMappingGenericType::genericIfFromStrRep(const Kel::String& text) const {
  return Kel::GenericValue::of(MemoryMapping::fromStrRep(text));
}

Kel::String MemoryMappingGenericType::genericIfStrRep(const Kel::GenericValue& value) const {
  return valueToStrep(value.as<MemoryMapping>());
}

bool MemoryMappingGenericType::genericIfTypeOp(TypeOp op, const Kel::GenericValue& a,
                                               const Kel::GenericValue& b) const {
  const MemoryMapping& left = a.as<MemoryMapping>();
  switch (op) {
    case TypeOp::equal:
      return left == b.as<MemoryMapping>();
    case TypeOp::less:
      return left < b.as<MemoryMapping>();
    case TypeOp::empty:
      return !left;
  }
  return GenericTableType::genericIfTypeOp(op, a, b);
}

// Deliberately not hashable through the generic interface.
std::size_t MemoryMappingGenericType::genericIfHash(const Kel::GenericValue&) const {
  Kel::GenericIfImpl::throwUnhashableException(name());
}

}  // namespace MorvikLib
