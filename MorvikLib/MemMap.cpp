#include "MorvikLib/MemMap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "Kel/Assert.h"
#include "Kel/Exception.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/Environment.h"
#include "MorvikLib/Trace.h"
#include "ostra/ostra.h"

namespace MorvikLib {

namespace {

constexpr const char* kSigMap =
    "U64 MorvikLib::doMmap(Kel::String, U64, U64, U64, MorvikLib::MemMapType, "
    "MorvikLib::MemMapAccess)";
constexpr const char* kSigUnmap = "int MorvikLib::doMunmap(U64, U64, MorvikLib::MemMapType)";

const char* regionName(MemMapType type) {
  return type ? "MorvikRemote" : "MorvikLocal";
}

// Addresses come back sign-widened from the pointer-sized value, as on the 32-bit platform.
U64 widen(std::uintptr_t raw) {
  return static_cast<U64>(static_cast<std::intptr_t>(raw));
}

U64 mapSimulated(U64 byteOffset, U64 size, MemMapType type, MemMapAccess access) {
  const char* name = regionName(type);
  MORVIK_TRACE(5, "doMmap") << kSigMap << "inSimulation: ostraName " << name;
  U64 result =
      widen(ostra_map(name, access == 0 ? 1 : 0, address::low32(byteOffset), address::low32(size)));
  MORVIK_TRACE(5, "doMmap") << kSigMap << "inSimulation: "
                            << " ostra_map  " << name << " byteOffset:" << byteOffset
                            << " size:" << size << " returns:" << Kel::hex(result);
  return result;
}

U64 mapDevice(const Kel::String& file, U64 paddr, U64 size, MemMapAccess access) {
  MORVIK_TRACE(5, "doMmap") << kSigMap << " NOT inSimulation";
  int fd = ::open(file.charPtr(), O_RDWR);
  if (fd < 0) {
    int err = errno;
    MORVIK_TRACE(0, "doMmap") << "Unable to open " << file;
    throw Kel::ErrnoException(err, "opening file");
  }
  MORVIK_TRACE(5, "doMmap") << "paddr is  " << Kel::format("0x%llx", (unsigned long long)paddr)
                            << " size is " << Kel::format("0x%llx", (unsigned long long)size);
  int prot = access == 0 ? PROT_READ | PROT_WRITE : PROT_READ;
  void* mapped =
      ::mmap64(nullptr, address::low32(size), prot, MAP_SHARED, fd, static_cast<off64_t>(paddr));
  int err = errno;
  ::close(fd);
  if (mapped == MAP_FAILED) {
    MORVIK_TRACE(0, "doMmap") << "Failed to mmap " << file;
    throw Kel::ErrnoException(err, "mmaping file");
  }
  U64 result = widen(reinterpret_cast<std::uintptr_t>(mapped));
  MORVIK_TRACE(5, "doMmap") << " mmap returns:"
                            << Kel::format("0x%llx", (unsigned long long)result);
  return result;
}

void unmapSimulated(U64 vaddr, U64 size, MemMapType type) {
  const char* name = regionName(type);
  MORVIK_TRACE(5, "doMunmap") << kSigUnmap << " inSimulation: ostraName " << name
                              << " vaddr: " << Kel::hex(vaddr);
  int err = ostra_unmap(name, static_cast<std::uintptr_t>(vaddr), address::low32(size));
  MORVIK_TRACE(5, "doMunmap") << kSigUnmap << "inSimulation: "
                              << " ostra_unmap  " << name << " vaddr:" << Kel::hex(vaddr)
                              << " size:" << Kel::hex(size)
                              << " returns:" << Kel::hex(static_cast<U32>(err));
  KEL_ASSERT_IN(err == 0, kSigUnmap);
}

void unmapDevice(U64 vaddr, U64 size) {
  if (::munmap(address::pointer(vaddr), address::low32(size)) != 0) {
    int err = errno;
    MORVIK_TRACE(0, "doMunmap") << kSigUnmap << " Failed to unmmap " << Kel::hex(vaddr) << " size "
                                << Kel::hex(size);
    throw Kel::ErrnoException(err, "munmap failed");
  }
}

}  // namespace

U64 doMmap(Kel::String file, U64 paddr, U64 byteOffset, U64 size, MemMapType type,
           MemMapAccess access) {
  if (inSimulationEnv()) return mapSimulated(byteOffset, size, type, access);
  return mapDevice(file, paddr, size, access);
}

int doMunmap(U64 vaddr, U64 size, MemMapType type) {
  MORVIK_TRACE(5, "doMunmap") << kSigUnmap;
  if (inSimulationEnv()) {
    unmapSimulated(vaddr, size, type);
  } else {
    unmapDevice(vaddr, size);
  }
  return 0;
}

}  // namespace MorvikLib
