#include "MorvikLib/MorvikMemorySm.h"

#include <sys/mman.h>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Exception.h"
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

template <class T, class R>
Kel::Ptr<T> notifierOf(const Kel::Ptr<R>& reactor) {
  return reactor ? Kel::const_ptr_cast<T>(reactor->notifier()) : Kel::Ptr<T>();
}

// A replaced reactor may still be inside a visit of its notifier (its own handler replaced it):
// turning it zombie takes it out of that list at once, so it hears nothing more.
template <class R>
void dropReactor(Kel::Ptr<R>& slot) {
  if (!slot) return;
  Kel::Ptr<R> old = std::move(slot);
  old->kelDoZombieReactors(true);
}

// Returns whether the input changed; an unchanged input keeps its reactor.
template <class R, class N>
bool replaceReactor(MorvikMemorySm* owner, Kel::Ptr<R>& slot, const Kel::Ptr<N>& notifier) {
  const Kel::Entity* current = slot ? slot->notifierEntity().ptr() : nullptr;
  if (static_cast<const Kel::Entity*>(notifier.ptr()) == current) return false;
  dropReactor(slot);
  slot = Kel::reactorNew<R>(owner, notifier);
  return true;
}

}  // namespace

MorvikMemorySm::MorvikMemorySm(const Kel::Name& name, const Kel::Ptr<Morvik::Status const>& status,
                               const Kel::Ptr<Morvik::Manifest const>& manifest,
                               const Kel::Ptr<Morvik::Audit const>& audit,
                               const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                               const Kel::Ptr<Kel::Dir const>& auditRequests,
                               const Kel::Ptr<MorvikMemory>& memory)
    : name_(name) {
  morvikStatus_ = Kel::reactorNew<KelMorvikStatus>(this, status);
  morvikManifest_ = Kel::reactorNew<KelMorvikManifest>(this, manifest);
  morvikAudit_ = Kel::reactorNew<KelMorvikAudit>(this, audit);
  morvikAuditRequest_ = auditRequest;
  morvikAuditRequests_ = Kel::reactorNew<KelMorvikAuditRequests>(this, auditRequests);
  morvikMemory_ = Kel::reactorNew<KelMorvikMemory>(this, memory);
  handleInitialized();
}

MorvikMemorySm::~MorvikMemorySm() {
  kelDoZombieReactors(true);
  morvikAuditSm_ = nullptr;
}

template <class F>
void MorvikMemorySm::forEachReactor(F&& f) {
  auto visit = [&f](auto& reactor) {
    if (!reactor) return;
    auto hold = reactor;
    f(*hold);
  };
  visit(morvikStatus_);
  visit(morvikManifest_);
  visit(morvikAudit_);
  visit(morvikAuditRequests_);
  visit(morvikMemory_);
  visit(wrClock_);
}

void MorvikMemorySm::hasNotificationActiveIs(bool on) {
  if (on == notificationActive()) return;
  PtrInterface::hasNotificationActiveIs(on);
  forEachReactor([on](Kel::EntityNotifiee& r) { r.hasNotificationActiveIs(on); });
}

void MorvikMemorySm::kelDoZombieReactors(bool zombie) {
  if (zombie == this->zombie()) return;
  zombieBitIs(zombie);
  forEachReactor([zombie](Kel::EntityNotifiee& r) { r.kelDoZombieReactors(zombie); });
}

Kel::Ptr<Morvik::Status const> MorvikMemorySm::morvikStatus() const {
  return notifierOf<Morvik::Status const>(morvikStatus_);
}
Kel::Ptr<Morvik::Manifest const> MorvikMemorySm::morvikManifest() const {
  return notifierOf<Morvik::Manifest const>(morvikManifest_);
}
Kel::Ptr<Morvik::Audit const> MorvikMemorySm::morvikAudit() const {
  return notifierOf<Morvik::Audit const>(morvikAudit_);
}
Kel::Ptr<Kel::Dir const> MorvikMemorySm::morvikAuditRequests() const {
  return notifierOf<Kel::Dir const>(morvikAuditRequests_);
}
Kel::Ptr<MorvikMemory> MorvikMemorySm::morvikMemory() const {
  return notifierOf<MorvikMemory>(morvikMemory_);
}
Kel::Ptr<Kel::Clock const> MorvikMemorySm::wrClock() const {
  return notifierOf<Kel::Clock const>(wrClock_);
}

void MorvikMemorySm::morvikStatusIs(const Kel::Ptr<Morvik::Status const>& status) {
  replaceReactor(this, morvikStatus_, status);
}

void MorvikMemorySm::morvikManifestIs(const Kel::Ptr<Morvik::Manifest const>& manifest) {
  if (replaceReactor(this, morvikManifest_, manifest) && manifest) handleLocalMemoryChange();
}

void MorvikMemorySm::morvikAuditIs(const Kel::Ptr<Morvik::Audit const>& audit) {
  replaceReactor(this, morvikAudit_, audit);
}

void MorvikMemorySm::morvikAuditRequestsIs(const Kel::Ptr<Kel::Dir const>& auditRequests) {
  replaceReactor(this, morvikAuditRequests_, auditRequests);
}

void MorvikMemorySm::morvikMemoryIs(const Kel::Ptr<MorvikMemory>& memory) {
  if (replaceReactor(this, morvikMemory_, memory)) handleLocalMemoryChange();
}

void MorvikMemorySm::wrClockIs(const Kel::Ptr<Kel::Clock const>& clock) {
  if (clock == wrClock()) return;
  // A firing the old clock still owes moves to the new one: the copier waits for it, and
  // remoteCopyPending, already true, would not change again to re-arm it.
  const bool owed = wrClock_ && wrClock_->timeRequested();
  const double time = owed ? wrClock_->timeMin() : 0.0;
  replaceReactor(this, wrClock_, clock);
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
  if (!wrClock_) wrClockIs(Kel::activityManager()->clock());
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

Kel::Ptr<MorvikMemorySm> MorvikMemorySmIs(const Kel::Name& name,
                                          const Kel::Ptr<Morvik::Status const>& status,
                                          const Kel::Ptr<Morvik::Manifest const>& manifest,
                                          const Kel::Ptr<Morvik::Audit const>& audit,
                                          const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                          const Kel::Ptr<Kel::Dir const>& auditRequests,
                                          const Kel::Ptr<MorvikMemory>& memory) {
  // allocate switches notification on once the object is built.
  Kel::Ptr<MorvikMemorySm> sm = Kel::allocate<MorvikMemorySm>(name, status, manifest, audit,
                                                              auditRequest, auditRequests, memory);
  if (!sm) Kel::throwRangeException("null ValidPtr");
  return sm;
}

Kel::Ptr<MorvikMemorySm> morvikMemorySmFactory(const Kel::Name& name,
                                               const Kel::Ptr<Morvik::Status const>& status,
                                               const Kel::Ptr<Morvik::Manifest const>& manifest,
                                               const Kel::Ptr<Morvik::Audit const>& audit,
                                               const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                               const Kel::Ptr<Kel::Dir const>& auditRequests,
                                               const Kel::Ptr<MorvikMemory>& memory) {
  return MorvikMemorySmIs(name, status, manifest, audit, auditRequest, auditRequests, memory);
}

}  // namespace MorvikLib
