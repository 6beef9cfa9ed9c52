// Every store into either region goes through its writable shadow: the primary mappings are
// read-only, and page protection is changed on the shadow alone.
#include <unistd.h>

#include <cstring>

#include "MorvikLib/Address.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Shadow.h"
#include "MorvikLib/StreamCopy.h"

namespace MorvikLib {

std::size_t largestCachedRegion() {
  static const std::size_t size = [] {
    const long cache = ::sysconf(_SC_LEVEL3_CACHE_SIZE);
    return cache > 0 ? static_cast<std::size_t>(cache) : std::size_t{64} << 20;
  }();
  return size;
}

U64 MorvikMemory::getShadow(const U64& dest, U32 size) const {
  return shadow::target(*this, dest, size).address;
}

void MorvikMemory::protectedMemoryCopy(const U64& dest, const U64& src, U32 size) const {
  shadow::copy(*this, dest, src, size);
}

// Like a copy, an empty fill does not hand memset a null pointer.
void MorvikMemory::protectedMemorySet(const U64& dest, U32 value, U32 size) const {
  void* target = address::pointer(shadow::target(*this, dest, size).address);
  if (size) std::memset(target, static_cast<unsigned char>(value), size);
}

}  // namespace MorvikLib
