#include "Morvik/Checksum.h"

#include <cstdint>

#include <xxhash.h>

#include "Morvik/AuditRequest.h"
#include "Morvik/Manifest.h"

namespace Morvik {

U64 addToChecksum(U64 checksum, U64 address, U32 length) {
  // The hash of no bytes still depends on the seed; an empty range must leave the sum alone.
  if (length == 0) return checksum;
  const void* bytes = reinterpret_cast<const void*>(static_cast<std::uintptr_t>(address));
  return XXH3_64bits_withSeed(bytes, length, checksum);
}

U64 auditChecksum(const AuditRequest& request, U64 base, U32 size) {
  if (!request.auditMapEnabled()) return addToChecksum(0, base, size);
  U64 checksum = 0;
  for (const auto& [offset, length] : request.auditMap()) {
    checksum = addToChecksum(checksum, base + offset, static_cast<U32>(length));
  }
  return checksum;
}

U64 twosComplement(U64 value) {
  return ~value + 1;
}

U32 morvikSummer(const Manifest& manifest) {
  U32 total = 0;
  for (const auto& member : manifest.manifest()) total += static_cast<U32>(member.second->size());
  return total;
}

}  // namespace Morvik
