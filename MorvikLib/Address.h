#ifndef MORVIKLIB_ADDRESS_H
#define MORVIKLIB_ADDRESS_H

#include <cstdint>

#include "Kel/Types.h"

// Conversions between the library's U64 addresses and real pointers. A real address is never cut;
// only the figures printed in traces are narrowed, as the 32-bit platform printed them.
namespace MorvikLib::address {

inline U32 low32(U64 value) {
  return static_cast<U32>(value);
}

inline U64 of(const void* p) {
  return static_cast<U64>(reinterpret_cast<std::uintptr_t>(p));
}

inline void* pointer(U64 address) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(address));
}

inline Kel::BytePtr buffer(U64 address) {
  return static_cast<Kel::BytePtr>(pointer(address));
}

// A buffer address widened as a signed pointer-sized integer, as the platform's traces show it.
inline U64 signWidened(const void* p) {
  return static_cast<U64>(static_cast<std::intptr_t>(reinterpret_cast<std::uintptr_t>(p)));
}

}  // namespace MorvikLib::address

#endif
