#ifndef TESTS_SUPPORT_CHASSIS_H
#define TESTS_SUPPORT_CHASSIS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Morvik/ActiveSupeType.h"
#include "Morvik/Audit.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/Manifest.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace MorvikTest {

// Plays the platform's agents for the memory state machines of one simulated chassis: a simulated
// machine of its own (a fresh "SIMULATION_VMID"), virtual time, the peer's memory as the DMA region
// "MorvikRemote", the manifest and status records, optionally the audit records, and one
// MorvikMemory with one MorvikMemorySm per feature.
//
// Features are laid out back to back in the order given. The state machines allocate
// "MorvikLocal" themselves, as an agent's would. Everything, both regions included, goes when the
// chassis goes; a test that keeps its own pointer to a memory entity or a state machine must let
// go of it first, since unmapping needs this chassis's environment.
class Chassis {
 public:
  struct Feature {
    std::string name;
    U64 size;
  };

  struct Options {
    std::vector<Feature> features{{"alpha", 8192}, {"beta", 16384}, {"gamma", 4096}};
    Morvik::ActiveSupeType role = Morvik::activeSupeActive;
    // Publish the status's remoteMemory before the machines start.
    bool remoteKnown = true;
    U32 remoteVersion = 7;
    // The peer's own base address, as its status publishes it.
    U64 peerMemory = 0x7f000000;
    // Extra bytes of "MorvikRemote" beyond the features, so that a region larger than the
    // manifest can be published.
    U32 remoteSlack = 0;
    // An Audit record, the directory of audit requests with one AuditRequest per feature, and
    // (with auditStatus) one AuditStatus entry per request in the audit record.
    bool audit = false;
    bool auditStatus = true;
    // Build the memories and the state machines at once; otherwise buildMachines() does.
    bool machines = true;
  };

  Chassis();
  explicit Chassis(Options options);
  ~Chassis();
  Chassis(const Chassis&) = delete;
  Chassis& operator=(const Chassis&) = delete;

  const std::string& vmid() const { return vmid_; }
  std::size_t features() const { return options_.features.size(); }
  const Feature& feature(std::size_t i) const { return options_.features.at(i); }
  U64 byteOffset(std::size_t i) const { return offsets_.at(i); }
  // The sum of the feature sizes: the whole mirrored memory.
  U32 total() const { return total_; }
  U64 remotePaddr() const { return remotePaddr_; }
  U32 remoteSize() const { return total_ + options_.remoteSlack; }

  const Kel::Ptr<Morvik::Status>& status() const { return status_; }
  const Kel::Ptr<Morvik::Manifest>& manifest() const { return manifest_; }
  // The range this chassis publishes as the peer's memory (whether or not it is published now).
  Kel::Ptr<Morvik::Region const> remoteRegion(U32 version) const;
  // Publishes the peer's memory again (a fresh record, so the status notifies) or takes it away.
  void remoteMemoryIs(bool known);
  // Publishes a range whose address is not known yet.
  void remoteMemoryUnknownIs();

  const Kel::Ptr<Kel::Dir>& auditRequests() const { return auditRequests_; }
  const Kel::Ptr<Morvik::Audit>& audit() const { return audit_; }
  Kel::Name auditName(std::size_t i) const;
  Kel::Ptr<Morvik::AuditRequest> auditRequest(std::size_t i) const;
  Kel::Ptr<Morvik::AuditStatus> auditStatus(std::size_t i) const;

  // One memory and one state machine per feature, named after it.
  void buildMachines();
  // Releases the state machines, then the memories (which unmap both sides).
  void releaseMachines();
  Kel::Ptr<MorvikLib::MorvikMemorySm> newMachine(std::size_t i,
                                                 const Kel::Ptr<MorvikLib::MorvikMemory>& memory);
  const Kel::Ptr<MorvikLib::MorvikMemory>& memory(std::size_t i) const { return memories_.at(i); }
  const Kel::Ptr<MorvikLib::MorvikMemorySm>& sm(std::size_t i) const { return machines_.at(i); }

  // Every byte of a region, through a read-only mapping of the chassis's own. "MorvikLocal"
  // exists once a state machine has allocated it.
  const U8* remoteBytes();
  const U8* localBytes();

  // Runs the activity loop at the current time until nothing more is due; returns the passes run.
  static std::size_t runUntilRest();

  // Sets (or, with nullptr, unsets) an environment variable until the chassis goes.
  void envIs(const char* name, const char* value);

 private:
  void layOut();
  void publishRecords();
  void createAudit();
  U64 viewOf(bool remote, U64& view);
  void restoreEnvironment();

  Options options_;
  std::string vmid_;
  std::vector<U64> offsets_;
  U32 total_ = 0;
  U64 remotePaddr_ = 0;
  bool wasVirtual_ = false;
  Kel::Ptr<Morvik::Status> status_;
  Kel::Ptr<Morvik::Manifest> manifest_;
  Kel::Ptr<Morvik::Audit> audit_;
  Kel::Ptr<Kel::Dir> auditRequests_;
  std::vector<Kel::Ptr<Morvik::AuditStatus>> auditStatuses_;
  std::vector<Kel::Ptr<MorvikLib::MorvikMemory>> memories_;
  std::vector<Kel::Ptr<MorvikLib::MorvikMemorySm>> machines_;
  U64 remoteView_ = 0;
  U64 localView_ = 0;
  std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv_;
};

}  // namespace MorvikTest

#endif
