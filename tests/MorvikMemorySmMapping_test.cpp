#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Exception.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "ostra/ostra.h"
#include "support/Chassis.h"
#include "support/Timeline.h"

// The library's device mappings reach this mmap64 before the system's, so a test can make the
// next read-only ones fail.
int failingReadOnlyMaps = 0;

extern "C" void* mmap64(void* addr, size_t length, int prot, int flags, int fd,
                        off64_t offset) noexcept {
  using Mmap = void* (*)(void*, size_t, int, int, int, off64_t);
  static const auto next = reinterpret_cast<Mmap>(::dlsym(RTLD_NEXT, "mmap64"));
  if (prot == PROT_READ && failingReadOnlyMaps > 0) {
    --failingReadOnlyMaps;
    errno = ENOMEM;
    return MAP_FAILED;
  }
  return next(addr, length, prot, flags, fd, offset);
}

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;
using testing::ElementsAre;

const std::string kSm = "void MorvikLib::MorvikMemorySm::";

TEST(MorvikMemorySmMappingTest, LocalMappingsCarryTheDmaAddressRemoteOnesThePeersOwnAddress) {
  Chassis::Options options;
  options.peerMemory = 0x123456789000ull;
  Chassis chassis(options);
  const U64 localPaddr = ostra_alloc_func("MorvikLocal", chassis.total(), "");
  ASSERT_GT(localPaddr, 0xffffffffull) << "a DMA address must differ from the physical one";
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    const Kel::Ptr<MorvikMemory>& memory = chassis.memory(i);
    const U64 offset = chassis.byteOffset(i);
    EXPECT_EQ(memory->localMemorySimPaddr(), localPaddr);
    for (const MemoryMapping& m : {memory->localMemory(), memory->localMemoryWritableShadow()})
      EXPECT_EQ(m.paddr(), U64{ostra_pa_to_dma(localPaddr + offset)});
    for (const MemoryMapping& m : {memory->remoteMemory(), memory->remoteMemoryWritableShadow()}) {
      EXPECT_EQ(m.paddr(), chassis.remotePaddr() + offset);
      EXPECT_EQ(m.version(), options.peerMemory + offset);
    }
  }
}

// Local memory at offset 0 of the file, the peer's memory from `remoteBase` on.
class DeviceFile {
 public:
  DeviceFile(U64 remoteBase, U64 bytes) : remoteBase(remoteBase) {
    fd_ = ::mkstemp(path.data());
    if (fd_ < 0 || ::ftruncate(fd_, static_cast<off_t>(bytes)) != 0)
      throw std::runtime_error("cannot make the stand-in device file");
  }
  ~DeviceFile() {
    ::close(fd_);
    ::unlink(path.c_str());
  }
  // Local memory as the state machine would have mapped it: read-only primary, writable shadow.
  void installLocal(MorvikMemory& memory, U64 byteOffset, U32 size) const {
    memory.setLocal(mapOne(byteOffset, size, PROT_READ), mapOne(byteOffset, size, PROT_WRITE));
  }
  std::vector<U8> read(U64 offset, std::size_t size) const {
    std::vector<U8> bytes(size);
    if (::pread(fd_, bytes.data(), size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
      throw std::runtime_error("short read");
    return bytes;
  }

  const U64 remoteBase;
  std::string path = "/tmp/morvik-sm-device-XXXXXX";

 private:
  MemoryMapping mapOne(U64 offset, U32 size, int prot) const {
    void* p = ::mmap(nullptr, size, PROT_READ | (prot & PROT_WRITE), MAP_SHARED, fd_,
                     static_cast<off_t>(offset));
    if (p == MAP_FAILED) throw std::runtime_error("cannot map the stand-in device file");
    return MemoryMapping(Kel::Name("mem"), reinterpret_cast<U64>(p), size, offset, 0);
  }

  int fd_ = -1;
};

// Outside simulation, the peer's range in `file`: beta (16 KiB) lies at 8 KiB, local memory at
// 0x10000000.
Chassis::Options onHardware() {
  Chassis::Options options;
  options.remoteKnown = false;
  options.machines = false;
  return options;
}

void leaveSimulation(Chassis& chassis, U64 remoteBase, const std::string& file) {
  chassis.envIs("SIMULATION_VMID", nullptr);
  chassis.status()->remoteMemoryIs(
      Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"), Morvik::PhysicalAddress(remoteBase),
                                    chassis.total(), 9, Kel::String(file)));
}

TEST(MorvikMemorySmHardwareTest, LocalSetupOpensTheDeviceFileAndFailsWithoutIt) {
  if (::access("/dev/mem", F_OK) == 0) GTEST_SKIP() << "a real /dev/mem is never mapped here";
  Chassis chassis(onHardware());
  leaveSimulation(chassis, 0x100000, "/nonexistent");
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  chassis.traceLevelsIs({0});
  MorvikTest::Timeline traces("");
  try {
    chassis.newMachine(1, memory);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Kel::ErrnoException& e) {
    EXPECT_STREQ(e.context().charPtr(), "opening file");
  }
  // On hardware the feature lies at its offset from the manifest's local range.
  EXPECT_THAT(traces.of(kSm + "handleLocalMemoryChange() "),
              ElementsAre("Dma addr 0x10002000 Paddr 0x10002000"));
  EXPECT_THAT(traces.of("Unable to open "), ElementsAre("/dev/mem"));
  EXPECT_FALSE(memory->localMemoryReady());
}

// Beta on hardware: the peer's range in a stand-in device file, local memory mapped from it.
struct BetaOnHardware {
  BetaOnHardware() {
    leaveSimulation(chassis, device.remoteBase, device.path);
    device.installLocal(*memory, 8192, 16384);
  }
  DeviceFile device{0x40000, 0x40000 + 28672};
  Chassis chassis{onHardware()};
  Kel::Ptr<MorvikMemory> memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
};

TEST(MorvikMemorySmHardwareTest, RemoteMemoryIsMappedThroughTheRangesFileAtThePhysicalAddress) {
  BetaOnHardware beta;
  auto& [device, chassis, memory] = beta;
  // Local bytes that never went through the library: only the resync can carry them over.
  std::vector<U8> bytes = Chassis::pattern(16384, 3);
  std::copy(bytes.begin(), bytes.end(),
            reinterpret_cast<U8*>(memory->localMemoryWritableShadow().vaddr()));
  auto sm = chassis.newMachine(1, memory);
  const MemoryMapping& remote = memory->remoteMemory();
  EXPECT_EQ(remote.paddr(), device.remoteBase + 8192);
  EXPECT_EQ(remote.version(), 0x7f000000u + 8192);
  EXPECT_EQ(remote.size(), 16384u);
  EXPECT_EQ(memory->remoteMemoryVersion(), 9u);
  Chassis::runUntilRest();
  EXPECT_EQ(device.read(device.remoteBase + 8192, 16384), bytes);
  std::vector<U8> more = Chassis::pattern(100, 9);
  memory->doWrite(4000, more.data(), 100);
  EXPECT_EQ(device.read(device.remoteBase + 8192 + 4000, 100), more);
}

std::size_t mappingsOf(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  std::size_t found = 0;
  for (std::string line; std::getline(maps, line);) found += line.ends_with(" " + path);
  return found;
}

// The writable shadow is mapped before the read-only primary; a primary that cannot be mapped
// takes the shadow with it.
TEST(MorvikMemorySmHardwareTest, AFailedPrimaryMappingLeavesNoShadowBehind) {
  BetaOnHardware beta;
  auto& [device, chassis, memory] = beta;
  ASSERT_EQ(mappingsOf(device.path), 2u);
  failingReadOnlyMaps = 1;
  try {
    chassis.newMachine(1, memory);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Kel::ErrnoException& e) {
    EXPECT_STREQ(e.context().charPtr(), "mmaping file");
  }
  EXPECT_EQ(failingReadOnlyMaps, 0);
  EXPECT_EQ(mappingsOf(device.path), 2u);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
}

// A store into a read-only page: killed by SIGSEGV, or, under AddressSanitizer, reported as a SEGV
// and ended with a failing exit.
bool faulted(int status) {
  return (WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) ||
         (WIFEXITED(status) && WEXITSTATUS(status) != 0);
}

TEST(MorvikMemorySmWriteAccessTest, AReadOnlyPageStopsTheLibrarysOwnStoresAndOnlyThatPage) {
  Chassis chassis;
  Chassis::runUntilRest();
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  const auto page = static_cast<U32>(::sysconf(_SC_PAGESIZE));
  // Writes a few bytes at `offset` of beta and tells whether they arrived locally.
  auto writes = [&](U32 offset) {
    std::vector<U8> bytes = Chassis::pattern(16, static_cast<U8>(offset));
    memory->doWrite(offset, bytes.data(), 16);
    return std::equal(bytes.begin(), bytes.end(), chassis.localBytes() + 8192 + offset);
  };
  const U64 local = memory->localMemory().vaddr() + page;
  const auto faultText = testing::AnyOf(testing::IsEmpty(), testing::HasSubstr("SEGV"));
  chassis.sm(1)->setWriteAccess(local, page, PROT_READ);
  EXPECT_EXIT(writes(page + 10), faulted, faultText);
  EXPECT_TRUE(writes(page - 16)) << "the page before";
  EXPECT_TRUE(writes(2 * page)) << "the page after";
  chassis.sm(1)->setWriteAccess(local, page, PROT_READ | PROT_WRITE);
  EXPECT_TRUE(writes(page + 10));
  Chassis::runUntilRest();
  EXPECT_TRUE(chassis.copiesEqual());
}

}  // namespace
