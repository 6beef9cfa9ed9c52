#ifndef MORVIK_PHYSICALADDRESS_H
#define MORVIK_PHYSICALADDRESS_H

#include <iosfwd>

#include "Kel/Types.h"

namespace Morvik {

// A 64-bit physical address. It converts to and from U64 freely so that offsets add to it like to
// any number; it exists as a type of its own for its trace form.
class PhysicalAddress {
 public:
  constexpr PhysicalAddress() = default;
  constexpr PhysicalAddress(U64 value) : value_(value) {}
  constexpr operator U64() const { return value_; }
  constexpr U64 value() const { return value_; }

 private:
  U64 value_ = 0;
};

// Lower-case hex with a "0x" prefix ("0x1f000"); the stream's own flags are left alone.
std::ostream& operator<<(std::ostream& out, PhysicalAddress address);

}  // namespace Morvik

#endif
