#include "MorvikLib/MorvikAuditSm.h"

#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Exception.h"
#include "Kel/System.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {

constexpr const char* kSigInitialized = "void MorvikLib::MorvikAuditSm::handleInitialized()";
constexpr const char* kSigTimeout = "void MorvikLib::MorvikAuditSm::handleAuditClockTimeout()";
constexpr const char* kSigTrigger = "void MorvikLib::MorvikAuditSm::handleFeatureAuditTrigger()";

// The first tick comes well before the first full interval.
constexpr double kFirstTickDelay = 5.0;

template <class T, class R>
Kel::Ptr<T> notifierOf(const Kel::Ptr<R>& reactor) {
  return reactor ? Kel::const_ptr_cast<T>(reactor->notifier()) : Kel::Ptr<T>();
}

template <class R, class N>
void repointReactor(MorvikAuditSm* owner, Kel::Ptr<R>& slot, const Kel::Ptr<N>& input) {
  if (!input) {
    if (slot) slot->kelDoZombieReactors(true);
    slot = nullptr;
  } else if (slot) {
    slot->notifierIs(Kel::Ptr<Kel::PtrInterface const>(input));
  } else {
    slot = Kel::reactorNew<R>(owner, input);
  }
}

}  // namespace

MorvikAuditSm::MorvikAuditSm(const Kel::Name& name, const Kel::Ptr<MorvikMemory>& memory,
                             const Kel::Ptr<Morvik::Status const>& status,
                             const Kel::Ptr<Morvik::Manifest const>& manifest,
                             const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                             const Kel::Ptr<Morvik::AuditStatus const>& auditStatus,
                             const Kel::Ptr<Kel::Clock const>& clock)
    : name_(name), morvikMemory_(memory) {
  morvikStatus_ = Kel::reactorNew<KelMorvikStatus>(this, status);
  morvikManifest_ = manifest;
  auditRequest_ = auditRequest;
  auditStatus_ = Kel::reactorNew<KelAuditStatus>(this, auditStatus);
  clock_ = Kel::reactorNew<KelClock>(this, clock);
  auditEnabled_ = true;
  auditInterval_ = 60.0;
  initialized_ = false;
  resultRetryCount_ = 0;
  resultRetryCountMax_ = 5;
  handleInitialized();
}

MorvikAuditSm::~MorvikAuditSm() {
  kelDoZombieReactors(true);
  clock_ = nullptr;
  auditStatus_ = nullptr;
  morvikAudit_ = nullptr;
  morvikStatus_ = nullptr;
}

template <class F>
void MorvikAuditSm::forEachReactor(F&& f) {
  auto visit = [&f](auto& reactor) {
    if (!reactor) return;
    auto hold = reactor;
    f(*hold);
  };
  visit(morvikStatus_);
  visit(morvikAudit_);
  visit(auditStatus_);
  visit(clock_);
}

void MorvikAuditSm::hasNotificationActiveIs(bool on) {
  if (on == notificationActive()) return;
  PtrInterface::hasNotificationActiveIs(on);
  forEachReactor([on](Kel::EntityNotifiee& r) { r.hasNotificationActiveIs(on); });
}

void MorvikAuditSm::kelDoZombieReactors(bool zombie) {
  if (zombie == this->zombie()) return;
  zombieBitIs(zombie);
  forEachReactor([zombie](Kel::EntityNotifiee& r) { r.kelDoZombieReactors(zombie); });
}

Kel::Ptr<Morvik::Status const> MorvikAuditSm::morvikStatus() const {
  return notifierOf<Morvik::Status const>(morvikStatus_);
}
Kel::Ptr<Morvik::Audit> MorvikAuditSm::morvikAudit() const {
  return notifierOf<Morvik::Audit>(morvikAudit_);
}
Kel::Ptr<Morvik::AuditStatus const> MorvikAuditSm::auditStatus() const {
  return notifierOf<Morvik::AuditStatus const>(auditStatus_);
}
Kel::Ptr<Kel::Clock const> MorvikAuditSm::clock() const {
  return notifierOf<Kel::Clock const>(clock_);
}

void MorvikAuditSm::morvikStatusIs(const Kel::Ptr<Morvik::Status const>& status) {
  if (status == morvikStatus()) return;
  repointReactor(this, morvikStatus_, status);
}

void MorvikAuditSm::morvikAuditIs(const Kel::Ptr<Morvik::Audit>& audit) {
  if (audit == morvikAudit()) return;
  repointReactor(this, morvikAudit_, audit);
}

void MorvikAuditSm::auditStatusIs(const Kel::Ptr<Morvik::AuditStatus const>& auditStatus) {
  if (auditStatus == this->auditStatus()) return;
  repointReactor(this, auditStatus_, auditStatus);
}

void MorvikAuditSm::clockIs(const Kel::Ptr<Kel::Clock const>& clock) {
  if (clock == this->clock()) return;
  repointReactor(this, clock_, clock);
}

void MorvikAuditSm::handleInitialized() {
  MORVIK_TRACE(0, "handleInitialized") << kSigInitialized;
  initialized_ = true;
  // A machine built without a clock does not tick until a feature trigger asks it to.
  if (clock_) clock_->timeMinIs(Kel::System::currentTime() + kFirstTickDelay);
}

void MorvikAuditSm::handleAuditClockTimeout() {
  Kel::Ptr<Morvik::Status const> status = morvikStatus();
  MORVIK_TRACE(5, "handleAuditClockTimeout")
      << kSigTimeout << " feature " << (status ? status->name() : Kel::Name());
  // A missing status is the same broken invariant as a role of 0.
  KEL_ASSERT_TEXT(morvikStatus() && morvikStatus()->activeSupe(), "morvikStatus()->activeSupe()",
                  kSigTimeout);
  auditMemory();
  // Re-armed on every tick, whatever the step did, so the machine ticks for as long as it lives.
  if (clock_) clock_->timeMinIs(Kel::System::currentTime() + auditInterval_);
}

void MorvikAuditSm::handleFeatureAuditTrigger() {
  U32 trigger = morvikStatus()->featureAuditTrigger();
  MORVIK_TRACE(5, "handleFeatureAuditTrigger") << kSigTrigger << " featureAuditTrigger " << trigger
                                               << " initialized " << (initialized_ ? 1 : 0);
  if (initialized_ && trigger != 0) handleAuditClockTimeout();
}

Kel::Ptr<MorvikAuditSm> MorvikAuditSmIs(const Kel::Name& name, const Kel::Ptr<MorvikMemory>& memory,
                                        const Kel::Ptr<Morvik::Status const>& status,
                                        const Kel::Ptr<Morvik::Manifest const>& manifest,
                                        const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                        const Kel::Ptr<Morvik::AuditStatus const>& auditStatus,
                                        const Kel::Ptr<Kel::Clock const>& clock) {
  Kel::Ptr<MorvikAuditSm> sm = Kel::allocate<MorvikAuditSm>(name, memory, status, manifest,
                                                            auditRequest, auditStatus, clock);
  if (!sm) Kel::throwRangeException("null ValidPtr");
  return sm;
}

Kel::Ptr<MorvikAuditSm> morvikAuditSmFactory(Kel::Name name, const Kel::Ptr<MorvikMemory>& memory,
                                             const Kel::Ptr<Morvik::Status const>& status,
                                             const Kel::Ptr<Morvik::Manifest const>& manifest,
                                             const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                             const Kel::Ptr<Morvik::AuditStatus const>& auditStatus,
                                             const Kel::Ptr<Kel::Clock const>& clock) {
  return MorvikAuditSmIs(name, memory, status, manifest, auditRequest, auditStatus, clock);
}

}  // namespace MorvikLib
