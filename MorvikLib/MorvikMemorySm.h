#ifndef MORVIKLIB_MORVIKMEMORYSM_H
#define MORVIKLIB_MORVIKMEMORYSM_H

#include "Kel/Clock.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/Name.h"
#include "Kel/Ptr.h"
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
class MorvikMemorySm : public Kel::Entity {
 public:
  class KelMorvikStatus;
  class KelMorvikManifest;
  class KelMorvikAudit;
  class KelMorvikAuditRequests;
  class KelMorvikMemory;
  class KelWrClock;

  MorvikMemorySm(const Kel::Name& name, const Kel::Ptr<Morvik::Status const>& status,
                 const Kel::Ptr<Morvik::Manifest const>& manifest,
                 const Kel::Ptr<Morvik::Audit const>& audit,
                 const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                 const Kel::Ptr<Kel::Dir const>& auditRequests,
                 const Kel::Ptr<MorvikMemory>& memory);
  ~MorvikMemorySm() override;

  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }
  const char* fwkType() const override { return kMorvikMemorySmTypeName; }
  void hasNotificationActiveIs(bool on) override;
  void kelDoZombieReactors(bool zombie);

  // Inputs, read through their reactors (null when there is none).
  Kel::Ptr<Morvik::Status const> morvikStatus() const;
  Kel::Ptr<Morvik::Manifest const> morvikManifest() const;
  Kel::Ptr<Morvik::Audit const> morvikAudit() const;
  const Kel::Ptr<Morvik::AuditRequest>& morvikAuditRequest() const { return morvikAuditRequest_; }
  Kel::Ptr<Kel::Dir const> morvikAuditRequests() const;
  Kel::Ptr<MorvikMemory> morvikMemory() const;
  const Kel::Ptr<MorvikAuditSm>& morvikAuditSm() const { return morvikAuditSm_; }
  Kel::Ptr<Kel::Clock const> wrClock() const;
  bool deletion() const { return deletion_; }
  bool initialized() const { return initialized_; }

  // The reactor objects themselves, for tests and the generic interface.
  const Kel::Ptr<KelWrClock>& wrClockReactor() const { return wrClock_; }

  void morvikStatusIs(const Kel::Ptr<Morvik::Status const>& status);
  void morvikStatusDel() { morvikStatusIs(nullptr); }
  void morvikManifestIs(const Kel::Ptr<Morvik::Manifest const>& manifest);
  void morvikManifestDel() { morvikManifestIs(nullptr); }
  void morvikAuditIs(const Kel::Ptr<Morvik::Audit const>& audit);
  void morvikAuditDel() { morvikAuditIs(nullptr); }
  void morvikAuditRequestsIs(const Kel::Ptr<Kel::Dir const>& auditRequests);
  void morvikAuditRequestsDel() { morvikAuditRequestsIs(nullptr); }
  void morvikMemoryIs(const Kel::Ptr<MorvikMemory>& memory);
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
  void kel_handleWrClock_time();
  void kel_handleMorvikMemory_remoteCopyChunkSize();

  // Offered to scripts; the library itself calls neither.
  void setWriteAccess(const U64& dest, U32 size, int prot);
  bool overlap(const U64& start1, const U64& size1, const U64& start2, const U64& size2) const;

 private:
  template <class F>
  void forEachReactor(F&& f);

  Kel::Name name_;
  Kel::Ptr<KelMorvikStatus> morvikStatus_;
  Kel::Ptr<KelMorvikManifest> morvikManifest_;
  Kel::Ptr<KelMorvikAudit> morvikAudit_;
  Kel::Ptr<Morvik::AuditRequest> morvikAuditRequest_;
  Kel::Ptr<KelMorvikAuditRequests> morvikAuditRequests_;
  Kel::Ptr<KelMorvikMemory> morvikMemory_;
  Kel::Ptr<MorvikAuditSm> morvikAuditSm_;
  bool deletion_ = false;
  bool initialized_ = false;
  Kel::Ptr<KelWrClock> wrClock_;
  mutable Kel::NotifieeList notifiees_;
};

Kel::Ptr<MorvikMemorySm> MorvikMemorySmIs(const Kel::Name& name,
                                          const Kel::Ptr<Morvik::Status const>& status,
                                          const Kel::Ptr<Morvik::Manifest const>& manifest,
                                          const Kel::Ptr<Morvik::Audit const>& audit,
                                          const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                          const Kel::Ptr<Kel::Dir const>& auditRequests,
                                          const Kel::Ptr<MorvikMemory>& memory);

Kel::Ptr<MorvikMemorySm> morvikMemorySmFactory(const Kel::Name& name,
                                               const Kel::Ptr<Morvik::Status const>& status,
                                               const Kel::Ptr<Morvik::Manifest const>& manifest,
                                               const Kel::Ptr<Morvik::Audit const>& audit,
                                               const Kel::Ptr<Morvik::AuditRequest>& auditRequest,
                                               const Kel::Ptr<Kel::Dir const>& auditRequests,
                                               const Kel::Ptr<MorvikMemory>& memory);

}  // namespace MorvikLib

#endif
