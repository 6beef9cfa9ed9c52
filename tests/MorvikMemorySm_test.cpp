#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/Exception.h"
#include "Kel/System.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "ostra/OstraRegion.h"
#include "ostra/ostra.h"
#include "support/AllocCounts.h"
#include "support/Chassis.h"
#include "support/Regions.h"
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
using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;
using testing::ElementsAre;

constexpr U32 kChunk = 4096;
const std::string kSm = "void MorvikLib::MorvikMemorySm::";

// Runs an action when the watched entity's role changes.
template <class T>
class RoleHook : public T::NotifieeConst {
 public:
  std::function<void()> action;
  void onActiveSupe() override { action(); }
  static Kel::Ptr<RoleHook> on(const Kel::Ptr<T>& entity) {
    auto hook = Kel::allocate<RoleHook>();
    hook->notifierIs(entity);
    hook->isRegisteredNotifieeIs(true);
    return hook;
  }
};

// Every feature writes its whole share (whole chunks: the copier's) and a short piece across a
// chunk boundary (at once); returns what the mirrored memory must hold.
std::vector<U8> writeAll(Chassis& chassis, U8 seed) {
  std::vector<U8> expected;
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    std::vector<U8> bytes = Chassis::pattern(chassis.feature(i).size, seed + i);
    chassis.memory(i)->doWrite(0, bytes.data(), static_cast<U32>(bytes.size()));
    std::vector<U8> piece = Chassis::pattern(100, seed + 50);
    const U32 middle = static_cast<U32>(bytes.size() / 2 - 50);
    chassis.memory(i)->doWrite(middle, piece.data(), 100);
    std::copy(piece.begin(), piece.end(), bytes.begin() + middle);
    expected.insert(expected.end(), bytes.begin(), bytes.end());
  }
  return expected;
}

// The peer goes away three ways. Outside simulation a peer whose own base is unknown is not
// usable; back in simulation that base is not consulted.
TEST(MorvikMemorySmTest, WritesReachThePeerAndThoseMadeWhileItIsAwayFollowTheResync) {
  const std::pair<const char*, void (*)(Chassis&)> aways[] = {
      {"no range", [](Chassis& c) { c.status()->remoteMemoryIs(nullptr); }},
      {"a range of address 0",
       [](Chassis& c) { c.status()->remoteMemoryIs(c.remoteRegion(0, c.total())); }},
      {"an unknown peer base outside simulation",
       [](Chassis& c) {
         c.status()->peerMemoryIs(Morvik::PhysicalAddress(0));
         c.envIs("SIMULATION_VMID", nullptr);
         c.remoteMemoryIs(true);
       }},
  };
  for (const auto& [away, goAway] : aways) {
    SCOPED_TRACE(away);
    Chassis chassis;
    std::vector<U8> expected = writeAll(chassis, 11);
    Chassis::runUntilRest();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), chassis.remoteBytes()));
    goAway(chassis);
    for (std::size_t i = 0; i < chassis.features(); ++i) {
      EXPECT_EQ(chassis.memory(i)->remoteMemory().vaddr(), 0u);
      EXPECT_FALSE(chassis.memory(i)->remoteMemoryReady());
    }
    const std::vector<U8> before = std::exchange(expected, writeAll(chassis, 77));
    Chassis::runUntilRest();
    EXPECT_TRUE(std::equal(before.begin(), before.end(), chassis.remoteBytes()));
    chassis.envIs("SIMULATION_VMID", chassis.vmid().c_str());
    chassis.remoteMemoryIs(true);
    Chassis::runUntilRest();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), chassis.remoteBytes()));
    EXPECT_EQ(chassis.memory(2)->remoteMemoryChangedGenId(), 2u);
  }
}

class MorvikMemorySmPasses : public testing::TestWithParam<std::vector<U32>> {};

// Per machine, a resync of n chunks takes n firings that each copy one chunk, one that clears
// remoteCopyPending and re-arms, and one that finds the flag false and rests. Machines share
// passes.
TEST_P(MorvikMemorySmPasses, AResyncOfNChunksTakesNCopierPassesAndTwoToComeToRest) {
  Chassis::Options options;
  options.features.clear();
  U32 most = 0, sum = 0;
  for (U32 n : GetParam()) {
    options.features.push_back({"f" + std::to_string(options.features.size()), U64{n} * kChunk});
    most = std::max(most, n);
    sum += n;
  }
  const auto machines = static_cast<U32>(options.features.size());
  auto passes = [before = Kel::activityManager()->passes()]() mutable {
    Chassis::runUntilRest();
    return Kel::activityManager()->passes() -
           std::exchange(before, Kel::activityManager()->passes());
  };
  Chassis chassis(options);
  EXPECT_EQ(passes(), most + 2u) << "the resync that follows the first mapping";
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    // Behind the copier's back, so that only the resync can make the copies equal again.
    std::vector<U8> bytes = Chassis::pattern(chassis.feature(i).size, static_cast<U8>(i));
    chassis.memory(i)->doWriteLocalTest(0, bytes.data(), static_cast<U32>(bytes.size()));
  }
  ASSERT_FALSE(chassis.copiesEqual());
  chassis.traceLevelsIs({9});
  MorvikTest::Timeline traces("");
  for (std::size_t i = 0; i < chassis.features(); ++i) chassis.memory(i)->doSync();
  EXPECT_EQ(passes(), most + 2u);
  const auto chunk = traces.of("void MorvikLib::MorvikMemory::remoteCopyChunk()");
  EXPECT_EQ(std::count(chunk.begin(), chunk.end(), ""), sum + 2 * machines) << "firings";
  EXPECT_EQ(std::count(chunk.begin(), chunk.end(), "remoteCopyPending = 1"), sum);
  EXPECT_EQ(std::count(chunk.begin(), chunk.end(), "remoteCopyPending = 0"), 2 * machines);
  EXPECT_EQ(traces.of(kSm + "scheduleClockTimeout()").size(), 2 * sum + 2 * machines);
  EXPECT_TRUE(chassis.copiesEqual());
}

INSTANTIATE_TEST_SUITE_P(Chunks, MorvikMemorySmPasses,
                         testing::Values(std::vector<U32>{1}, std::vector<U32>{2},
                                         std::vector<U32>{33}, std::vector<U32>{2, 5, 1},
                                         std::vector<U32>{16384}));

// Once the pending set, the clock's schedule and the copier's lists have grown, a steady stream of
// writes (short pieces mirrored at once, whole chunks left to the copier) and whole resyncs
// allocate nothing.
TEST(MorvikMemorySmTest, SteadyWritesAndResyncsAllocateNothing) {
  Chassis chassis;
  const Kel::Ptr<MorvikMemory>& memory = chassis.memory(1);
  const U32 size = static_cast<U32>(chassis.feature(1).size);
  std::vector<U8> bytes = Chassis::pattern(size, 3);
  auto writeAndResync = [&] {
    for (U32 offset = 0; offset + 100 <= size; offset += 300) {
      memory->doWrite(offset, bytes.data(), 100);
    }
    memory->doWrite(0, bytes.data(), size);
    Chassis::runUntilRest();
    memory->doSync();
    Chassis::runUntilRest();
  };
  writeAndResync();
  const std::uint64_t before = KelTest::heapAllocations();
  for (int round = 0; round < 3; ++round) writeAndResync();
  EXPECT_EQ(KelTest::heapAllocations() - before, 0u);
  EXPECT_TRUE(chassis.copiesEqual());
}

// The agent that ostra recorded as the owner of the local region of the current machine.
std::string localOwner() {
  return ostra::Region::open(*ostra::currentKey("MorvikLocal"), false).info().owner;
}

// Local mappings carry the DMA address, remote ones the peer's own address as their version.
TEST(MorvikMemorySmTest, OnlyRoleTwoKeepsRemoteMemoryAwayAndEachMappingCarriesItsAddresses) {
  for (U32 role : {0u, 1u, 2u, 3u, 0x7fffffffu, 0xffffffffu}) {
    SCOPED_TRACE(role);
    const bool active = role != 2;
    Chassis::Options options;
    options.role = static_cast<Morvik::ActiveSupeType>(role);
    options.peerMemory = 0x123456789000ull;
    options.machines = false;
    Chassis chassis(options);
    chassis.envIs("AGENT_PROCESS_NAME", nullptr);
    chassis.buildMachines();
    EXPECT_EQ(localOwner(), "@MorvikLib.kin");
    const U64 localPaddr = ostra_alloc_func("MorvikLocal", chassis.total(), "");
    ASSERT_GT(localPaddr, 0xffffffffull) << "a DMA address must differ from the physical one";
    for (std::size_t i = 0; i < chassis.features(); ++i) {
      const Kel::Ptr<MorvikMemory>& memory = chassis.memory(i);
      const U64 offset = chassis.byteOffset(i);
      EXPECT_EQ(memory->activeSupe(), active);
      EXPECT_TRUE(memory->localMemoryReady());
      EXPECT_EQ(memory->localMemorySimPaddr(), localPaddr);
      for (const MemoryMapping& m : {memory->localMemory(), memory->localMemoryWritableShadow()})
        EXPECT_EQ(m.paddr(), U64{ostra_pa_to_dma(localPaddr + offset)});
      EXPECT_EQ(memory->remoteMemory().vaddr() != 0, active);
      EXPECT_EQ(memory->remoteMemoryReady(), active);
      EXPECT_EQ(memory->remoteMemoryVersion(), active ? 7u : 0u);
      for (const MemoryMapping& m :
           {memory->remoteMemory(), memory->remoteMemoryWritableShadow()}) {
        EXPECT_EQ(m.paddr(), active ? chassis.remotePaddr() + offset : 0);
        EXPECT_EQ(m.version(), active ? options.peerMemory + offset : 0);
      }
    }
    // Local memory is mapped once per memory; a feature the manifest does not list, never.
    const U64 vaddr = chassis.memory(0)->localMemory().vaddr();
    chassis.newMachine(0, chassis.memory(0))->handleLocalMemoryChange();
    EXPECT_EQ(chassis.memory(0)->localMemory().vaddr(), vaddr);
    auto stranger = MorvikLib::morvikMemoryFactory(Kel::Name("delta"));
    MorvikLib::morvikMemorySmFactory(Kel::Name("delta"), chassis.status(), chassis.manifest(),
                                     nullptr, nullptr, nullptr, stranger)
        ->handleLocalMemoryChange();
    EXPECT_EQ(stranger->localMemory().vaddr(), 0u);
  }
}

// Two ranges overlap when they share a byte; an empty range at or inside the other counts too.
TEST(MorvikMemorySmTest, RangesOverlapWhenTheyShareAByte) {
  const U64 cases[][5] = {
      {100, 100, 199, 1, 1}, {100, 100, 200, 1, 0}, {200, 16, 100, 100, 0},
      {200, 0, 200, 1, 1},   {100, 100, 150, 0, 1},
  };
  Chassis chassis;
  for (const auto& c : cases) {
    EXPECT_EQ(chassis.sm(0)->overlap(c[0], c[1], c[2], c[3]), c[4] == 1)
        << c[0] << "+" << c[1] << " vs " << c[2] << "+" << c[3];
  }
}

// A status or memory replaced from inside its own notification: the replaced reactor finishes
// the change it is handling, and from then on only the new input is heard.
TEST(MorvikMemorySmTest, InputsAndMachinesLetGoInsideTheirOwnNotifications) {
  Chassis::Options options;
  options.machines = false;
  Chassis chassis(options);
  auto first = RoleHook<Morvik::Status>::on(chassis.status());  // runs before the reactors
  chassis.buildMachines();
  auto other = Kel::allocate<Morvik::Status>(Kel::Name("otherStatus"));
  other->activeSupeIs(Morvik::activeSupeActive);
  first->action = [&] {
    for (std::size_t i = 0; i < chassis.features(); ++i) chassis.sm(i)->morvikStatusIs(other);
  };
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_TRUE(chassis.memory(0)->activeSupe()) << "the replaced reactor heard the change";
  chassis.status()->activeSupeIs(Morvik::activeSupeActive);
  other->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(chassis.memory(0)->activeSupe());

  const Kel::Ptr<MorvikLib::MorvikMemorySm>& sm = chassis.sm(2);
  Kel::Ptr<MorvikMemory> old = chassis.memory(2);
  auto hook = RoleHook<MorvikMemory>::on(old);
  auto replacement = MorvikLib::morvikMemoryFactory(Kel::Name("gamma"));
  hook->action = [&] { sm->morvikMemoryIs(replacement); };
  other->activeSupeIs(Morvik::activeSupeActive);
  EXPECT_EQ(sm->morvikMemory(), replacement);
  EXPECT_TRUE(replacement->localMemoryReady()) << "a new memory is mapped locally at once";
  Chassis::runUntilRest();
  sm->morvikMemoryDel();  // re-runs the local setup, which has nothing to work on
  EXPECT_FALSE(sm->morvikMemory());

  // The memory's watcher lets a machine go while the machine's own role handler is setting the
  // memory: the handler finishes on a live machine, which goes when the handler returns.
  Kel::Ptr<MorvikLib::MorvikMemorySm> dropped = chassis.newMachine(2, old);
  hook->action = [&dropped] { dropped = nullptr; };
  const std::int64_t live = KelTest::live<MorvikLib::MorvikMemorySm>();
  chassis.status()->activeSupeIs(Morvik::activeSupeStandby);
  EXPECT_FALSE(dropped);
  EXPECT_FALSE(old->activeSupe());
  EXPECT_EQ(KelTest::live<MorvikLib::MorvikMemorySm>(), live - 1);
}

std::size_t mappingsOf(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  std::size_t found = 0;
  for (std::string line; std::getline(maps, line);) found += line.ends_with(" " + path);
  return found;
}

// Beta outside simulation: the whole peer's range in a stand-in device file, where beta (16 KiB)
// lies at 8 KiB; local memory at 0x10000000.
TEST(MorvikMemorySmHardwareTest, LocalMemoryComesFromTheDeviceFileAndRemoteFromTheRangesFile) {
  MorvikTest::Regions device{MorvikTest::Regions::Kind::device, 16384, 28672};
  Chassis::Options options;
  options.remoteKnown = false;
  options.machines = false;
  Chassis chassis(options);
  chassis.envIs("SIMULATION_VMID", nullptr);
  chassis.status()->remoteMemoryIs(Kel::allocate<Morvik::Region>(
      Kel::Name("remoteMemory"), Morvik::PhysicalAddress(device.remotePaddr()), chassis.total(), 9,
      Kel::String(device.file())));
  // A real /dev/mem is never mapped here.
  if (::access("/dev/mem", F_OK) != 0) {
    auto unmapped = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
    chassis.traceLevelsIs({0});
    MorvikTest::Timeline traces("");
    EXPECT_THROW(chassis.newMachine(1, unmapped), Kel::ErrnoException);
    // On hardware the feature lies at its offset from the manifest's local range.
    EXPECT_THAT(traces.of(kSm + "handleLocalMemoryChange() "),
                ElementsAre("Dma addr 0x10002000 Paddr 0x10002000"));
    EXPECT_THAT(traces.of("Unable to open "), ElementsAre("/dev/mem"));
    EXPECT_FALSE(unmapped->localMemoryReady());
  }

  // The writable shadow is mapped before the read-only primary; a primary that cannot be mapped
  // takes the shadow with it, and a later machine maps the range as if nothing had happened.
  auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
  device.setLocal(*memory);
  ASSERT_EQ(mappingsOf(device.file()), 4u) << "the two views and the local pair";
  failingReadOnlyMaps = 1;
  EXPECT_THROW(chassis.newMachine(1, memory), Kel::ErrnoException);
  EXPECT_EQ(failingReadOnlyMaps, 0);
  EXPECT_EQ(mappingsOf(device.file()), 4u);
  EXPECT_EQ(memory->remoteMemory().vaddr(), 0u);
  // Local bytes that never went through the library: only the resync can carry them over.
  std::vector<U8> bytes = Chassis::pattern(16384, 3);
  std::copy(bytes.begin(), bytes.end(),
            reinterpret_cast<U8*>(memory->localMemoryWritableShadow().vaddr()));
  auto sm = chassis.newMachine(1, memory);
  const MemoryMapping& remote = memory->remoteMemory();
  EXPECT_EQ(remote.paddr(), device.remotePaddr() + 8192);
  EXPECT_EQ(remote.version(), 0x7f000000u + 8192);
  EXPECT_EQ(remote.size(), 16384u);
  EXPECT_EQ(memory->remoteMemoryVersion(), 9u);
  Chassis::runUntilRest();
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), device.remoteBytes() + 8192));
  std::vector<U8> more = Chassis::pattern(100, 9);
  memory->doWrite(4000, more.data(), 100);
  EXPECT_TRUE(std::equal(more.begin(), more.end(), device.remoteBytes() + 8192 + 4000));
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
}

const std::string kInitialized = "\n  in " + kSm + "handleInitialized()";
const std::string kLocal = "\n  in " + kSm + "handleLocalMemoryChange()";
const std::string kRemote = "\n  in " + kSm + "handleRemoteMemoryChange()";
const std::string kAccess = "\n  in " + kSm + "setWriteAccess(const U64&, U32, int)";

// Maps remote memory again while unsetRemote runs: the only way it can still be mapped after.
class Remapper : public MorvikMemory::Notifiee {
 public:
  void onRemoteMemoryReady() override {
    auto* memory =
        const_cast<MorvikMemory*>(static_cast<const MorvikMemory*>(notifierEntity().ptr()));
    if (!memory->remoteMemoryReady())
      memory->remoteMemoryIs(MorvikLib::MemoryMapping(Kel::Name("mem"), 0x1000, 4096, 0, 0));
  }
};

Kel::Ptr<Morvik::FeatureManifest> entry(Chassis& c, const char* name) {
  return c.manifest()->manifest(Kel::Name(name));
}

// The pieces an audit is built from; each case leaves out or spoils one.
struct Parts {
  explicit Parts(Chassis& c) : memory(c.memory(0)), status(c.status()) {}
  Kel::Ptr<MorvikLib::MorvikMemory> memory;
  Kel::Ptr<Morvik::Status const> status;
  Kel::Ptr<Morvik::AuditRequest> request = Kel::allocate<Morvik::AuditRequest>(Kel::Name("a"));
  Kel::Ptr<Morvik::AuditStatus> answer = Kel::allocate<Morvik::AuditStatus>(Kel::Name("a"));
};

Kel::Ptr<MorvikAuditSm> build(Chassis& c, const Parts& p) {
  return MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), p.memory, p.status, c.manifest(),
                                         p.request, p.answer, Kel::activityManager()->clock());
}

const std::string kTick = "\n  in void MorvikLib::MorvikAuditSm::handleAuditClockTimeout()";
const std::string kAudit = "\n  in void MorvikLib::MorvikAuditSm::auditMemory()";
const std::string kResync = "\n  in void MorvikLib::MorvikAuditSm::handleAuditResync()";
const std::string kReset = "\n  in " + kSm + "resetAuditSm(Kel::Name)";
const std::string kRole = "morvikStatus()->activeSupe()" + kTick;

struct DeathCase {
  const char* name;
  std::string text;
  bool machines, audit;                 // the chassis's options
  std::function<void(Chassis&)> fatal;  // runs in the child and must end it
};

TEST(MorvikMemorySmDeathTest, EveryBrokenInvariantOfTheMachinesAndTheAuditAbortsWithItsText) {
  const DeathCase cases[] = {
      {"audit without a request", "!morvikAudit() == !morvikAuditRequest()" + kInitialized, true,
       true,
       [](Chassis& c) {
         MorvikLib::morvikMemorySmFactory(Kel::Name("alpha"), c.status(), c.manifest(), c.audit(),
                                          nullptr, nullptr, c.memory(0));
       }},
      {"a feature one byte past the whole", "byteOffset + size <= morvikTotal" + kLocal, false,
       false,
       [](Chassis& c) {
         entry(c, "gamma")->byteOffsetIs(c.byteOffset(2) + 1);
         c.buildMachines();
       }},
      {"a simulated base set before mapping", "morvikMemory()->localMemorySimPaddr() == 0" + kLocal,
       false, false,
       [](Chassis& c) {
         auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
         memory->localMemorySimPaddrIs(0x100000000ull);
         c.newMachine(1, memory);
       }},
      {"another agent's smaller local region", "localPaddr" + kLocal, false, false,
       [](Chassis& c) {
         ostra_alloc_func("MorvikLocal", c.total() - 4096, "otherAgent");
         c.buildMachines();
       }},
      {"a mapping put back while it is taken down",
       "morvikMemory()->remoteMemory().vaddr() == 0" + kRemote, true, false,
       [](Chassis& c) {
         auto remapper = Kel::allocate<Remapper>();
         remapper->notifierIs(c.memory(1));
         remapper->isRegisteredNotifieeIs(true);
         c.remoteMemoryIs(true);
       }},
      {"a range one byte short",
       "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()" + kRemote, true, false,
       [](Chassis& c) {
         c.status()->remoteMemoryIs(c.remoteRegion(c.remotePaddr(), c.total() - 1));
       }},
      // 0xfffff000 + 0x2000 wraps to 0x1000 in 32 bits, which would fit.
      {"a feature whose end overflows 32 bits",
       "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()" + kRemote, true, false,
       [](Chassis& c) {
         Chassis::runUntilRest();
         entry(c, "gamma")->byteOffsetIs(0xfffff000ull);
         entry(c, "gamma")->sizeIs(0x2000);
         c.status()->remoteMemoryIs(c.remoteRegion(c.remotePaddr(), 0xffffffffu));
       }},
      {"an unaligned protection change", "rval == 0" + kAccess, true, false,
       [](Chassis& c) {
         c.sm(1)->setWriteAccess(c.memory(1)->localMemory().vaddr() + 1, 4096, PROT_READ);
       }},
      {"tickWithoutStatus", kRole, true, false,
       [](Chassis& c) {
         Parts p(c);
         p.status = nullptr;
         build(c, p)->handleAuditClockTimeout();
       }},
      {"tickInRoleNone", kRole, true, false,
       [](Chassis& c) {
         c.status()->activeSupeIs(Morvik::activeSupeNone);
         build(c, Parts(c))->handleAuditClockTimeout();
       }},
      {"tickWithoutRequest", "auditRequest()" + kAudit, true, false,
       [](Chassis& c) {
         Parts p(c);
         p.request = nullptr;
         Kel::Ptr<MorvikAuditSm> sm = build(c, p);
         Chassis::runUntil(Kel::System::currentTime() + 5.0);  // the first tick
       }},
      {"verdictWithoutMemory", "morvikMemory()" + kResync, true, false,
       [](Chassis& c) {
         Parts p(c);
         p.memory = nullptr;
         Kel::Ptr<MorvikAuditSm> sm = build(c, p);
         p.answer->resyncTriggerInc(1);
       }},
      {"auditRecordDroppedUnderAnAudit", "!morvikAuditSm()" + kReset, true, true,
       [](Chassis& c) {
         c.sm(0)->morvikAuditDel();
         c.sm(0)->resetAuditSm(c.auditName(0));
       }},
      {"auditWithoutRecords", "!morvikAuditSm()" + kReset, true, false,
       [](Chassis& c) {
         c.sm(0)->morvikAuditSmIs(build(c, Parts(c)));
         c.sm(0)->resetAuditSm(Kel::Name("anyAudit"));
       }},
  };
  for (const DeathCase& c : cases) {
    SCOPED_TRACE(c.name);
    Chassis::Options options;
    options.machines = c.machines;
    options.audit = c.audit;
    Chassis chassis(options);
    EXPECT_DEATH(c.fatal(chassis), testing::HasSubstr("Assertion failed: " + c.text));
  }
}

}  // namespace
