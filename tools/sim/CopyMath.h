#ifndef MORVIK_SIM_COPYMATH_H
#define MORVIK_SIM_COPYMATH_H

#include <algorithm>

#include "Kel/Types.h"

namespace MorvikSim {

// How many bytes of a modified range [offset, offset + size) reach the standby at once: the range
// is cut at chunk boundaries, and a piece is copied directly exactly when the standby's memory is
// mapped and the piece is shorter than a chunk; whole chunks are left to the background copier.
// `chunk` is a power of two.
inline U64 directCopyBytes(U32 offset, U32 size, U32 chunk, bool remoteMapped) {
  if (!remoteMapped) return 0;
  U64 direct = 0;
  U64 at = offset;
  U64 remaining = size;
  while (remaining > 0) {
    const U64 piece = std::min<U64>(remaining, chunk - (at & (chunk - 1)));
    if (piece < chunk) direct += piece;
    remaining -= piece;
    at += piece;
  }
  return direct;
}

}  // namespace MorvikSim

#endif
