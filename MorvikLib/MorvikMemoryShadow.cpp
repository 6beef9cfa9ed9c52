// Every store into either region goes through its writable shadow: the primary mappings are
// read-only, and page protection is changed on the shadow alone.
#include <cstdint>
#include <cstring>

#include "Kel/Assert.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/MorvikMemory.h"

namespace MorvikLib {

namespace {
constexpr const char* kSigShadow = "U64 MorvikLib::MorvikMemory::getShadow(const U64&, U32) const";

}  // namespace

U64 MorvikMemory::getShadow(const U64& dest, U32 size) const {
  const U64 remoteStart = remoteMemory().vaddr();
  const U64 remoteEnd = remoteStart + remoteMemory().size();
  if (remoteStart <= dest && dest < remoteEnd) {
    KEL_ASSERT_TEXT(dest + size <= remoteEnd,
                    "dest + size <= remoteMemory().vaddr() + remoteMemory().size()", kSigShadow);
    KEL_ASSERT_TEXT(size <= remoteCopyChunkSize(), "size <= remoteCopyChunkSize()", kSigShadow);
    return dest - remoteStart + remoteMemoryWritableShadow().vaddr();
  }
  const U64 localStart = localMemory().vaddr();
  const U64 localEnd = localStart + localMemory().size();
  if (localStart <= dest && dest < localEnd) {
    KEL_ASSERT_TEXT(dest + size <= localEnd,
                    "dest + size <= localMemory().vaddr() + localMemory().size()", kSigShadow);
    return dest - localStart + localMemoryWritableShadow().vaddr();
  }
  return dest;
}

// An empty store may come with a null buffer (a scripting caller's address 0): the translation
// and its checks still run, but memcpy and memset are not handed a null pointer.
void MorvikMemory::protectedMemoryCopy(const U64& dest, const U64& src, U32 size) const {
  void* target = address::pointer(getShadow(dest, size));
  if (size) std::memcpy(target, address::pointer(src), size);
}

void MorvikMemory::protectedMemorySet(const U64& dest, U32 value, U32 size) const {
  void* target = address::pointer(getShadow(dest, size));
  if (size) std::memset(target, static_cast<unsigned char>(value), size);
}

}  // namespace MorvikLib
