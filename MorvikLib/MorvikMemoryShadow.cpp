// Every store into either region goes through its writable shadow: the primary mappings are
// read-only, and page protection is changed on the shadow alone.
#include <cstring>

#include "MorvikLib/Address.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Shadow.h"
#include "MorvikLib/StreamCopy.h"

namespace MorvikLib {

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
