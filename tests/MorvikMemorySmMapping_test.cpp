#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/AllocTracker.h"
#include "Kel/Allocate.h"
#include "Kel/Exception.h"
#include "Kel/System.h"
#include "Kel/TraceCapture.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "MorvikLib/Trace.h"
#include "ostra/ostra.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikLib::MorvikMemorySm;
using MorvikTest::Chassis;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kSm = "void MorvikLib::MorvikMemorySm::";

std::string hex0x(U64 value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::vector<std::string> textsAt(const Kel::TraceCapture& capture, int level,
                                 const std::string& function) {
  std::vector<std::string> texts;
  for (const auto& entry : capture.entries()) {
    if (entry.level == level && entry.function == function) texts.push_back(entry.text);
  }
  return texts;
}

// Enables every level of the library's trace handle for one test.
class AllLevels {
 public:
  AllLevels() : saved_(MorvikLib::traceHandle().levels()) {
    MorvikLib::traceHandle().allLevelsIs(true);
  }
  ~AllLevels() { MorvikLib::traceHandle().levelsIs(saved_); }

 private:
  U32 saved_;
};

std::vector<U8> pattern(std::size_t size, U8 seed) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(seed + i * 5 + (i >> 7));
  return bytes;
}

// --- Simulation: what the mappings hold -------------------------------------------------------

TEST(MorvikMemorySmMappingTest, LocalMappingsCarryTheDmaAddressAndTheFeaturesShare) {
  Chassis chassis;
  const U64 localPaddr = ostra_alloc_func("MorvikLocal", chassis.total(), "");
  ASSERT_NE(localPaddr, 0u);
  ASSERT_GT(localPaddr, 0xffffffffull) << "a DMA address must differ from the physical one";
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    SCOPED_TRACE(chassis.feature(i).name);
    const Kel::Ptr<MorvikMemory>& memory = chassis.memory(i);
    const U64 paddr = chassis.byteOffset(i) + localPaddr;
    EXPECT_EQ(memory->localMemorySimPaddr(), localPaddr);
    for (const MemoryMapping& m : {memory->localMemory(), memory->localMemoryWritableShadow()}) {
      EXPECT_EQ(m.name(), Kel::Name("mem"));
      EXPECT_NE(m.vaddr(), 0u);
      EXPECT_EQ(m.size(), chassis.feature(i).size);
      EXPECT_EQ(m.paddr(), U64{ostra_pa_to_dma(paddr)});
      EXPECT_EQ(m.version(), 0u);
    }
    EXPECT_NE(memory->localMemory().vaddr(), memory->localMemoryWritableShadow().vaddr());
    EXPECT_TRUE(memory->localMemoryReady());
    // The feature's bytes lie at its own offset of the one local region.
    std::vector<U8> bytes = pattern(64, static_cast<U8>(i + 1));
    memory->doWrite(8, bytes.data(), 64);
    EXPECT_EQ(0, std::memcmp(chassis.localBytes() + chassis.byteOffset(i) + 8, bytes.data(), 64));
  }
  Chassis::runUntilRest();
}

TEST(MorvikMemorySmMappingTest, RemoteMappingsCarryThePeersOwnAddressInTheirVersion) {
  Chassis::Options options;
  options.peerMemory = 0x123456789000ull;
  options.remoteVersion = 0xabcdef01u;
  options.remoteSlack = 8192;
  Chassis chassis(options);
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    SCOPED_TRACE(chassis.feature(i).name);
    const Kel::Ptr<MorvikMemory>& memory = chassis.memory(i);
    for (const MemoryMapping& m : {memory->remoteMemory(), memory->remoteMemoryWritableShadow()}) {
      EXPECT_EQ(m.name(), Kel::Name("mem"));
      EXPECT_NE(m.vaddr(), 0u);
      EXPECT_EQ(m.size(), chassis.feature(i).size);
      EXPECT_EQ(m.paddr(), chassis.remotePaddr() + chassis.byteOffset(i));
      EXPECT_EQ(m.version(), options.peerMemory + chassis.byteOffset(i));
    }
    EXPECT_EQ(memory->remoteMemoryVersion(), 0xabcdef01u);
    EXPECT_TRUE(memory->remoteMemoryReady());
  }
  Chassis::runUntilRest();
}

TEST(MorvikMemorySmMappingTest, TheRemoteMappingIsTracedWithEveryFigure) {
  Chassis::Options options;
  options.features = {{"alpha", 4096}, {"beta", 12288}};
  options.machines = false;
  options.peerMemory = 0x80000000ull;
  Chassis chassis(options);
  AllLevels levels;
  Kel::TraceCapture capture;
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  auto sm = chassis.newMachine(1, memory);
  const U64 paddr = chassis.remotePaddr() + 4096;
  const std::vector<std::string> remote = textsAt(capture, 5, "handleRemoteMemoryChange");
  ASSERT_EQ(remote.size(), 3u);
  EXPECT_EQ(remote[0], kSm + "handleRemoteMemoryChange() rem.vaddr 0 rem.size 0");
  EXPECT_THAT(remote[1], testing::StartsWith(kSm + "handleRemoteMemoryChange() status.rem addr " +
                                             hex0x(chassis.remotePaddr())));
  EXPECT_EQ(remote[2], kSm + "handleRemoteMemoryChange() mapFile MorvikRemote mmap byteOffset: " +
                           "0x1000 paddr:" + hex0x(paddr) +
                           " size:0x3000 returns:" + hex0x(memory->remoteMemory().vaddr()) +
                           " peerPhysicalAddr:0x80001000 peerMemory:0x80000000 version 7");
  EXPECT_THAT(textsAt(capture, 5, "handleLocalMemoryChange"),
              ElementsAre(kSm + "handleLocalMemoryChange() beta"));
  Chassis::runUntilRest();
  sm = nullptr;
  memory = nullptr;
}

TEST(MorvikMemorySmMappingTest, AMemoryThatIsMappedAlreadyIsNotMappedAgain) {
  Chassis chassis;
  Chassis::runUntilRest();
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(0);
  const MemoryMapping local = memory->localMemory();
  const U64 simPaddr = memory->localMemorySimPaddr();
  // A second machine on the same memory maps local memory no more; remote memory it remaps.
  auto second = chassis.newMachine(0, memory);
  EXPECT_EQ(memory->localMemory(), local);
  EXPECT_EQ(memory->localMemorySimPaddr(), simPaddr);
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 2u);
  Chassis::runUntilRest();
  second = nullptr;
}

// --- Hardware: a regular file stands in for the device ----------------------------------------

// Leaves the simulation for one test: "SIMULATION_VMID" unset, virtual time on, both restored.
class MorvikMemorySmHardwareTest : public testing::Test {
 protected:
  MorvikMemorySmHardwareTest() {
    const char* vmid = std::getenv("SIMULATION_VMID");
    if (vmid) savedVmid_ = vmid;
    ::unsetenv("SIMULATION_VMID");
    wasVirtual_ = Kel::System::virtualTime();
    Kel::System::virtualTimeIs(true, 1000.0);
    Kel::activityManager();
    MorvikLib::traceHandle();
    liveAtStart_ = Kel::AllocTracker::totalLive();
  }
  ~MorvikMemorySmHardwareTest() override {
    if (savedVmid_) ::setenv("SIMULATION_VMID", savedVmid_->c_str(), 1);
    if (!wasVirtual_) Kel::System::virtualTimeIs(false);
  }
  void TearDown() override {
    status_ = nullptr;
    manifest_ = nullptr;
    EXPECT_EQ(Kel::AllocTracker::totalLive(), liveAtStart_);
  }

  // Alpha (8 KiB) then beta (12 KiB); local memory would lie at 0x10000000 on this card.
  void publish(U64 peerMemory, U64 remoteBase, U32 remoteSize, const std::string& file) {
    manifest_ = Kel::allocate<Morvik::Manifest>(Kel::Name("manifest"));
    manifest_->manifestIs(Kel::Name("alpha"),
                          Kel::allocate<Morvik::FeatureManifest>(Kel::Name("alpha"), 8192, 0));
    manifest_->manifestIs(Kel::Name("beta"),
                          Kel::allocate<Morvik::FeatureManifest>(Kel::Name("beta"), 12288, 8192));
    manifest_->localMemoryIs(Kel::allocate<Morvik::Region>(
        Kel::Name("localMemory"), Morvik::PhysicalAddress(0x10000000), 20480, 0, "/dev/mem"));
    status_ = Kel::allocate<Morvik::Status>(Kel::Name("status"));
    status_->activeSupeIs(Morvik::activeSupeActive);
    status_->peerMemoryIs(peerMemory);
    status_->remoteMemoryIs(Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"),
                                                          Morvik::PhysicalAddress(remoteBase),
                                                          remoteSize, 9, Kel::String(file)));
  }

  Kel::Ptr<MorvikMemorySm> machine(const char* feature, const Kel::Ptr<MorvikMemory>& memory) {
    return MorvikLib::morvikMemorySmFactory(Kel::Name(feature), status_, manifest_, nullptr,
                                            nullptr, nullptr, memory);
  }

  Kel::Ptr<Morvik::Status> status_;
  Kel::Ptr<Morvik::Manifest> manifest_;

 private:
  std::optional<std::string> savedVmid_;
  bool wasVirtual_ = false;
  std::int64_t liveAtStart_ = 0;
};

TEST_F(MorvikMemorySmHardwareTest, LocalSetupOpensTheDeviceFileAndFailsWithoutIt) {
  if (::access("/dev/mem", F_OK) == 0) GTEST_SKIP() << "a real /dev/mem is never mapped here";
  publish(0x7f000000, 0x100000, 20480, "/nonexistent");
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  AllLevels levels;
  Kel::TraceCapture capture;
  try {
    machine("beta", memory);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Kel::ErrnoException& e) {
    EXPECT_STREQ(e.context().charPtr(), "opening file");
    EXPECT_EQ(e.errnum(), ENOENT);
  }
  // On hardware the feature lies at its offset from the manifest's local range.
  EXPECT_THAT(textsAt(capture, 0, "handleLocalMemoryChange"),
              ElementsAre(kSm + "handleLocalMemoryChange() Dma addr 0x10002000 Paddr 0x10002000"));
  EXPECT_THAT(textsAt(capture, 0, "doMmap"), ElementsAre("Unable to open /dev/mem"));
  EXPECT_EQ(memory->localMemorySimPaddr(), 0u);
  EXPECT_FALSE(memory->localMemoryReady());
  EXPECT_EQ(Kel::AllocTracker::live<MorvikMemorySm>(), 0);
}

// A regular file standing in for the device: local memory at offset 0, the peer's memory from
// `remoteBase` on.
class DeviceFile {
 public:
  DeviceFile(U64 remoteBase, U64 bytes) : remoteBase_(remoteBase) {
    std::string path = "/tmp/morvik-sm-device-XXXXXX";
    fd_ = ::mkstemp(path.data());
    if (fd_ < 0 || ::ftruncate(fd_, static_cast<off_t>(bytes)) != 0) {
      throw std::runtime_error("cannot make the stand-in device file");
    }
    path_ = path;
  }
  ~DeviceFile() {
    ::close(fd_);
    ::unlink(path_.c_str());
  }
  const std::string& path() const { return path_; }
  U64 remoteBase() const { return remoteBase_; }

  // Local memory for one feature as the state machine would have mapped it: read-only primary,
  // writable shadow. The memory entity owns both once installed.
  void installLocal(MorvikMemory& memory, U64 byteOffset, U32 size) const {
    memory.setLocal(mapOne(byteOffset, size, PROT_READ), mapOne(byteOffset, size, PROT_WRITE));
  }
  std::vector<U8> read(U64 offset, std::size_t size) const {
    std::vector<U8> bytes(size);
    if (::pread(fd_, bytes.data(), size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
      throw std::runtime_error("short read");
    return bytes;
  }

 private:
  MemoryMapping mapOne(U64 offset, U32 size, int prot) const {
    void* p = ::mmap(nullptr, size, PROT_READ | (prot & PROT_WRITE), MAP_SHARED, fd_,
                     static_cast<off_t>(offset));
    if (p == MAP_FAILED) throw std::runtime_error("cannot map the stand-in device file");
    return MemoryMapping(Kel::Name("mem"), reinterpret_cast<U64>(p), size, offset, 0);
  }

  U64 remoteBase_;
  std::string path_;
  int fd_ = -1;
};

TEST_F(MorvikMemorySmHardwareTest, RemoteMemoryIsMappedThroughTheRangesFileAtThePhysicalAddress) {
  DeviceFile device(0x40000, 0x40000 + 20480);
  publish(0x7f000000, device.remoteBase(), 20480, device.path());
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  device.installLocal(*memory, 8192, 12288);
  // Local bytes that never went through the library: only the resync can carry them over.
  std::vector<U8> bytes = pattern(12288, 3);
  std::memcpy(reinterpret_cast<void*>(memory->localMemoryWritableShadow().vaddr()), bytes.data(),
              bytes.size());
  auto sm = machine("beta", memory);
  const MemoryMapping& remote = memory->remoteMemory();
  EXPECT_NE(remote.vaddr(), 0u);
  EXPECT_EQ(remote.paddr(), device.remoteBase() + 8192);
  EXPECT_EQ(remote.version(), 0x7f000000u + 8192);
  EXPECT_EQ(remote.size(), 12288u);
  EXPECT_EQ(memory->remoteMemoryVersion(), 9u);
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 1u);
  // The resync that follows the mapping brings the file's range up to date.
  Kel::activityManager()->runUntilRest();
  EXPECT_EQ(device.read(device.remoteBase() + 8192, 12288), bytes);
  EXPECT_EQ(device.read(device.remoteBase(), 8192), std::vector<U8>(8192, 0)) << "alpha's share";
  std::vector<U8> more = pattern(100, 9);
  memory->doWrite(4000, more.data(), 100);
  EXPECT_EQ(device.read(device.remoteBase() + 8192 + 4000, 100), more);
  sm = nullptr;
  memory = nullptr;
}

TEST_F(MorvikMemorySmHardwareTest, APeerWhoseOwnAddressIsUnknownIsNotMapped) {
  DeviceFile device(0x40000, 0x40000 + 20480);
  publish(0, device.remoteBase(), 20480, device.path());
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("alpha"));
  device.installLocal(*memory, 0, 8192);
  auto sm = machine("alpha", memory);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
  EXPECT_FALSE(memory->remoteMemoryReady());
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 0u);
  // Once the peer's base is known, the next range maps.
  status_->peerMemoryIs(0x7f000000);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u) << "peerMemory itself is not watched";
  status_->remoteMemoryIs(Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"),
                                                        Morvik::PhysicalAddress(0x40000), 20480, 9,
                                                        Kel::String(device.path())));
  EXPECT_NE(memory->remoteMemory().vaddr(), 0u);
  Kel::activityManager()->runUntilRest();
  sm = nullptr;
  memory = nullptr;
}

TEST_F(MorvikMemorySmHardwareTest, AMissingMapFileFailsTheRemoteMappingWithOpeningFile) {
  DeviceFile device(0x40000, 0x40000 + 20480);
  publish(0x7f000000, device.remoteBase(), 20480, "/nonexistent/morvik-device");
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("alpha"));
  device.installLocal(*memory, 0, 8192);
  try {
    machine("alpha", memory);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Kel::ErrnoException& e) {
    EXPECT_STREQ(e.context().charPtr(), "opening file");
  }
  EXPECT_FALSE(memory->remoteMemoryReady());
  EXPECT_EQ(memory->remoteMemoryChangedGenId(), 0u);
  memory = nullptr;
}

// --- Write access -----------------------------------------------------------------------------

// A store into a read-only page: killed by SIGSEGV, or, under AddressSanitizer, reported as a SEGV
// and ended with a failing exit.
bool faulted(int status) {
  return (WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) ||
         (WIFEXITED(status) && WEXITSTATUS(status) != 0);
}
const auto kFaultText = testing::AnyOf(testing::IsEmpty(), HasSubstr("SEGV"));

class MorvikMemorySmWriteAccessTest : public testing::Test {
 protected:
  MorvikMemorySmWriteAccessTest() {
    Chassis::runUntilRest();
    page_ = static_cast<U64>(::sysconf(_SC_PAGESIZE));
  }
  ~MorvikMemorySmWriteAccessTest() override { Chassis::runUntilRest(); }

  // Writes a few bytes at `offset` of beta and tells whether they arrived locally.
  bool writes(U32 offset) {
    std::vector<U8> bytes = pattern(16, static_cast<U8>(offset));
    memory()->doWrite(offset, bytes.data(), 16);
    return std::memcmp(chassis_.localBytes() + chassis_.byteOffset(1) + offset, bytes.data(), 16) ==
           0;
  }
  const Kel::Ptr<MorvikMemory>& memory() const { return chassis_.memory(1); }
  const Kel::Ptr<MorvikMemorySm>& sm() const { return chassis_.sm(1); }
  U64 local(U64 offset) const { return memory()->localMemory().vaddr() + offset; }

  Chassis chassis_;
  U64 page_ = 4096;
};

TEST_F(MorvikMemorySmWriteAccessTest, AReadOnlyPageStopsTheLibrarysOwnStoresAndOnlyThatPage) {
  sm()->setWriteAccess(local(page_), static_cast<U32>(page_), PROT_READ);
  EXPECT_EXIT(writes(static_cast<U32>(page_) + 10), faulted, kFaultText);
  EXPECT_TRUE(writes(static_cast<U32>(page_) - 16)) << "the page before";
  EXPECT_TRUE(writes(2 * static_cast<U32>(page_))) << "the page after";
  // The primary mapping is never the one protected: reads go on.
  std::vector<U8> read(16);
  memory()->doRead(static_cast<U32>(page_), read.data(), 16);
  sm()->setWriteAccess(local(page_), static_cast<U32>(page_), PROT_READ | PROT_WRITE);
  EXPECT_TRUE(writes(static_cast<U32>(page_) + 10));
  Chassis::runUntilRest();
  EXPECT_EQ(0, std::memcmp(chassis_.remoteBytes(), chassis_.localBytes(), chassis_.total()));
}

TEST_F(MorvikMemorySmWriteAccessTest, AReadOnlyRemotePageStopsTheCopier) {
  const U64 remote = memory()->remoteMemory().vaddr();
  sm()->setWriteAccess(remote, static_cast<U32>(page_), PROT_READ);
  EXPECT_EXIT(
      {
        memory()->doSync();
        Chassis::runUntilRest();
      },
      faulted, kFaultText);
  sm()->setWriteAccess(remote, static_cast<U32>(page_), PROT_READ | PROT_WRITE);
  memory()->doSync();
  Chassis::runUntilRest();
}

struct OverlapCase {
  U64 start1, size1, start2, size2;
  bool overlap;
};

TEST(MorvikMemorySmOverlapTest, RangesOverlapWhenTheyShareAByteWithTheDeliberateEmptyCases) {
  constexpr U64 kMax = std::numeric_limits<U64>::max();
  const OverlapCase cases[] = {
      {100, 100, 199, 1, true},      {100, 100, 200, 1, false}, {200, 16, 100, 100, false},
      {200, 0, 200, 1, true},        {100, 100, 150, 0, true},  {100, 100, 100, 100, true},
      {100, 100, 99, 1, false},      {100, 100, 99, 2, true},   {150, 10, 100, 100, true},
      {200, 10, 100, 100, false},    {100, 0, 100, 0, false},   {100, 0, 99, 2, true},
      {100, 100, 200, 0, false},     {100, 100, 100, 0, true},  {0, kMax, kMax - 1, 1, true},
      {10, kMax, 5, 1, false},       {10, kMax, 20, 1, false},  {kMax - 16, 32, 0, 10, false},
      {0, 10, kMax - 16, 32, false},
  };
  Chassis chassis;
  for (const OverlapCase& c : cases) {
    EXPECT_EQ(chassis.sm(0)->overlap(c.start1, c.size1, c.start2, c.size2), c.overlap)
        << c.start1 << "+" << c.size1 << " vs " << c.start2 << "+" << c.size2;
  }
  Chassis::runUntilRest();
}

}  // namespace
