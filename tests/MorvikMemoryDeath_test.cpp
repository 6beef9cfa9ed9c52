#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Kel/Allocate.h"
#include "MorvikLib/MorvikMemory.h"
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

const char* const kLocalBound = "localMemory().size() >= ( byteOffset + size )";
const char* const kRemoteBound = "remoteMemory().size() >= ( byteOffset + size )";
const char* const kRemoteEnd = "dest + size <= remoteMemory().vaddr() + remoteMemory().size()";
const char* const kLocalEnd = "dest + size <= localMemory().vaddr() + localMemory().size()";
const char* const kChunkLimit = "size <= remoteCopyChunkSize()";
const char* const kSimulation = "inSimulationEnv()";
// Says on standard error when ignoreChecksum changes, so the parent sees how far the child got.
const char* const kChecksumMarked = "<ignoreChecksum changed>";
class ChecksumHerald : public MorvikMemory::Notifiee {
 public:
  void onIgnoreChecksum() override { std::fprintf(stderr, "%s\n", kChecksumMarked); }
};

// Made inside the death-test child: the chosen sides installed, ignoreChecksum cleared.
struct Doomed {
  Doomed(const Regions& regions, bool local, bool remote) : regions(regions) {
    if (local) regions.setLocal(*memory);
    if (remote) regions.setRemote(*memory);
    memory->ignoreChecksumIs(false);
    herald->notifierIs(memory);
    herald->isRegisteredNotifieeIs(true);
  }
  MorvikMemory* operator->() const { return memory.ptr(); }

  const Regions& regions;
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

enum Sides { none = 0, localOnly = 1, remoteOnly = 2, both = 3 };

struct DeathCase {
  Sides sides;
  void (*trigger)(Doomed&);
  Matcher output;
};

TEST(MorvikMemoryDeathTest, EveryAssertionAbortsWithItsConditionText) {
  const Regions regions(Regions::Kind::simulated, kLocalSize, kRemoteSize);
  const DeathCase cases[] = {
      {both, [](Doomed& d) { d->doWrite(kLocalSize - 3, d.buffer, 4); },
       AllOf(failed(kLocalBound), HasSubstr(kChecksumMarked))},
      {both, [](Doomed& d) { d->doRead(kLocalSize, d.buffer, 1); },
       AllOf(failed(kLocalBound), Not(HasSubstr(kChecksumMarked)))},
      {remoteOnly, [](Doomed& d) { d->doRead(0, d.buffer, 1); }, failed("localMemory().vaddr()")},
      {none,
       [](Doomed& d) {
         const MappedPair local = d.regions.mapLocal();
         d->setLocal(prefix(local.memory, 0), local.shadow);
         d->doRead(0, d.buffer, 0);
       },
       failed("localMemory().size()")},
      {remoteOnly, [](Doomed& d) { d->doSync(); },
       AllOf(failed("localMemory().vaddr()"), HasSubstr("remoteCopy"))},
      {both, [](Doomed& d) { d->remoteSet(kRemoteSize - 10, 0, 11); }, failed(kRemoteEnd)},
      {both, [](Doomed& d) { d->remoteSet(0, 0, 4097); }, failed(kChunkLimit)},
      {both, [](Doomed& d) { d->doWriteRemoteTest(0, d.buffer, 4097); }, failed(kChunkLimit)},
      {none,
       [](Doomed& d) {
         // Both sides described as 12 KiB long: the last 8 KiB chunk is copied half outside.
         const MappedPair local = d.regions.mapLocal(), remote = d.regions.mapRemote();
         d->setLocal(prefix(local.memory, 12288), prefix(local.shadow, 12288));
         d->setRemote(prefix(remote.memory, 12288), prefix(remote.shadow, 12288));
         d->remoteCopyChunkSizeIs(8192);
         d->replicationStatusIs(8192, true);
         d->remoteCopyChunk();
       },
       failed(kRemoteEnd)},
      {both, [](Doomed& d) { d->doSet(kLocalSize - 1, 0, 2); }, failed(kLocalEnd)},
      {both, [](Doomed& d) { d->doCopy(kLocalSize - 4, 0, 8); }, failed(kLocalEnd)},
      {both, [](Doomed& d) { ::unsetenv("SIMULATION_VMID"), d->doReadRemoteTest(0, d.buffer, 1); },
       failed(kSimulation)},
      {both, [](Doomed& d) { ::unsetenv("SIMULATION_VMID"), d->doWriteRemoteTest(0, d.buffer, 1); },
       failed(kSimulation)},
      {both, [](Doomed& d) { ::unsetenv("SIMULATION_VMID"), d->doWriteLocalTest(0, d.buffer, 1); },
       AllOf(failed(kSimulation), Not(HasSubstr(kChecksumMarked)))},
      {both, [](Doomed& d) { d->doReadRemoteTest(kRemoteSize - 1, d.buffer, 2); },
       failed(kRemoteBound)},
      {localOnly, [](Doomed& d) { d->doReadRemoteTest(0, d.buffer, 1); }, failed(kRemoteBound)},
      {both, [](Doomed& d) { d->doWriteRemoteTest(kRemoteSize - 1, d.buffer, 2); },
       failed(kRemoteBound)},
      // Fits local memory, not the smaller remote one.
      {both, [](Doomed& d) { d->doWriteLocalTest(kRemoteSize, d.buffer, 1); },
       AllOf(failed(kRemoteBound), HasSubstr(kChecksumMarked))},
      {none, [](Doomed& d) { d->setLocal(d.regions.mapLocal().memory, {}), d->unsetLocal(); },
       failed("localMemoryWritableShadow().vaddr()")},
      {none, [](Doomed& d) { d->setRemote(d.regions.mapRemote().memory, {}), d->unsetRemote(); },
       failed("remoteMemoryWritableShadow().vaddr()")}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const DeathCase& c = cases[i];
    EXPECT_DEATH(
        {
          Doomed d(regions, c.sides & localOnly, c.sides & remoteOnly);
          c.trigger(d);
        },
        c.output);
  }
}

}  // namespace
