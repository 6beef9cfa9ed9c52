#ifndef KEL_HEX_H
#define KEL_HEX_H

#include <charconv>
#include <ostream>
#include <string_view>

#include "Kel/Types.h"

namespace Kel {

// A number streamed in lower-case hex without "0x"; the stream's own base and flags are neither
// used nor changed, so the fragments after it stay decimal.
struct Hex {
  U64 value;
};

inline constexpr Hex hex(U64 value) {
  return Hex{value};
}

inline std::ostream& operator<<(std::ostream& out, Hex number) {
  char digits[16];
  const char* end = std::to_chars(digits, digits + sizeof digits, number.value, 16).ptr;
  return out << std::string_view(digits, static_cast<std::size_t>(end - digits));
}

}  // namespace Kel

#endif
