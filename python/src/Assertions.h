#ifndef MORVIK_PYTHON_ASSERTIONS_H
#define MORVIK_PYTHON_ASSERTIONS_H

// The library's assertion texts, quoted by the refusals of the calls that would fail them.
namespace morvikpy::assertion {

inline constexpr const char* kLocalBound = "localMemory().size() >= ( byteOffset + size )";
inline constexpr const char* kRemoteBound = "remoteMemory().size() >= ( byteOffset + size )";
inline constexpr const char* kLocalMapped = "localMemory().vaddr()";
inline constexpr const char* kLocalSize = "localMemory().size()";
inline constexpr const char* kLocalShadow = "localMemoryWritableShadow().vaddr()";
inline constexpr const char* kRemoteShadow = "remoteMemoryWritableShadow().vaddr()";
inline constexpr const char* kLocalEnd =
    "dest + size <= localMemory().vaddr() + localMemory().size()";
inline constexpr const char* kRemoteEnd =
    "dest + size <= remoteMemory().vaddr() + remoteMemory().size()";
inline constexpr const char* kRemoteChunk = "size <= remoteCopyChunkSize()";
inline constexpr const char* kSimulation = "inSimulationEnv()";
inline constexpr const char* kUnmapped = "err == 0";
inline constexpr const char* kProtected = "rval == 0";
inline constexpr const char* kAuditPair = "!morvikAudit() == !morvikAuditRequest()";
inline constexpr const char* kNoAuditSm = "!morvikAuditSm()";
inline constexpr const char* kFeatureInTotal = "byteOffset + size <= morvikTotal";
inline constexpr const char* kSimPaddrFree = "morvikMemory()->localMemorySimPaddr() == 0";
inline constexpr const char* kLocalPaddr = "localPaddr";
inline constexpr const char* kFeatureInPeer =
    "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()";
inline constexpr const char* kRole = "morvikStatus()->activeSupe()";
inline constexpr const char* kAuditRequest = "auditRequest()";
inline constexpr const char* kAuditMemory = "morvikMemory()";

}  // namespace morvikpy::assertion

#endif
