#include "MorvikLib/MorvikAuditSm.h"

#include "Kel/Assert.h"
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

}  // namespace

MorvikAuditSm::MorvikAuditSm(const Kel::Name& name, const MemoryIn& memory, const StatusIn& status,
                             const ManifestIn& manifest, const AuditRequestIn& auditRequest,
                             const AuditStatusIn& auditStatus, const ClockIn& clock)
    : name_(name), morvikMemory_(memory) {
  // Each setter creates the reactor: no handler runs.
  morvikStatusIs(status);
  morvikManifest_ = manifest;
  auditRequest_ = auditRequest;
  auditStatusIs(auditStatus);
  clockIs(clock);
  handleInitialized();
}

MorvikAuditSm::~MorvikAuditSm() {
  kelDoZombieReactors(true);
  clock_ = nullptr;
  auditStatus_ = nullptr;
  morvikAudit_ = nullptr;
  morvikStatus_ = nullptr;
}

std::array<Kel::Ptr<Kel::EntityNotifiee>, 4> MorvikAuditSm::reactors() const {
  return {morvikStatus_, morvikAudit_, auditStatus_, clock_};
}

MorvikAuditSm::StatusIn MorvikAuditSm::morvikStatus() const {
  return Kel::notifierOf<Morvik::Status const>(morvikStatus_);
}
Kel::Ptr<Morvik::Audit> MorvikAuditSm::morvikAudit() const {
  return Kel::notifierOf<Morvik::Audit>(morvikAudit_);
}
MorvikAuditSm::AuditStatusIn MorvikAuditSm::auditStatus() const {
  return Kel::notifierOf<Morvik::AuditStatus const>(auditStatus_);
}
MorvikAuditSm::ClockIn MorvikAuditSm::clock() const {
  return Kel::notifierOf<Kel::Clock const>(clock_);
}

void MorvikAuditSm::morvikStatusIs(const StatusIn& status) {
  Kel::reactorIs(this, morvikStatus_, status, Kel::Follow::repoint);
}

void MorvikAuditSm::morvikAuditIs(const Kel::Ptr<Morvik::Audit>& audit) {
  Kel::reactorIs(this, morvikAudit_, audit, Kel::Follow::repoint);
}

void MorvikAuditSm::auditStatusIs(const AuditStatusIn& auditStatus) {
  Kel::reactorIs(this, auditStatus_, auditStatus, Kel::Follow::repoint);
}

void MorvikAuditSm::clockIs(const ClockIn& clock) {
  Kel::reactorIs(this, clock_, clock, Kel::Follow::repoint);
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

}  // namespace MorvikLib
