#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <functional>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "ostra/ostra.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;
using testing::HasSubstr;

// Puts a remote mapping back whenever remote memory stops being ready: a notifiee of the memory
// that interferes while unsetRemote runs, the only way remote memory can still be mapped after it.
class Remapper : public MorvikMemory::Notifiee {
 public:
  void onRemoteMemoryReady() override {
    const auto* memory = static_cast<const MorvikMemory*>(notifierEntity().ptr());
    if (!memory->remoteMemoryReady()) {
      const_cast<MorvikMemory*>(memory)->remoteMemoryIs(
          MemoryMapping(Kel::Name("mem"), 0x1000, 4096, 0, 0));
    }
  }
};

Kel::Ptr<Morvik::FeatureManifest> entry(Chassis& chassis, const char* name) {
  return chassis.manifest()->manifest(Kel::Name(name));
}

Kel::Ptr<Morvik::Region const> range(Chassis& chassis, U32 size) {
  return Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"),
                                       Morvik::PhysicalAddress(chassis.remotePaddr()), size, 1,
                                       Kel::String("MorvikRemote"));
}

struct DeathCase {
  const char* name;
  const char* text;
  std::function<void(Chassis::Options&)> options;
  // Runs in the parent: what the chassis must look like before the fatal step.
  std::function<void(Chassis&)> prepare;
  // Runs in the child and must end it.
  std::function<void(Chassis&)> fatal;
};

void noOptions(Chassis::Options&) {}
void nothing(Chassis&) {}

std::vector<DeathCase> deathCases() {
  return {
      {"audit without a request", "!morvikAudit() == !morvikAuditRequest()",
       [](Chassis::Options& o) {
         o.audit = true;
         o.machines = false;
       },
       nothing,
       [](Chassis& c) {
         MorvikLib::morvikMemorySmFactory(Kel::Name("alpha"), c.status(), c.manifest(), c.audit(),
                                          nullptr, c.auditRequests(),
                                          MorvikLib::morvikMemoryFactory(Kel::Name("alpha")));
       }},
      {"a request without an audit", "!morvikAudit() == !morvikAuditRequest()",
       [](Chassis::Options& o) {
         o.audit = true;
         o.machines = false;
       },
       nothing,
       [](Chassis& c) {
         MorvikLib::morvikMemorySmFactory(Kel::Name("alpha"), c.status(), c.manifest(), nullptr,
                                          c.auditRequest(0), c.auditRequests(),
                                          MorvikLib::morvikMemoryFactory(Kel::Name("alpha")));
       }},
      {"a feature one byte past the whole", "byteOffset + size <= morvikTotal",
       [](Chassis::Options& o) { o.machines = false; },
       [](Chassis& c) { entry(c, "gamma")->byteOffsetIs(c.byteOffset(2) + 1); },
       [](Chassis& c) { c.buildMachines(); }},
      {"a simulated base set before mapping", "morvikMemory()->localMemorySimPaddr() == 0",
       [](Chassis::Options& o) { o.machines = false; }, nothing,
       [](Chassis& c) {
         auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("beta"));
         memory->localMemorySimPaddrIs(0x100000000ull);
         c.newMachine(1, memory);
       }},
      // An empty feature allocates but maps nothing, so the next range finds the base set.
      {"an empty feature meets the peer's range", "morvikMemory()->localMemorySimPaddr() == 0",
       [](Chassis::Options& o) {
         o.features = {{"alpha", 4096}, {"empty", 0}};
         o.remoteKnown = false;
       },
       nothing, [](Chassis& c) { c.remoteMemoryIs(true); }},
      {"another agent's smaller local region", "localPaddr",
       [](Chassis::Options& o) { o.machines = false; },
       [](Chassis& c) { ostra_alloc_func("MorvikLocal", c.total() - 4096, "otherAgent"); },
       [](Chassis& c) { c.buildMachines(); }},
      {"a manifest of empty features", "localPaddr",
       [](Chassis::Options& o) {
         o.features = {{"alpha", 4096}};
         o.machines = false;
       },
       [](Chassis& c) { entry(c, "alpha")->sizeIs(0); }, [](Chassis& c) { c.buildMachines(); }},
      {"a mapping put back while it is taken down", "morvikMemory()->remoteMemory().vaddr() == 0",
       noOptions, nothing,
       [](Chassis& c) {
         auto remapper = Kel::allocate<Remapper>();
         remapper->notifierIs(c.memory(1));
         remapper->isRegisteredNotifieeIs(true);
         c.remoteMemoryIs(true);
       }},
      {"a range one byte short", "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()",
       noOptions, nothing, [](Chassis& c) { c.status()->remoteMemoryIs(range(c, c.total() - 1)); }},
      // 0xfffff000 + 0x2000 wraps to 0x1000 in 32 bits, which would fit.
      {"a feature whose end overflows 32 bits",
       "byteOffset + sizeW <= morvikStatus()->remoteMemory()->size()", noOptions,
       [](Chassis& c) {
         Chassis::runUntilRest();
         entry(c, "gamma")->byteOffsetIs(0xfffff000ull);
         entry(c, "gamma")->sizeIs(0x2000);
       },
       [](Chassis& c) { c.status()->remoteMemoryIs(range(c, 0xffffffffu)); }},
      {"an unaligned protection change", "rval == 0", noOptions, nothing,
       [](Chassis& c) {
         c.sm(1)->setWriteAccess(c.memory(1)->localMemory().vaddr() + 1, 4096, PROT_READ);
       }},
      {"an unknown protection flag", "rval == 0", noOptions, nothing,
       [](Chassis& c) {
         c.sm(1)->setWriteAccess(c.memory(1)->localMemory().vaddr(), 4096, 0x7000000);
       }},
      {"a machine without a status", "dereference of a null Kel::Ptr",
       [](Chassis::Options& o) { o.machines = false; }, nothing,
       [](Chassis& c) {
         MorvikLib::morvikMemorySmFactory(Kel::Name("alpha"), nullptr, c.manifest(), nullptr,
                                          nullptr, nullptr,
                                          MorvikLib::morvikMemoryFactory(Kel::Name("alpha")));
       }},
  };
}

TEST(MorvikMemorySmDeathTest, EveryBrokenInvariantAbortsWithItsConditionText) {
  for (const DeathCase& c : deathCases()) {
    SCOPED_TRACE(c.name);
    Chassis::Options options;
    c.options(options);
    Chassis chassis(options);
    c.prepare(chassis);
    EXPECT_DEATH(c.fatal(chassis), HasSubstr(c.text));
    Chassis::runUntilRest();
  }
}

// Every boundary the assertions guard is itself accepted.
TEST(MorvikMemorySmDeathTest, RangesThatEndExactlyAtTheirLimitAreAccepted) {
  Chassis::Options options;
  options.remoteSlack = 0;
  Chassis chassis(options);
  for (std::size_t i = 0; i < chassis.features(); ++i) {
    EXPECT_TRUE(chassis.memory(i)->localMemoryReady());
    EXPECT_TRUE(chassis.memory(i)->remoteMemoryReady());
  }
  EXPECT_EQ(chassis.byteOffset(2) + chassis.feature(2).size, chassis.total());
  EXPECT_EQ(chassis.remoteSize(), chassis.total());
  Chassis::runUntilRest();
}

}  // namespace
