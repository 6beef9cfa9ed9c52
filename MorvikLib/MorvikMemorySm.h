#ifndef MORVIKLIB_MORVIKMEMORYSM_H
#define MORVIKLIB_MORVIKMEMORYSM_H

#include <array>
#include <utility>

#include "Kel/Clock.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Kel/Reactor.h"
#include "Kel/Types.h"
#include "Morvik/Audit.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/Manifest.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/TypeNames.h"

namespace MorvikLib {

class MorvikAuditSm;

// Drives one MorvikMemory from the shared records: maps local and remote memory, follows the
// supervisor's role, runs the background copier on its write clock and owns the audit of the
// active side. Every handler runs on the activity thread.
class MorvikMemorySm : public Kel::StateMachine<MorvikMemorySm, Kel::Entity> {
 public:
  class KelMorvikStatus;
  class KelMorvikManifest;
  class KelMorvikAudit;
  class KelMorvikAuditRequests;
  class KelMorvikMemory;
  class KelWrClock;
  using StatusIn = Kel::Ptr<Morvik::Status const>;
  using ManifestIn = Kel::Ptr<Morvik::Manifest const>;
  using AuditIn = Kel::Ptr<Morvik::Audit const>;
  using AuditRequestIn = Kel::Ptr<Morvik::AuditRequest>;
  using DirIn = Kel::Ptr<Kel::Dir const>;
  using MemoryIn = Kel::Ptr<MorvikMemory>;

  MorvikMemorySm(const Kel::Name& name, const StatusIn& status, const ManifestIn& manifest,
                 const AuditIn& audit, const AuditRequestIn& auditRequest,
                 const DirIn& auditRequests, const MemoryIn& memory);
  ~MorvikMemorySm() override;

  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }
  const char* fwkType() const override { return kMorvikMemorySmTypeName; }

  // Inputs, read through their reactors (null when there is none).
  StatusIn morvikStatus() const;
  ManifestIn morvikManifest() const;
  AuditIn morvikAudit() const;
  const AuditRequestIn& morvikAuditRequest() const { return morvikAuditRequest_; }
  DirIn morvikAuditRequests() const;
  MemoryIn morvikMemory() const;
  const Kel::Ptr<MorvikAuditSm>& morvikAuditSm() const { return morvikAuditSm_; }
  Kel::Ptr<Kel::Clock const> wrClock() const;
  bool deletion() const { return deletion_; }
  bool initialized() const { return initialized_; }

  // The reactor objects themselves, for tests and the generic interface.
  const Kel::Ptr<KelWrClock>& wrClockReactor() const { return wrClock_; }

  // An Is replaces the input's reactor by one on the new input; a Del drops it.
  void morvikStatusIs(const StatusIn& status);
  void morvikStatusDel() { morvikStatusIs(nullptr); }
  void morvikManifestIs(const ManifestIn& manifest);
  void morvikManifestDel() { morvikManifestIs(nullptr); }
  void morvikAuditIs(const AuditIn& audit);
  void morvikAuditDel() { morvikAuditIs(nullptr); }
  void morvikAuditRequestsIs(const DirIn& auditRequests);
  void morvikAuditRequestsDel() { morvikAuditRequestsIs(nullptr); }
  void morvikMemoryIs(const MemoryIn& memory);
  void morvikMemoryDel() { morvikMemoryIs(nullptr); }
  void wrClockIs(const Kel::Ptr<Kel::Clock const>& clock);
  void wrClockDel() { wrClockIs(nullptr); }
  void morvikAuditSmIs(const Kel::Ptr<MorvikAuditSm>& auditSm);
  void initializedIs(bool value) { initialized_ = value; }
  void deletionIs(bool value) { deletion_ = value; }

  // Handlers.
  void handleInitialized();
  void handleSupStateChange();
  void handleDeletion();
  void handleLocalMemoryChange();
  void handleRemoteMemoryChange();
  void handleMorvikRemoteMemVersion();
  void resetAuditSm();
  virtual void resetAuditSm(const Kel::Name& triggerName);
  void scheduleClockTimeout();

  // Offered to scripts; the library itself calls neither.
  void setWriteAccess(const U64& dest, U32 size, int prot);
  bool overlap(const U64& start1, const U64& size1, const U64& start2, const U64& size2) const;

  // In the order notification and zombie changes reach them.
  std::array<Kel::Ptr<Kel::EntityNotifiee>, 6> reactors() const;

 private:
  void kel_handleWrClock_time();
  void kel_handleMorvikMemory_remoteCopyChunkSize();

  Kel::Name name_;
  Kel::Ptr<KelMorvikStatus> morvikStatus_;
  Kel::Ptr<KelMorvikManifest> morvikManifest_;
  Kel::Ptr<KelMorvikAudit> morvikAudit_;
  AuditRequestIn morvikAuditRequest_;
  Kel::Ptr<KelMorvikAuditRequests> morvikAuditRequests_;
  Kel::Ptr<KelMorvikMemory> morvikMemory_;
  Kel::Ptr<MorvikAuditSm> morvikAuditSm_;
  bool deletion_ = false;
  bool initialized_ = false;
  Kel::Ptr<KelWrClock> wrClock_;
  mutable Kel::NotifieeList notifiees_;
};

// Creates the machine the framework's way (allocation tracking, construction, then notification
// on, which reaches the reactors in the order above); "null ValidPtr" when none was made.
template <class... Inputs>
Kel::Ptr<MorvikMemorySm> MorvikMemorySmIs(Inputs&&... inputs) {
  return Kel::stateMachineNew<MorvikMemorySm>(std::forward<Inputs>(inputs)...);
}

inline Kel::Ptr<MorvikMemorySm> morvikMemorySmFactory(
    const Kel::Name& name, const MorvikMemorySm::StatusIn& status,
    const MorvikMemorySm::ManifestIn& manifest, const MorvikMemorySm::AuditIn& audit,
    const MorvikMemorySm::AuditRequestIn& auditRequest, const MorvikMemorySm::DirIn& auditRequests,
    const MorvikMemorySm::MemoryIn& memory) {
  return MorvikMemorySmIs(name, status, manifest, audit, auditRequest, auditRequests, memory);
}

}  // namespace MorvikLib

#endif
