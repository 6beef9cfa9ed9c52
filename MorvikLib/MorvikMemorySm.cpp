#include "MorvikLib/MorvikMemorySm.h"

#include <sys/mman.h>

#include "Kel/ActivityManager.h"
#include "Kel/Assert.h"
#include "Kel/System.h"
#include "MorvikLib/Address.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySmReactors.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {

constexpr const char* kSigInitialized = "void MorvikLib::MorvikMemorySm::handleInitialized()";
constexpr const char* kSigSupState = "void MorvikLib::MorvikMemorySm::handleSupStateChange()";
constexpr const char* kSigSchedule = "void MorvikLib::MorvikMemorySm::scheduleClockTimeout()";
constexpr const char* kSigWriteAccess =
    "void MorvikLib::MorvikMemorySm::setWriteAccess(const U64&, U32, int)";

}  // namespace

MorvikMemorySm::MorvikMemorySm(const Kel::Name& name, const StatusIn& status,
                               const ManifestIn& manifest, const AuditIn& audit,
                               const AuditRequestIn& auditRequest, const DirIn& auditRequests,
                               const MemoryIn& memory)
    : name_(name) {
  morvikStatusIs(status);
  // Not through their setters: those map local memory, which initialisation does in its turn.
  Kel::reactorIs(this, morvikManifest_, manifest, Kel::Follow::replace);
  morvikAuditIs(audit);
  morvikAuditRequest_ = auditRequest;
  morvikAuditRequestsIs(auditRequests);
  Kel::reactorIs(this, morvikMemory_, memory, Kel::Follow::replace);
  handleInitialized();
}

MorvikMemorySm::~MorvikMemorySm() {
  kelDoZombieReactors(true);
  morvikAuditSm_ = nullptr;
}

std::array<Kel::Ptr<Kel::EntityNotifiee>, 6> MorvikMemorySm::reactors() const {
  return {morvikStatus_,        morvikManifest_, morvikAudit_,
          morvikAuditRequests_, morvikMemory_,   wrClock_};
}

MorvikMemorySm::StatusIn MorvikMemorySm::morvikStatus() const {
  return Kel::notifierOf<Morvik::Status const>(morvikStatus_);
}
MorvikMemorySm::ManifestIn MorvikMemorySm::morvikManifest() const {
  return Kel::notifierOf<Morvik::Manifest const>(morvikManifest_);
}
MorvikMemorySm::AuditIn MorvikMemorySm::morvikAudit() const {
  return Kel::notifierOf<Morvik::Audit const>(morvikAudit_);
}
MorvikMemorySm::DirIn MorvikMemorySm::morvikAuditRequests() const {
  return Kel::notifierOf<Kel::Dir const>(morvikAuditRequests_);
}
MorvikMemorySm::MemoryIn MorvikMemorySm::morvikMemory() const {
  return Kel::notifierOf<MorvikMemory>(morvikMemory_);
}
Kel::Ptr<Kel::Clock const> MorvikMemorySm::wrClock() const {
  return Kel::notifierOf<Kel::Clock const>(wrClock_);
}

void MorvikMemorySm::morvikStatusIs(const StatusIn& status) {
  Kel::reactorIs(this, morvikStatus_, status, Kel::Follow::replace);
}

void MorvikMemorySm::morvikManifestIs(const ManifestIn& manifest) {
  if (Kel::reactorIs(this, morvikManifest_, manifest, Kel::Follow::replace) && manifest)
    handleLocalMemoryChange();
}

void MorvikMemorySm::morvikAuditIs(const AuditIn& audit) {
  Kel::reactorIs(this, morvikAudit_, audit, Kel::Follow::replace);
}

void MorvikMemorySm::morvikAuditRequestsIs(const DirIn& auditRequests) {
  Kel::reactorIs(this, morvikAuditRequests_, auditRequests, Kel::Follow::replace);
}

void MorvikMemorySm::morvikMemoryIs(const MemoryIn& memory) {
  if (Kel::reactorIs(this, morvikMemory_, memory, Kel::Follow::replace)) handleLocalMemoryChange();
}

void MorvikMemorySm::wrClockIs(const Kel::Ptr<Kel::Clock const>& clock) {
  if (clock == wrClock()) return;
  // A firing the old clock still owes moves to the new one: the copier waits for it, and
  // remoteCopyPending, already true, would not change again to re-arm it.
  const bool owed = wrClock_ && wrClock_->timeRequested();
  const double time = owed ? wrClock_->timeMin() : 0.0;
  Kel::reactorIs(this, wrClock_, clock, Kel::Follow::replace);
  if (owed && wrClock_) wrClock_->timeMinIs(time);
}

void MorvikMemorySm::morvikAuditSmIs(const Kel::Ptr<MorvikAuditSm>& auditSm) {
  if (auditSm == morvikAuditSm_) return;
  // Hold the old machine until the new one is in place: its release may run its destructor.
  Kel::Ptr<MorvikAuditSm> old = std::move(morvikAuditSm_);
  morvikAuditSm_ = auditSm;
}

void MorvikMemorySm::handleInitialized() {
  MORVIK_TRACE(0, "handleInitialized") << kSigInitialized;
  KEL_ASSERT_TEXT(!morvikAudit() == !morvikAuditRequest(),
                  "!morvikAudit() == !morvikAuditRequest()", kSigInitialized);
  if (morvikAuditRequest_) morvikAuditRequest_->auditMapDelAll();
  // The role is evaluated twice on purpose: once before and once after the mappings.
  handleSupStateChange();
  handleMorvikRemoteMemVersion();
  handleSupStateChange();
}

void MorvikMemorySm::handleSupStateChange() {
  Morvik::ActiveSupeType role = morvikStatus()->activeSupe();
  MORVIK_TRACE(0, "handleSupStateChange") << kSigSupState << " set activeSupe to " << role;
  morvikMemory()->activeSupeIs(role != Morvik::activeSupeStandby);
  resetAuditSm();
}

void MorvikMemorySm::handleDeletion() {
  morvikMemory()->handleDeletion();
}

void MorvikMemorySm::scheduleClockTimeout() {
  MORVIK_TRACE(9, "scheduleClockTimeout") << kSigSchedule;
  if (!wrClock_) wrClockIs(Kel::activityManager()->config()->clock());
  wrClock_->timeMinIs(Kel::System::currentTime());
}

void MorvikMemorySm::kel_handleWrClock_time() {
  morvikMemory()->remoteCopyChunk();
}

void MorvikMemorySm::kel_handleMorvikMemory_remoteCopyChunkSize() {
  morvikMemory()->doSync();
}

void MorvikMemorySm::setWriteAccess(const U64& dest, U32 size, int prot) {
  U64 shadow = morvikMemory()->getShadow(dest, size);
  int rval = ::mprotect(address::pointer(shadow), size, prot);
  KEL_ASSERT_IN(rval == 0, kSigWriteAccess);
}

bool MorvikMemorySm::overlap(const U64& start1, const U64& size1, const U64& start2,
                             const U64& size2) const {
  if (start1 <= start2 && start2 < start1 + size1) return true;
  if (start2 > start1) return false;
  return start1 < start2 + size2;
}

}  // namespace MorvikLib
