#include "support/Regions.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "Kel/String.h"
#include "MorvikLib/MemMap.h"
#include "ostra/ostra.h"

namespace MorvikTest {

namespace {

constexpr const char* kLocalName = "MorvikLocal";
constexpr const char* kRemoteName = "MorvikRemote";
constexpr const char* kVmidVariable = "SIMULATION_VMID";

U64 pageSize() {
  return static_cast<U64>(::sysconf(_SC_PAGESIZE));
}

U64 roundUpToPage(U64 bytes) {
  return (bytes + pageSize() - 1) / pageSize() * pageSize();
}

// Distinct for every Regions of every process, forked death-test children included.
std::string freshVmid() {
  static std::atomic<unsigned> counter{0};
  return "morvik-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
}

MorvikLib::MemMapType typeOf(bool remote) {
  return remote ? MorvikLib::memMapTypeRemote : MorvikLib::memMapTypeLocal;
}

}  // namespace

Regions::Regions(Kind kind, U32 localSize, U32 remoteSize, Ownership ownership)
    : kind_(kind), ownership_(ownership), localSize_(localSize), remoteSize_(remoteSize) {
  try {
    if (kind_ == Kind::simulated) {
      setUpSimulated();
    } else {
      setUpDevice();
    }
    localView_ = mapOne(false, false).vaddr();
    remoteView_ = mapOne(true, false).vaddr();
    if (!localView_ || !remoteView_) throw std::runtime_error("cannot map the test regions");
  } catch (...) {
    release();
    throw;
  }
}

Regions::~Regions() {
  release();
}

void Regions::release() {
  unmapOne(false, localView_);
  unmapOne(true, remoteView_);
  localView_ = remoteView_ = 0;
  if (ownership_ == Ownership::attach) {
    // The parent frees the regions; only what this object changed is put back.
  } else if (kind_ == Kind::simulated) {
    ostra_free(kLocalName);
    ostra_free(kRemoteName);
  } else if (!file_.empty()) {
    ::unlink(file_.c_str());
  }
  restoreEnvironment();
}

void Regions::setUpSimulated() {
  const char* inherited = std::getenv(kVmidVariable);
  const bool attach = ownership_ == Ownership::attach;
  if (attach && !inherited) throw std::runtime_error("no simulated machine to attach to");
  vmid_ = attach ? inherited : freshVmid();
  envIs(kVmidVariable, vmid_.c_str());
  localPaddr_ = ostra_alloc_func(kLocalName, localSize_, "morvik_tests");
  remotePaddr_ = ostra_alloc_func(kRemoteName, remoteSize_, "morvik_tests");
  if (!localPaddr_ || !remotePaddr_) throw std::runtime_error("cannot allocate DMA regions");
}

void Regions::setUpDevice() {
  envIs(kVmidVariable, nullptr);
  std::string path = "/tmp/morvik-device-XXXXXX";
  int fd = ::mkstemp(path.data());
  if (fd < 0) throw std::runtime_error("cannot create the stand-in device file");
  file_ = path;
  // The remote range starts on a page of its own: the hardware path maps at the offset unrounded.
  remotePaddr_ = roundUpToPage(localSize_);
  const int sized = ::ftruncate(fd, static_cast<off_t>(remotePaddr_ + roundUpToPage(remoteSize_)));
  ::close(fd);
  if (sized != 0) throw std::runtime_error("cannot size the stand-in device file");
}

MappedPair Regions::mapLocal() const {
  return mapPair(false);
}

MappedPair Regions::mapRemote() const {
  return mapPair(true);
}

MappedPair Regions::mapPair(bool remote) const {
  MappedPair pair{mapOne(remote, false), mapOne(remote, true)};
  if (!pair.memory.vaddr() || !pair.shadow.vaddr()) throw std::runtime_error("mapping failed");
  return pair;
}

MorvikLib::MemoryMapping Regions::mapOne(bool remote, bool writable) const {
  const U32 size = remote ? remoteSize_ : localSize_;
  const U64 paddr = remote ? remotePaddr_ : localPaddr_;
  const MorvikLib::MemMapAccess access =
      writable ? MorvikLib::memMapAccessReadWrite : MorvikLib::memMapAccessReadOnly;
  const bool simulated = kind_ == Kind::simulated;
  const U64 filePaddr = simulated ? 0 : paddr;
  const U64 vaddr =
      MorvikLib::doMmap(Kel::String(file_), filePaddr, 0, size, typeOf(remote), access);
  Kel::Name name = simulated ? Kel::Name(remote ? kRemoteName : kLocalName) : Kel::Name(file_);
  return MorvikLib::MemoryMapping(name, vaddr, size, paddr, 0);
}

void Regions::unmapOne(bool remote, U64 vaddr) const {
  if (vaddr) MorvikLib::doMunmap(vaddr, remote ? remoteSize_ : localSize_, typeOf(remote));
}

void Regions::envIs(const char* name, const char* value) {
  const bool known = std::any_of(savedEnv_.begin(), savedEnv_.end(),
                                 [name](const auto& saved) { return saved.first == name; });
  if (!known) {
    const char* old = std::getenv(name);
    savedEnv_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  }
  if (value) {
    ::setenv(name, value, 1);
  } else {
    ::unsetenv(name);
  }
}

void Regions::restoreEnvironment() {
  for (auto it = savedEnv_.rbegin(); it != savedEnv_.rend(); ++it) {
    if (it->second) {
      ::setenv(it->first.c_str(), it->second->c_str(), 1);
    } else {
      ::unsetenv(it->first.c_str());
    }
  }
  savedEnv_.clear();
}

bool Regions::mapped(U64 vaddr) const {
  // Simulated regions live in shared-memory objects named after the machine, device regions in
  // the stand-in file.
  const std::string backing = kind_ == Kind::simulated ? "." + vmid_ + "." : file_;
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    std::istringstream fields(line);
    U64 start = 0, end = 0;
    char dash = 0;
    fields >> std::hex >> start >> dash >> end;
    if (vaddr >= start && vaddr < end) return line.find(backing) != std::string::npos;
  }
  return false;
}

void PrintTo(Regions::Kind kind, std::ostream* out) {
  *out << (kind == Regions::Kind::simulated ? "simulated" : "device");
}

}  // namespace MorvikTest
