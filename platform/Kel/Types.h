#ifndef KEL_TYPES_H
#define KEL_TYPES_H

#include <cstdint>

// The platform's integer names. They live at global scope because signature texts and generic type
// names spell them bare ("U32", "U64").
using U8 = std::uint8_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

namespace Kel {
// A caller-owned byte buffer; the library never keeps or frees one.
using BytePtr = unsigned char*;
}  // namespace Kel

#endif
