#include "Chassis.h"

#include <fstream>
#include <stdexcept>

#include "Kel/Allocate.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "ostra/OstraReclaim.h"

namespace MorvikSim {

namespace {

constexpr const char* kStandbyOwner = "morvik_sim standby";
// Where the peer's memory lies in its own address space; only traced by the library.
constexpr U64 kPeerMemory = 0x7f000000;
// Where the mirrored memory would lie on hardware; in simulation the library allocates its own.
constexpr U64 kLocalHardwareBase = 0x10000000;

Kel::Name auditName(const std::string& feature) {
  return Kel::Name(feature + "Audit");
}

// The command name of process `pid` ("morvik_sim"), empty when it cannot be read.
std::string processName(pid_t pid) {
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

}  // namespace

Chassis::Chassis(const std::string& vmid, const Layout& layout, U32 chunkSize)
    : vmid_(vmid),
      machineSetting_("SIMULATION_VMID", vmid),
      layout_(layout),
      chunkSize_(chunkSize) {
  // A killed run's regions are reclaimed; a live process's must not be taken over, nor removed
  // when this run ends.
  for (ShmRegion* region : {&local_, &remote_}) {
    if (const pid_t holder = ostra::reclaimRegion(vmid_, region->name())) {
      throw std::runtime_error("simulated machine '" + vmid_ + "' is in use: process " +
                               std::to_string(holder) + " (" + processName(holder) +
                               ") holds its region " + region->name() +
                               "; end that process or choose another --vmid");
    }
  }
  local_.adopt();
  remotePaddr_ = remote_.allocate(layout_.total(), kStandbyOwner);
  if (remotePaddr_ == 0)
    throw std::runtime_error("cannot allocate the standby's memory MorvikRemote");
  mapStandbyCopy();
  publishRecords();
  createAuditRecords();
  createMemories();
}

Chassis::~Chassis() {
  // Responders stop listening first; machines go before their memories (an audit holds its
  // memory), and the memories unmap both sides while this machine's environment still holds.
  responders_.clear();
  while (!machines_.empty()) machines_.pop_back();
  while (!memories_.empty()) memories_.pop_back();
  local_.release();
  remote_.release();
}

void Chassis::mapStandbyCopy() {
  remoteView_ = remote_.view(layout_.total());
  if (remoteView_ == nullptr) throw std::runtime_error("cannot map the standby's memory");
  standbyPresent_ = true;
}

Kel::Ptr<Morvik::Region const> Chassis::standbyRegion(U64 paddr) const {
  return Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"), Morvik::PhysicalAddress(paddr),
                                       layout_.total(), remoteVersion_,
                                       Kel::String(remote_.name().c_str()));
}

void Chassis::publishRecords() {
  manifest_ = Kel::allocate<Morvik::Manifest>(Kel::Name("manifest"));
  for (std::size_t i = 0; i < features(); ++i) {
    const Kel::Name name(layout_.name(i));
    manifest_->manifestIs(
        name, Kel::allocate<Morvik::FeatureManifest>(name, layout_.size(i), layout_.offset(i)));
  }
  manifest_->localMemoryIs(Kel::allocate<Morvik::Region>(
      Kel::Name("localMemory"), Morvik::PhysicalAddress(kLocalHardwareBase), layout_.total(), 0,
      Kel::String("/dev/mem")));
  status_ = Kel::allocate<Morvik::Status>(Kel::Name("status"));
  status_->peerMemoryIs(Morvik::PhysicalAddress(kPeerMemory));
  status_->activeSupeIs(Morvik::activeSupeActive);
  status_->remoteMemoryIs(standbyRegion(remotePaddr_));
}

void Chassis::createAuditRecords() {
  audit_ = Kel::allocate<Morvik::Audit>(Kel::Name("audit"));
  auditRequests_ = Kel::allocate<Kel::Dir>(Kel::Name("auditRequests"));
  for (std::size_t i = 0; i < features(); ++i) {
    const Kel::Name name = auditName(layout_.name(i));
    requests_.push_back(Kel::allocate<Morvik::AuditRequest>(name));
    auditRequests_->entityIs(name, requests_.back());
    statuses_.push_back(Kel::allocate<Morvik::AuditStatus>(name));
    audit_->auditStatusIs(name, statuses_.back());
  }
}

void Chassis::createMemories() {
  for (std::size_t i = 0; i < features(); ++i) {
    memories_.push_back(MorvikLib::morvikMemoryFactory(Kel::Name(layout_.name(i))));
    memories_.back()->remoteCopyChunkSizeIs(chunkSize_);
  }
}

void Chassis::buildMachines() {
  for (std::size_t i = machines_.size(); i < features(); ++i) {
    machines_.push_back(MorvikLib::morvikMemorySmFactory(Kel::Name(layout_.name(i)), status_,
                                                         manifest_, audit_, requests_[i],
                                                         auditRequests_, memories_[i]));
  }
  localView_ = local_.view(layout_.total());
  if (localView_ == nullptr) throw std::runtime_error("cannot map the active's memory MorvikLocal");
  for (std::size_t i = responders_.size(); i < features(); ++i) {
    responders_.push_back(std::make_unique<MorvikAgents::StandbyResponder>(
        requests_[i], statuses_[i], reinterpret_cast<U64>(remoteView_ + layout_.offset(i)),
        layout_.size(i)));
  }
}

const U8* Chassis::localBytes(std::size_t i) const {
  return localView_ != nullptr ? localView_ + layout_.offset(i) : nullptr;
}

const U8* Chassis::remoteBytes(std::size_t i) const {
  return standbyPresent_ && remoteView_ != nullptr ? remoteView_ + layout_.offset(i) : nullptr;
}

void Chassis::standbyAway(bool nullRecord) {
  if (!standbyPresent_) return;
  status_->remoteMemoryIs(nullRecord ? nullptr : standbyRegion(0));
  for (auto& responder : responders_) responder->copyIs(0, 0);
  remote_.release();
  remoteView_ = nullptr;
  standbyPresent_ = false;
}

void Chassis::standbyBack() {
  if (standbyPresent_) return;
  remotePaddr_ = remote_.allocate(layout_.total(), kStandbyOwner);
  if (remotePaddr_ == 0) throw std::runtime_error("cannot allocate the standby's memory again");
  mapStandbyCopy();
  for (std::size_t i = 0; i < responders_.size(); ++i) {
    responders_[i]->copyIs(reinterpret_cast<U64>(remoteView_ + layout_.offset(i)), layout_.size(i));
  }
  ++remoteVersion_;
  status_->remoteMemoryIs(standbyRegion(remotePaddr_));
}

void Chassis::chunkSizeIs(U32 chunkSize) {
  chunkSize_ = chunkSize;
  for (auto& memory : memories_) memory->remoteCopyChunkSizeIs(chunkSize);
}

void Chassis::corrupt(std::size_t feature, U32 offset, U8 value) {
  memories_.at(feature)->doWriteRemoteTest(offset, &value, 1);
}

void Chassis::adoptAudits(double interval) {
  for (const auto& machine : machines_) {
    const auto& audit = machine->morvikAuditSm();
    if (audit && audit->auditInterval() != interval) audit->auditIntervalIs(interval);
  }
}

}  // namespace MorvikSim
