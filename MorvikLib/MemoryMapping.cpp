#include "MorvikLib/MemoryMapping.h"

#include <ostream>
#include <string>

#include "Kel/Parse.h"

namespace MorvikLib {

namespace {

template <class T>
T parseNumber(Kel::String::IteratorConst& it, const Kel::String::IteratorConst& end,
              const char* literal, const char* attrName) {
  Kel::needString(it, end, literal);
  return Kel::deserializeAttr<T>(it, end, attrName);
}

}  // namespace

MemoryMapping::MemoryMapping(Kel::String::IteratorConst& it,
                             const Kel::String::IteratorConst& end) {
  Kel::needString(it, end, "Value('MorvikLib::MemoryMapping', ** {");
  Kel::needString(it, end, "'name': ");
  try {
    name_ = Kel::Name(it, end);
  } catch (const Kel::RangeException& e) {
    Kel::rethrowFromDeserializeAttr(e, "name");
  }
  vaddr_ = parseNumber<U64>(it, end, ", 'vaddr': ", "vaddr");
  size_ = parseNumber<U32>(it, end, ", 'size': ", "size");
  paddr_ = parseNumber<U64>(it, end, ", 'paddr': ", "paddr");
  version_ = parseNumber<U64>(it, end, ", 'version': ", "version");
  Kel::needString(it, end, "})");
}

MemoryMapping MemoryMapping::fromStrRep(const Kel::String& text) {
  Kel::String::IteratorConst it = text.begin();
  MemoryMapping value(it, text.end());
  Kel::strepToValueEnd(text, it);
  return value;
}

bool MemoryMapping::operator==(const MemoryMapping& other) const {
  return name_ == other.name_ && vaddr_ == other.vaddr_ && size_ == other.size_ &&
         paddr_ == other.paddr_ && version_ == other.version_;
}

bool MemoryMapping::operator<(const MemoryMapping& other) const {
  if (!(name_ == other.name_)) return name_ < other.name_;
  if (vaddr_ != other.vaddr_) return vaddr_ < other.vaddr_;
  if (size_ != other.size_) return size_ < other.size_;
  if (paddr_ != other.paddr_) return paddr_ < other.paddr_;
  return version_ < other.version_;
}

bool MemoryMapping::operator!() const {
  return *this == MemoryMapping();
}

Kel::String valueToStrep(const MemoryMapping& m) {
  std::string out = "Value('MorvikLib::MemoryMapping', ** {'name': ";
  out += Kel::valueToStrep(m.name()).view();
  out += ", 'vaddr': ";
  out += Kel::valueToStrep(static_cast<unsigned long long>(m.vaddr())).view();
  out += ", 'size': ";
  out += Kel::valueToStrep(static_cast<unsigned long long>(m.size())).view();
  out += ", 'paddr': ";
  out += Kel::valueToStrep(static_cast<unsigned long long>(m.paddr())).view();
  out += ", 'version': ";
  out += Kel::valueToStrep(static_cast<unsigned long long>(m.version())).view();
  out += "})";
  return Kel::String(out);
}

std::ostream& operator<<(std::ostream& out, const MemoryMapping& mapping) {
  return out << valueToStrep(mapping);
}

}  // namespace MorvikLib
