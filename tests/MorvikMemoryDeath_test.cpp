#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/TraceSink.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikTest::MappedPair;
using MorvikTest::Regions;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// Local memory is larger than remote memory, so a range can fit one and not the other.
constexpr U32 kLocalSize = 64 * 1024;
constexpr U32 kRemoteSize = 32 * 1024;

const char* const kShadowSig = "U64 MorvikLib::MorvikMemory::getShadow(const U64&, U32) const";
const char* const kLocalBound = "localMemory().size() >= ( byteOffset + size )";
const char* const kRemoteBound = "remoteMemory().size() >= ( byteOffset + size )";
const char* const kRemoteEnd = "dest + size <= remoteMemory().vaddr() + remoteMemory().size()";
const char* const kLocalEnd = "dest + size <= localMemory().vaddr() + localMemory().size()";
const char* const kChunkLimit = "size <= remoteCopyChunkSize()";
const char* const kSimulation = "inSimulationEnv()";
// Written by the child while the operation runs, so the parent sees how far it got.
const char* const kChecksumMarked = "<ignoreChecksum changed>";
const char* const kTraced = "<traced>";

// Says on standard error when ignoreChecksum changes.
class ChecksumHerald : public MorvikMemory::Notifiee {
 public:
  void onIgnoreChecksum() override { std::fprintf(stderr, "%s\n", kChecksumMarked); }
};

// Takes every trace line, says so, and runs an optional action for a line holding `fragment`.
class TraceHerald : public Kel::TraceSink {
 public:
  TraceHerald(std::string fragment, std::function<void()> action)
      : fragment_(std::move(fragment)), action_(std::move(action)) {
    install(this);
    MorvikLib::traceHandle().allLevelsIs(true);
  }
  ~TraceHerald() override { uninstall(this); }
  void entryIs(const Entry& entry) override {
    std::fprintf(stderr, "%s\n", kTraced);
    if (action_ && entry.text.find(fragment_) != std::string::npos) action_();
  }

 private:
  std::string fragment_;
  std::function<void()> action_;
};

// Runs only inside the death-test child: an entity with both sides installed and ignoreChecksum
// cleared, heard by a ChecksumHerald.
struct Doomed {
  explicit Doomed(const Regions& regions, bool local = true, bool remote = true) {
    if (local) {
      const MappedPair pair = regions.mapLocal();
      memory->setLocal(pair.memory, pair.shadow);
    }
    if (remote) {
      const MappedPair pair = regions.mapRemote();
      memory->setRemote(pair.memory, pair.shadow);
    }
    memory->ignoreChecksumIs(false);
    herald->notifierIs(memory);
    herald->isRegisteredNotifieeIs(true);
  }
  MorvikMemory* operator->() const { return memory.ptr(); }

  Kel::Ptr<MorvikMemory> memory = MorvikLib::morvikMemoryFactory("doomed");
  Kel::Ptr<ChecksumHerald> herald = Kel::allocate<ChecksumHerald>();
  U8 buffer[8192] = {};
};

// The first `size` bytes of a real mapping.
MemoryMapping prefix(const MemoryMapping& m, U32 size) {
  return MemoryMapping(m.name(), m.vaddr(), size, m.paddr(), m.version());
}

using Matcher = testing::Matcher<const std::string&>;

// The whole condition text, as the assertion reports it.
Matcher failed(const std::string& condition) {
  return HasSubstr("Assertion failed: " + condition + "\n");
}

struct DeathCase {
  const char* name;
  std::function<void(const Regions&)> trigger;
  Matcher output;
};

std::vector<DeathCase> deathCases() {
  return {
      {"WritePastLocalEndAfterMarkingChecksum",
       [](const Regions& r) {
         Doomed d(r);
         d->doWrite(kLocalSize - 3, d.buffer, 4);
       },
       AllOf(failed(kLocalBound), HasSubstr(kChecksumMarked),
             HasSubstr("void MorvikLib::MorvikMemory::doWrite(U32, Kel::BytePtr, U32)"))},
      {"ReadPastLocalEnd",
       [](const Regions& r) {
         Doomed d(r);
         d->doRead(kLocalSize, d.buffer, 1);
       },
       AllOf(failed(kLocalBound), Not(HasSubstr(kChecksumMarked)))},
      {"ReadUnmapped",
       [](const Regions& r) {
         Doomed d(r, false, true);
         d->doRead(0, d.buffer, 1);
       },
       failed("localMemory().vaddr()")},
      {"ReadMappedButEmpty",
       [](const Regions& r) {
         Doomed d(r, false, false);
         const MappedPair pair = r.mapLocal();
         d->localMemoryIs(MemoryMapping(pair.memory.name(), pair.memory.vaddr(), 0, 0, 0));
         d->doRead(0, d.buffer, 0);
       },
       failed("localMemory().size()")},
      {"SyncWithoutLocalMemory",
       [](const Regions& r) {
         Doomed d(r, false, true);
         d->doSync();
       },
       AllOf(failed("localMemory().vaddr()"), HasSubstr("remoteCopy"))},
      {"RemoteSetPastRemoteEnd",
       [](const Regions& r) {
         Doomed d(r);
         d->remoteSet(kRemoteSize - 10, 0, 11);
       },
       AllOf(failed(kRemoteEnd), HasSubstr(kShadowSig))},
      {"RemoteSetLongerThanAChunk",
       [](const Regions& r) {
         Doomed d(r);
         d->remoteSet(0, 0, 4097);
       },
       AllOf(failed(kChunkLimit), HasSubstr(kShadowSig))},
      {"RemoteTestWriteLongerThanAChunk",
       [](const Regions& r) {
         Doomed d(r);
         d->doWriteRemoteTest(0, d.buffer, 4097);
       },
       failed(kChunkLimit)},
      {"LastChunkIsCopiedWholePastTheRemoteEnd",
       [](const Regions& r) {
         // Both sides described as 12 KiB long, so the last 8 KiB chunk is half outside.
         Doomed d(r, false, false);
         const MappedPair local = r.mapLocal();
         const MappedPair remote = r.mapRemote();
         d->setLocal(prefix(local.memory, 12288), prefix(local.shadow, 12288));
         d->setRemote(prefix(remote.memory, 12288), prefix(remote.shadow, 12288));
         d->remoteCopyChunkSizeIs(8192);
         d->replicationStatusIs(8192, true);
         d->remoteCopyChunk();
       },
       AllOf(failed(kRemoteEnd), HasSubstr(kShadowSig))},
      {"SetPastLocalEnd",
       [](const Regions& r) {
         Doomed d(r);
         d->doSet(kLocalSize - 1, 0, 2);
       },
       AllOf(failed(kLocalEnd), HasSubstr(kShadowSig))},
      {"CopyPastLocalEnd",
       [](const Regions& r) {
         Doomed d(r);
         d->doCopy(kLocalSize - 4, 0, 8);
       },
       failed(kLocalEnd)},
      {"RemoteReadOutsideSimulation",
       [](const Regions& r) {
         Doomed d(r);
         TraceHerald traces("", nullptr);
         ::unsetenv("SIMULATION_VMID");
         d->doReadRemoteTest(0, d.buffer, 1);
       },
       AllOf(failed(kSimulation), Not(HasSubstr(kTraced)))},
      {"RemoteWriteOutsideSimulation",
       [](const Regions& r) {
         Doomed d(r);
         TraceHerald traces("", nullptr);
         ::unsetenv("SIMULATION_VMID");
         d->doWriteRemoteTest(0, d.buffer, 1);
       },
       AllOf(failed(kSimulation), Not(HasSubstr(kTraced)))},
      {"RemoteWriteRereadsTheEnvironmentBeforeItsStore",
       [](const Regions& r) {
         Doomed d(r);
         TraceHerald traces(" memcpy : ", [] { ::unsetenv("SIMULATION_VMID"); });
         d->doWriteRemoteTest(0, d.buffer, 1);
       },
       AllOf(failed(kSimulation), HasSubstr(kTraced))},
      {"LocalTestWriteOutsideSimulationBeforeMarkingChecksum",
       [](const Regions& r) {
         Doomed d(r);
         TraceHerald traces("", nullptr);
         ::unsetenv("SIMULATION_VMID");
         d->doWriteLocalTest(0, d.buffer, 1);
       },
       AllOf(failed(kSimulation), Not(HasSubstr(kTraced)), Not(HasSubstr(kChecksumMarked)))},
      {"RemoteTestReadPastRemoteEnd",
       [](const Regions& r) {
         Doomed d(r);
         d->doReadRemoteTest(kRemoteSize - 1, d.buffer, 2);
       },
       failed(kRemoteBound)},
      {"RemoteTestReadOfUnmappedRemote",
       [](const Regions& r) {
         Doomed d(r, true, false);
         d->doReadRemoteTest(0, d.buffer, 1);
       },
       failed(kRemoteBound)},
      {"RemoteTestWritePastRemoteEnd",
       [](const Regions& r) {
         Doomed d(r);
         d->doWriteRemoteTest(kRemoteSize - 1, d.buffer, 2);
       },
       failed(kRemoteBound)},
      {"LocalTestWriteBeyondTheSmallerRemote",
       [](const Regions& r) {
         Doomed d(r);
         d->doWriteLocalTest(kRemoteSize, d.buffer, 1);  // fits local memory
       },
       AllOf(failed(kRemoteBound), HasSubstr(kChecksumMarked))},
      {"UnsetLocalWithoutShadow",
       [](const Regions& r) {
         Doomed d(r, false, false);
         d->setLocal(r.mapLocal().memory, MemoryMapping());
         d->unsetLocal();
       },
       failed("localMemoryWritableShadow().vaddr()")},
      {"UnsetRemoteWithoutShadow",
       [](const Regions& r) {
         Doomed d(r, false, false);
         d->setRemote(r.mapRemote().memory, MemoryMapping());
         d->unsetRemote();
       },
       failed("remoteMemoryWritableShadow().vaddr()")},
      {"UnsetRemoteOfABogusSimulatedMapping",
       [](const Regions& r) {
         Doomed d(r, false, false);
         const U64 bogus = reinterpret_cast<std::uintptr_t>(d.buffer);
         d->setRemote(MemoryMapping("MorvikRemote", bogus, 4096, 0, 0),
                      MemoryMapping("MorvikRemote", bogus, 4096, 0, 0));
         d->unsetRemote();
       },
       AllOf(failed("err == 0"), HasSubstr("doMunmap"))},
  };
}

void PrintTo(const DeathCase& c, std::ostream* out) {
  *out << c.name;
}

// Whether this process is the child of a death test that re-executes the binary.
Regions::Ownership ownershipHere() {
  return GTEST_FLAG_GET(internal_run_death_test).empty() ? Regions::Ownership::create
                                                         : Regions::Ownership::attach;
}

class MorvikMemoryDeathTest : public testing::TestWithParam<DeathCase> {
 protected:
  Regions regions_{Regions::Kind::simulated, kLocalSize, kRemoteSize, ownershipHere()};
};

TEST_P(MorvikMemoryDeathTest, AbortsWithTheConditionText) {
  EXPECT_DEATH(GetParam().trigger(regions_), GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(Assertions, MorvikMemoryDeathTest, testing::ValuesIn(deathCases()),
                         [](const testing::TestParamInfo<DeathCase>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
