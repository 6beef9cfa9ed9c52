// Simulation-only paths that read the peer's copy or write one copy alone, so that a simulation
// can check replication and provoke checksum mismatches.
#include <cstdint>

#include "Kel/Assert.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/Environment.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {
constexpr const char* kSigReadRemote =
    "void MorvikLib::MorvikMemory::doReadRemoteTest(U32, Kel::BytePtr, U32) const";
constexpr const char* kSigWriteRemote =
    "void MorvikLib::MorvikMemory::doWriteRemoteTest(U32, Kel::BytePtr, U32)";
constexpr const char* kSigWriteLocal =
    "void MorvikLib::MorvikMemory::doWriteLocalTest(U32, Kel::BytePtr, U32)";
constexpr const char* kRemoteBound = "remoteMemory().size() >= ( byteOffset + size )";

}  // namespace

void MorvikMemory::doReadRemoteTest(U32 byteOffset, Kel::BytePtr data, U32 size) const {
  KEL_ASSERT_IN(inSimulationEnv(), kSigReadRemote);
  MORVIK_TRACE(9, "doReadRemoteTest")
      << kSigReadRemote << "remoteMemory().size() " << remoteMemory().size()
      << " byteOffset:" << byteOffset << " size:" << size;
  KEL_ASSERT_TEXT(remoteMemory().size() >= static_cast<U32>(byteOffset + size), kRemoteBound,
                  kSigReadRemote);
  MORVIK_TRACE(9, "doReadRemoteTest")
      << kSigReadRemote << " read from remote memory : " << Kel::hex(remoteMemory().vaddr());
  protectedMemoryCopy(address::of(data), remoteMemory().vaddr() + byteOffset, size);
  MORVIK_TRACE(9, "doReadRemoteTest")
      << kSigReadRemote
      << " memcpy : " << Kel::hex(address::low32(remoteMemory().vaddr() + byteOffset)) << " size "
      << size;
}

void MorvikMemory::doReadRemoteTest_py(U32 byteOffset, const U64& data, U32 size) const {
  doReadRemoteTest(byteOffset, address::buffer(data), size);
}

void MorvikMemory::doWriteRemoteTest(U32 byteOffset, Kel::BytePtr data, U32 size) {
  KEL_ASSERT_IN(inSimulationEnv(), kSigWriteRemote);
  KEL_ASSERT_TEXT(remoteMemory().size() >= static_cast<U32>(byteOffset + size), kRemoteBound,
                  kSigWriteRemote);
  MORVIK_TRACE(9, "doWriteRemoteTest")
      << kSigWriteRemote << " byteOffset " << byteOffset << " size " << size;
  MORVIK_TRACE(9, "doWriteRemoteTest")
      << kSigWriteRemote << " write to remote memory : " << Kel::hex(remoteMemory().vaddr());
  MORVIK_TRACE(9, "doWriteRemoteTest")
      << kSigWriteRemote
      << " memcpy : " << Kel::hex(address::low32(remoteMemory().vaddr() + byteOffset)) << " size "
      << size;
  // Read again on purpose, right before the store.
  KEL_ASSERT_IN(inSimulationEnv(), kSigWriteRemote);
  protectedMemoryCopy(remoteMemory().vaddr() + byteOffset, address::of(data), size);
}

void MorvikMemory::doWriteRemoteTest_py(U32 byteOffset, const U64& data, U32 size) {
  doWriteRemoteTest(byteOffset, address::buffer(data), size);
}

void MorvikMemory::doWriteLocalTest(U32 byteOffset, Kel::BytePtr data, U32 size) {
  KEL_ASSERT_IN(inSimulationEnv(), kSigWriteLocal);
  ignoreChecksumIs(true);
  // The remote region's bound, kept as it is: both regions have one size in a working system.
  KEL_ASSERT_TEXT(remoteMemory().size() >= static_cast<U32>(byteOffset + size), kRemoteBound,
                  kSigWriteLocal);
  MORVIK_TRACE(9, "doWriteLocalTest")
      << kSigWriteLocal << " byteOffset " << byteOffset << " size " << size;
  MORVIK_TRACE(9, "doWriteLocalTest")
      << kSigWriteLocal << " write to local memory : " << Kel::hex(localMemory().vaddr());
  MORVIK_TRACE(9, "doWriteLocalTest")
      << kSigWriteLocal
      << " memcpy : " << Kel::hex(address::low32(localMemory().vaddr() + byteOffset)) << " size "
      << size;
  protectedMemoryCopy(localMemory().vaddr() + byteOffset, address::of(data), size);
}

void MorvikMemory::doWriteLocalTest_py(U32 byteOffset, const U64& data, U32 size) {
  doWriteLocalTest(byteOffset, address::buffer(data), size);
}

}  // namespace MorvikLib
