#ifndef MORVIK_SIM_COPYMATH_H
#define MORVIK_SIM_COPYMATH_H

#include <algorithm>

#include "Kel/Types.h"

namespace MorvikSim {

// How a modified range [offset, offset + size) reaches the standby: the range is cut at chunk
// boundaries, and a piece is copied directly exactly when the standby's memory is mapped and the
// piece is shorter than a chunk; whole chunks are left to the background copier. Calls
// piece(at, length, direct) for each piece. `chunk` is a power of two.
template <class Piece>
void forEachPiece(U32 offset, U32 size, U32 chunk, bool remoteMapped, Piece&& piece) {
  U64 at = offset;
  U64 remaining = size;
  while (remaining > 0) {
    const U64 length = std::min<U64>(remaining, chunk - (at & (chunk - 1)));
    piece(at, length, remoteMapped && length < chunk);
    remaining -= length;
    at += length;
  }
}

}  // namespace MorvikSim

#endif
