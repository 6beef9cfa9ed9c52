// Feature-facing data operations beside the write: reads, fills and copies that land locally and
// are then mirrored. doWrite itself lives with the mirror (MorvikMemoryCopier.cpp).
#include <cstdint>
#include <cstring>
#include <ostream>

#include "Kel/Assert.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {

constexpr const char* kSigRead =
    "void MorvikLib::MorvikMemory::doRead(U32, Kel::BytePtr, U32) const";
constexpr const char* kSigSet = "void MorvikLib::MorvikMemory::doSet(U32, U32, U32)";
constexpr const char* kSigCopy = "void MorvikLib::MorvikMemory::doCopy(U32, U32, U32)";
constexpr const char* kSigRemoteSet =
    "void MorvikLib::MorvikMemory::remoteSet(U32, U32, U32) const";

}  // namespace

void MorvikMemory::doWrite_py(U32 byteOffset, const U64& data, U32 size) {
  doWrite(byteOffset, address::buffer(data), size);
}

void MorvikMemory::doRead(U32 byteOffset, Kel::BytePtr data, U32 size) const {
  MORVIK_TRACE(9, "doRead") << kSigRead << "localMemory().size() " << localMemory().size()
                            << " byteOffset:" << byteOffset << " size:" << size;
  KEL_ASSERT_IN(localMemory().vaddr(), kSigRead);
  KEL_ASSERT_IN(localMemory().size(), kSigRead);
  KEL_ASSERT_TEXT(localMemory().size() >= static_cast<U32>(byteOffset + size),
                  "localMemory().size() >= ( byteOffset + size )", kSigRead);
  MORVIK_TRACE(9, "doRead") << kSigRead
                            << " read from local memory : " << Kel::hex(localMemory().vaddr());
  protectedMemoryCopy(address::of(data), localMemory().vaddr() + byteOffset, size);
  MORVIK_TRACE(9, "doRead") << kSigRead << " memcpy : "
                            << Kel::hex(address::low32(localMemory().vaddr() + byteOffset))
                            << " size " << size;
}

void MorvikMemory::doRead_py(U32 byteOffset, const U64& data, U32 size) {
  doRead(byteOffset, address::buffer(data), size);
}

void MorvikMemory::doSet(U32 byteOffset, U32 value, U32 size) {
  ignoreChecksumIs(true);
  MORVIK_TRACE(9, "doSet") << kSigSet << " byteOffset " << byteOffset << " value " << value
                           << " size " << size;
  MORVIK_TRACE(9, "doSet") << kSigSet
                           << " write to local memory : " << Kel::hex(localMemory().vaddr());
  MORVIK_TRACE(9, "doSet") << kSigSet << " memset : "
                           << Kel::hex(address::low32(localMemory().vaddr() + byteOffset))
                           << " value " << value << " size " << size;
  protectedMemorySet(localMemory().vaddr() + byteOffset, value, size);
  remoteCopy(byteOffset, size);
}

void MorvikMemory::doCopy(U32 dstOffset, U32 srcOffset, U32 size) {
  ignoreChecksumIs(true);
  MORVIK_TRACE(9, "doCopy") << kSigCopy << " dstOffset " << dstOffset << " srcOffset " << srcOffset
                            << " size " << size;
  MORVIK_TRACE(9, "doCopy") << kSigCopy
                            << " write to local memory : " << Kel::hex(localMemory().vaddr());
  MORVIK_TRACE(9, "doCopy") << kSigCopy << " memcpy : "
                            << Kel::hex(address::low32(localMemory().vaddr() + dstOffset))
                            << " src "
                            << Kel::hex(address::low32(localMemory().vaddr() + srcOffset))
                            << " size " << size;
  protectedMemoryCopy(localMemory().vaddr() + dstOffset, localMemory().vaddr() + srcOffset, size);
  remoteCopy(dstOffset, size);
}

void MorvikMemory::remoteSet(U32 byteOffset, U32 value, U32 size) const {
  auto* start = address::buffer(remoteMemory().vaddr());
  if (!start) {
    MORVIK_TRACE(0, "remoteSet") << kSigRemoteSet << " vaddrStart NULL ";
    return;
  }
  // The stream deliberately stays in hex after the address.
  MORVIK_TRACE(0, "remoteSet") << kSigRemoteSet << " set remote memory : "
                               << static_cast<const void*>(start + byteOffset) << "value"
                               << std::hex << value << " size " << size;
  protectedMemorySet(address::of(start + byteOffset), value, size);
}

}  // namespace MorvikLib
