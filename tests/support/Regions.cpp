#include "support/Regions.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Kel/String.h"
#include "MorvikLib/MemMap.h"
#include "ostra/ostra.h"

namespace MorvikTest {

namespace {

const char* const kNames[2] = {"MorvikLocal", "MorvikRemote"};

const U64 kPage = static_cast<U64>(::sysconf(_SC_PAGESIZE));

MorvikLib::MemMapType typeOf(bool remote) {
  return remote ? MorvikLib::memMapTypeRemote : MorvikLib::memMapTypeLocal;
}

}  // namespace

Regions::Regions(Kind kind, U32 localSize, U32 remoteSize)
    : kind_(kind), size_{localSize, remoteSize} {
  if (const char* vmid = std::getenv("SIMULATION_VMID")) savedVmid_ = vmid;
  try {
    if (kind_ == Kind::simulated) {
      // Distinct for every Regions of every process, forked death-test children included.
      static std::atomic<unsigned> counter{0};
      vmid_ = "morvik-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
      ::setenv("SIMULATION_VMID", vmid_.c_str(), 1);
      for (int side : {0, 1}) paddr_[side] = ostra_alloc_func(kNames[side], size_[side], "tests");
      if (!paddr_[0] || !paddr_[1]) throw std::runtime_error("cannot allocate DMA regions");
    } else {
      ::unsetenv("SIMULATION_VMID");
      std::string path = "/tmp/morvik-device-XXXXXX";
      const int fd = ::mkstemp(path.data());
      if (fd < 0) throw std::runtime_error("cannot create the stand-in device file");
      file_ = path;
      // The remote range starts on a page of its own: the hardware path maps at the offset as is.
      paddr_[1] = (localSize + kPage - 1) / kPage * kPage;
      const int sized = ::ftruncate(fd, static_cast<off_t>(paddr_[1] + remoteSize + kPage));
      ::close(fd);
      if (sized != 0) throw std::runtime_error("cannot size the stand-in device file");
    }
    for (int side : {0, 1}) view_[side] = mapOne(side, false).vaddr();
    if (!view_[0] || !view_[1]) throw std::runtime_error("cannot map the test regions");
  } catch (...) {
    release();
    throw;
  }
}

Regions::~Regions() {
  release();
}

// Unmaps the views, frees what this object made and puts "SIMULATION_VMID" back.
void Regions::release() {
  for (int side : {0, 1}) {
    if (view_[side]) MorvikLib::doMunmap(view_[side], size_[side], typeOf(side));
    if (kind_ == Kind::simulated) ostra_free(kNames[side]);
  }
  if (!file_.empty()) ::unlink(file_.c_str());
  if (savedVmid_) {
    ::setenv("SIMULATION_VMID", savedVmid_->c_str(), 1);
  } else {
    ::unsetenv("SIMULATION_VMID");
  }
}

void Regions::setLocal(MorvikLib::MorvikMemory& memory) const {
  const MappedPair pair = mapLocal();
  memory.setLocal(pair.memory, pair.shadow);
}

void Regions::setRemote(MorvikLib::MorvikMemory& memory) const {
  const MappedPair pair = mapRemote();
  memory.setRemote(pair.memory, pair.shadow);
}

MorvikLib::MemoryMapping Regions::mapOne(bool remote, bool writable) const {
  const bool simulated = kind_ == Kind::simulated;
  const U64 vaddr = MorvikLib::doMmap(
      Kel::String(file_), simulated ? 0 : paddr_[remote], 0, size_[remote], typeOf(remote),
      writable ? MorvikLib::memMapAccessReadWrite : MorvikLib::memMapAccessReadOnly);
  if (!vaddr) throw std::runtime_error("mapping failed");
  return MorvikLib::MemoryMapping(Kel::Name(simulated ? kNames[remote] : file_.c_str()), vaddr,
                                  size_[remote], paddr_[remote], 0);
}

bool Regions::mapped(U64 vaddr) const {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    unsigned long long from = 0, to = 0;
    char perms[5] = {};
    if (std::sscanf(line.c_str(), "%llx-%llx %4s", &from, &to, perms) == 3 && from <= vaddr &&
        vaddr < to) {
      return perms[3] == 's';
    }
  }
  return false;
}

}  // namespace MorvikTest
