#ifndef MORVIK_SIM_CHASSIS_H
#define MORVIK_SIM_CHASSIS_H

#include <memory>
#include <string>
#include <vector>

#include "EnvSetting.h"
#include "Kel/Dir.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Layout.h"
#include "Morvik/Audit.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/Manifest.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "ShmRegion.h"
#include "agents/StandbyResponder.h"

namespace MorvikSim {

// One simulated chassis as the active supervisor's agent sees it. The chassis plays the other
// agents: it publishes the manifest and the status (this card active), owns the standby's memory
// ("MorvikRemote") and the audit records, and answers every audit through one standby responder
// per feature, which reads the standby's copy. The active side is the real library: one
// MorvikMemory and one MorvikMemorySm per feature, named after it.
//
// Construction stops before the state machines exist, so that watchers can be put on the memories
// first and see the initial sync; buildMachines() starts them.
class Chassis {
 public:
  // Throws std::runtime_error when the machine already holds a region of ours (another run on the
  // same SIMULATION_VMID) or the standby's memory cannot be allocated.
  Chassis(const std::string& vmid, const Layout& layout, U32 chunkSize);
  ~Chassis();
  Chassis(const Chassis&) = delete;
  Chassis& operator=(const Chassis&) = delete;

  void buildMachines();

  const std::string& vmid() const { return vmid_; }
  const Layout& layout() const { return layout_; }
  std::size_t features() const { return layout_.features(); }
  const Kel::Ptr<MorvikLib::MorvikMemory>& memory(std::size_t i) const { return memories_.at(i); }
  const Kel::Ptr<MorvikLib::MorvikMemorySm>& machine(std::size_t i) const {
    return machines_.at(i);
  }
  const Kel::Ptr<Morvik::AuditRequest>& auditRequest(std::size_t i) const {
    return requests_.at(i);
  }
  const Kel::Ptr<Morvik::AuditStatus>& auditStatus(std::size_t i) const { return statuses_.at(i); }
  MorvikAgents::StandbyResponder& responder(std::size_t i) { return *responders_.at(i); }
  const MorvikAgents::StandbyResponder& responder(std::size_t i) const {
    return *responders_.at(i);
  }

  // Feature i's bytes in the active's memory and in the standby's copy, read-only; the standby's
  // is null while its memory is away.
  const U8* localBytes(std::size_t i) const;
  const U8* remoteBytes(std::size_t i) const;
  bool standbyPresent() const { return standbyPresent_; }

  // The standby's memory goes: the status stops publishing it (no record, or a record whose
  // address is not known), then the memory itself is removed. It comes back blank, and the status
  // publishes it again with a new version.
  void standbyAway(bool nullRecord);
  void standbyBack();

  void chunkSizeIs(U32 chunkSize);
  U32 chunkSize() const { return chunkSize_; }

  // One byte of the standby's copy, written behind the mirror's back.
  void corrupt(std::size_t feature, U32 offset, U8 value);

  // Gives every audit state machine that exists now this interval; the memory state machines
  // replace their audits whenever the role or the standby's memory changes.
  void adoptAudits(double interval);

 private:
  Kel::Ptr<Morvik::Region const> standbyRegion(U64 paddr) const;
  void publishRecords();
  void createAuditRecords();
  void createMemories();
  void mapStandbyCopy();

  std::string vmid_;
  EnvSetting machineSetting_;
  Layout layout_;
  U32 chunkSize_;
  ShmRegion local_{"MorvikLocal"};
  ShmRegion remote_{"MorvikRemote"};
  U64 remotePaddr_ = 0;
  U32 remoteVersion_ = 1;
  bool standbyPresent_ = false;
  const U8* localView_ = nullptr;
  const U8* remoteView_ = nullptr;
  Kel::Ptr<Morvik::Status> status_;
  Kel::Ptr<Morvik::Manifest> manifest_;
  Kel::Ptr<Morvik::Audit> audit_;
  Kel::Ptr<Kel::Dir> auditRequests_;
  std::vector<Kel::Ptr<Morvik::AuditRequest>> requests_;
  std::vector<Kel::Ptr<Morvik::AuditStatus>> statuses_;
  std::vector<Kel::Ptr<MorvikLib::MorvikMemory>> memories_;
  std::vector<Kel::Ptr<MorvikLib::MorvikMemorySm>> machines_;
  std::vector<std::unique_ptr<MorvikAgents::StandbyResponder>> responders_;
};

}  // namespace MorvikSim

#endif
