#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <functional>
#include <string>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "ostra/ostra.h"
#include "support/Chassis.h"

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemory;
using MorvikTest::Chassis;

const std::string kInitialized = "\n  in void MorvikLib::MorvikMemorySm::handleInitialized()";
const std::string kLocal = "\n  in void MorvikLib::MorvikMemorySm::handleLocalMemoryChange()";
const std::string kRemote = "\n  in void MorvikLib::MorvikMemorySm::handleRemoteMemoryChange()";
const std::string kAccess =
    "\n  in void MorvikLib::MorvikMemorySm::setWriteAccess(const U64&, U32, int)";

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
  Kel::Ptr<MorvikLib::MorvikMemory> memory;
  Kel::Ptr<Morvik::Status const> status;
  Kel::Ptr<Morvik::AuditRequest> request = Kel::allocate<Morvik::AuditRequest>(Kel::Name("a"));
  Kel::Ptr<Morvik::AuditStatus> answer = Kel::allocate<Morvik::AuditStatus>(Kel::Name("a"));
};

Parts complete(Chassis& c) {
  return {c.memory(0), c.status()};
}

Kel::Ptr<MorvikAuditSm> build(Chassis& c, const Parts& p) {
  return MorvikLib::morvikAuditSmFactory(Kel::Name("alphaAudit"), p.memory, p.status, c.manifest(),
                                         p.request, p.answer, Kel::activityManager()->clock());
}

void firstTick(Chassis& c, const Parts& p) {
  Kel::Ptr<MorvikAuditSm> sm = build(c, p);
  Chassis::runUntil(Kel::System::currentTime() + 5.0);
}

const std::string kTick = "\n  in void MorvikLib::MorvikAuditSm::handleAuditClockTimeout()";
const std::string kAudit = "\n  in void MorvikLib::MorvikAuditSm::auditMemory()";
const std::string kResync = "\n  in void MorvikLib::MorvikAuditSm::handleAuditResync()";
const std::string kReset = "\n  in void MorvikLib::MorvikMemorySm::resetAuditSm(Kel::Name)";
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
         Parts p = complete(c);
         p.status = nullptr;
         build(c, p)->handleAuditClockTimeout();
       }},
      {"tickInRoleNone", kRole, true, false,
       [](Chassis& c) {
         c.status()->activeSupeIs(Morvik::activeSupeNone);
         firstTick(c, complete(c));
       }},
      {"tickWithoutRequest", "auditRequest()" + kAudit, true, false,
       [](Chassis& c) {
         Parts p = complete(c);
         p.request = nullptr;
         firstTick(c, p);
       }},
      {"verdictWithoutMemory", "morvikMemory()" + kResync, true, false,
       [](Chassis& c) {
         Parts p = complete(c);
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
         c.sm(0)->morvikAuditSmIs(build(c, complete(c)));
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
