#ifndef KEL_HEX_H
#define KEL_HEX_H

#include <ios>
#include <ostream>

#include "Kel/Types.h"

namespace Kel {

// A number streamed in lower-case hex without "0x"; the stream's own base and flags are left as
// they were, so the fragments after it stay decimal.
class Hex {
 public:
  explicit constexpr Hex(U64 value) : value_(value) {}
  U64 value() const { return value_; }

 private:
  U64 value_;
};

inline constexpr Hex hex(U64 value) {
  return Hex(value);
}

inline std::ostream& operator<<(std::ostream& out, Hex number) {
  const std::ios_base::fmtflags saved = out.flags();
  out.flags(
      (saved & ~(std::ios_base::basefield | std::ios_base::showbase | std::ios_base::uppercase)) |
      std::ios_base::hex);
  out << number.value();
  out.flags(saved);
  return out;
}

}  // namespace Kel

#endif
