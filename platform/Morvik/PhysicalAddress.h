#ifndef MORVIK_PHYSICALADDRESS_H
#define MORVIK_PHYSICALADDRESS_H

#include <iosfwd>

#include "Kel/Types.h"

namespace Morvik {

// An address that converts to and from its integer freely, so that offsets add to it like to any
// number; it is a type of its own for its trace form.
template <class Integer, class Space>
class AddressOf {
 public:
  constexpr AddressOf() = default;
  constexpr AddressOf(Integer value) : value_(value) {}
  constexpr operator Integer() const { return value_; }
  constexpr Integer value() const { return value_; }

 private:
  Integer value_ = 0;
};

// A 64-bit physical address, and the 32-bit bus address a device sees.
using PhysicalAddress = AddressOf<U64, struct PhysicalSpace>;
using DmaAddress = AddressOf<U32, struct DmaSpace>;

// Lower-case hex with a "0x" prefix ("0x1f000"); the stream's own flags are left alone.
std::ostream& operator<<(std::ostream& out, PhysicalAddress address);
std::ostream& operator<<(std::ostream& out, DmaAddress address);

}  // namespace Morvik

#endif
