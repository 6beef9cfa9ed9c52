#ifndef MORVIK_DMAADDRESS_H
#define MORVIK_DMAADDRESS_H

#include <iosfwd>

#include "Kel/Types.h"

namespace Morvik {

// A 32-bit bus address as a device sees it; converts to and from U32 like PhysicalAddress does
// to and from U64.
class DmaAddress {
 public:
  constexpr DmaAddress() = default;
  constexpr DmaAddress(U32 value) : value_(value) {}
  constexpr operator U32() const { return value_; }
  constexpr U32 value() const { return value_; }

 private:
  U32 value_ = 0;
};

// Lower-case hex with a "0x" prefix ("0x8000"), like PhysicalAddress.
std::ostream& operator<<(std::ostream& out, DmaAddress address);

}  // namespace Morvik

#endif
