#include "MorvikLib/generic/MemoryMappingGenericType.h"

namespace MorvikLib {

namespace {

constexpr const char* kType = "MorvikLib::MemoryMapping";

Kel::GenericValue wrap(const MemoryMapping& m) {
  return Kel::genericWrap(kType, m);
}

}  // namespace

MemoryMappingGenericType::MemoryMappingGenericType()
    : GenericTableType(kType, Kind::value,
                       {{"Kel::Name", "name"},
                        {"U64", "vaddr"},
                        {"U32", "size"},
                        {"U64", "paddr"},
                        {"U64", "version"}},
                       [](const Args& a) {
                         return wrap(MemoryMapping(a[0].as<Kel::Name>(), a[1].as<U64>(),
                                                   a[2].as<U32>(), a[3].as<U64>(), a[4].as<U64>()));
                       }) {
  readable("name", "Kel::Name", [](const MemoryMapping& m) { return m.name(); });
  readable("vaddr", "U64", [](const MemoryMapping& m) { return m.vaddr(); });
  readable("size", "U32", [](const MemoryMapping& m) { return m.size(); });
  readable("paddr", "U64", [](const MemoryMapping& m) { return m.paddr(); });
  readable("version", "U64", [](const MemoryMapping& m) { return m.version(); });
}

Kel::GenericValue MemoryMappingGenericType::genericIfFromStrRep(const Kel::String& text) const {
  return wrap(MemoryMapping::fromStrRep(text));
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
  Kel::GenericIfImpl::throwUnhashableException(kType);
}

}  // namespace MorvikLib
