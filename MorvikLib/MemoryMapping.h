#ifndef MORVIKLIB_MEMORYMAPPING_H
#define MORVIKLIB_MEMORYMAPPING_H

#include <iosfwd>

#include "Kel/Name.h"
#include "Kel/String.h"
#include "Kel/Types.h"

namespace MorvikLib {

// One mapped memory range of the process. `size` is deliberately 32 bits wide while the addresses
// and the version are 64; the text form and the parser keep those widths.
class MemoryMapping {
 public:
  MemoryMapping() = default;
  MemoryMapping(const Kel::Name& name, U64 vaddr, U32 size, U64 paddr, U64 version)
      : name_(name), vaddr_(vaddr), size_(size), paddr_(paddr), version_(version) {}
  // Parses the text form written by valueToStrep, advancing `it` past it.
  MemoryMapping(Kel::String::IteratorConst& it, const Kel::String::IteratorConst& end);

  const Kel::Name& name() const { return name_; }
  U64 vaddr() const { return vaddr_; }
  U32 size() const { return size_; }
  U64 paddr() const { return paddr_; }
  U64 version() const { return version_; }

  bool operator==(const MemoryMapping& other) const;
  bool operator!=(const MemoryMapping& other) const { return !(*this == other); }
  bool operator<(const MemoryMapping& other) const;
  // True for a value equal to a default-constructed one.
  bool operator!() const;

  // The generic interface's construction from text: the whole string must be one value.
  static MemoryMapping fromStrRep(const Kel::String& text);

 private:
  Kel::Name name_;
  U64 vaddr_ = 0;
  U32 size_ = 0;
  U64 paddr_ = 0;
  U64 version_ = 0;
};

Kel::String valueToStrep(const MemoryMapping& mapping);
std::ostream& operator<<(std::ostream& out, const MemoryMapping& mapping);

}  // namespace MorvikLib

#endif
