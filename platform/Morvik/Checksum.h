#ifndef MORVIK_CHECKSUM_H
#define MORVIK_CHECKSUM_H

#include "Kel/Types.h"

namespace Morvik {

class AuditRequest;
class Manifest;

// Folds `length` bytes at `address` (a virtual address of this process) into a running checksum
// and returns the new running value. Folds start from 0, and folding no bytes changes nothing, so
// the checksum of nothing is 0. Both supervisors must fold with this same function: equal bytes in
// equal order give equal results, while the order of the folds matters.
U64 addToChecksum(U64 checksum, U64 address, U32 length);

// What one audit cycle of `request` checksums, over a copy of the mirrored memory at `base`: all
// `size` bytes, or, when the request's auditMapEnabled is set, only the ranges of its auditMap
// (offset from base -> length, of which only the low 32 bits count), in ascending offset order.
// Both supervisors pick the bytes by this one rule.
U64 auditChecksum(const AuditRequest& request, U64 base, U32 size);

// The 64-bit two's complement: value + twosComplement(value) == 0 modulo 2^64.
U64 twosComplement(U64 value);

// The size of the whole mirrored memory: the sum of the manifest's feature sizes, added in 32-bit
// arithmetic (it wraps at 2^32, which a sound manifest never reaches).
U32 morvikSummer(const Manifest& manifest);

}  // namespace Morvik

#endif
