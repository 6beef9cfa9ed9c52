#include "support/Chassis.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <stdexcept>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/FeatureManifest.h"
#include "ostra/ostra.h"

namespace MorvikTest {

namespace {

constexpr const char* kLocalName = "MorvikLocal";
constexpr const char* kRemoteName = "MorvikRemote";

// Distinct for every chassis of every process, forked death-test children included.
std::string freshVmid() {
  static std::atomic<unsigned> counter{0};
  return "morvik-chassis-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
}

}  // namespace

Chassis::Chassis() : Chassis(Options{}) {}

Chassis::Chassis(Options options) : options_(std::move(options)) {
  wasVirtual_ = Kel::System::virtualTime();
  Kel::System::virtualTimeIs(true, 1000.0);
  vmid_ = freshVmid();
  envIs("SIMULATION_VMID", vmid_.c_str());
  layOut();
  remotePaddr_ = ostra_alloc_func(kRemoteName, remoteSize(), "chassis");
  if (!remotePaddr_) throw std::runtime_error("cannot allocate the peer's memory");
  publishRecords();
  if (options_.audit) createAudit();
  if (options_.machines) buildMachines();
}

Chassis::~Chassis() {
  // A test may have pointed the environment elsewhere; unmapping must find this machine's regions.
  ::setenv("SIMULATION_VMID", vmid_.c_str(), 1);
  releaseMachines();
  if (remoteView_) ostra_unmap(kRemoteName, remoteView_, remoteSize());
  if (localView_) ostra_unmap(kLocalName, localView_, total_);
  ostra_free(kLocalName);
  ostra_free(kRemoteName);
  auditStatuses_.clear();
  audit_ = nullptr;
  auditRequests_ = nullptr;
  status_ = nullptr;
  manifest_ = nullptr;
  restoreEnvironment();
  if (!wasVirtual_) Kel::System::virtualTimeIs(false);
}

void Chassis::layOut() {
  U64 offset = 0;
  for (const Feature& f : options_.features) {
    offsets_.push_back(offset);
    offset += f.size;
  }
  total_ = static_cast<U32>(offset);
}

void Chassis::publishRecords() {
  manifest_ = Kel::allocate<Morvik::Manifest>(Kel::Name("manifest"));
  for (std::size_t i = 0; i < features(); ++i) {
    Kel::Name name(feature(i).name);
    manifest_->manifestIs(
        name, Kel::allocate<Morvik::FeatureManifest>(name, feature(i).size, offsets_[i]));
  }
  // In simulation the local base comes from the machines' own allocation; this range only says
  // where the mirrored memory would lie on hardware.
  manifest_->localMemoryIs(Kel::allocate<Morvik::Region>(Kel::Name("localMemory"),
                                                         Morvik::PhysicalAddress(0x10000000),
                                                         total_, 0, Kel::String("/dev/mem")));
  status_ = Kel::allocate<Morvik::Status>(Kel::Name("status"));
  status_->peerMemoryIs(options_.peerMemory);
  status_->activeSupeIs(options_.role);
  if (options_.remoteKnown) status_->remoteMemoryIs(remoteRegion(options_.remoteVersion));
}

Kel::Ptr<Morvik::Region const> Chassis::remoteRegion(U32 version) const {
  return Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"),
                                       Morvik::PhysicalAddress(remotePaddr_), remoteSize(), version,
                                       Kel::String(kRemoteName));
}

void Chassis::remoteMemoryIs(bool known) {
  status_->remoteMemoryIs(known ? remoteRegion(options_.remoteVersion) : nullptr);
}

void Chassis::remoteMemoryUnknownIs() {
  status_->remoteMemoryIs(Kel::allocate<Morvik::Region>(
      Kel::Name("remoteMemory"), Morvik::PhysicalAddress(0), remoteSize(), options_.remoteVersion,
      Kel::String(kRemoteName)));
}

void Chassis::createAudit() {
  audit_ = Kel::allocate<Morvik::Audit>(Kel::Name("audit"));
  auditRequests_ = Kel::allocate<Kel::Dir>(Kel::Name("auditRequests"));
  for (std::size_t i = 0; i < features(); ++i) {
    Kel::Name name = auditName(i);
    auditRequests_->entityIs(name, Kel::allocate<Morvik::AuditRequest>(name));
    auditStatuses_.push_back(Kel::allocate<Morvik::AuditStatus>(name));
    if (options_.auditStatus) audit_->auditStatusIs(name, auditStatuses_.back());
  }
}

Kel::Name Chassis::auditName(std::size_t i) const {
  return Kel::Name(feature(i).name + "Audit");
}

Kel::Ptr<Morvik::AuditRequest> Chassis::auditRequest(std::size_t i) const {
  if (!auditRequests_) return nullptr;
  return Kel::ptr_cast<Morvik::AuditRequest>(auditRequests_->entity(auditName(i)));
}

Kel::Ptr<Morvik::AuditStatus> Chassis::auditStatus(std::size_t i) const {
  return i < auditStatuses_.size() ? auditStatuses_[i] : nullptr;
}

void Chassis::buildMachines() {
  for (std::size_t i = memories_.size(); i < features(); ++i) {
    memories_.push_back(MorvikLib::morvikMemoryFactory(Kel::Name(feature(i).name)));
    machines_.push_back(newMachine(i, memories_.back()));
  }
}

Kel::Ptr<MorvikLib::MorvikMemorySm> Chassis::newMachine(
    std::size_t i, const Kel::Ptr<MorvikLib::MorvikMemory>& memory) {
  return MorvikLib::morvikMemorySmFactory(Kel::Name(feature(i).name), status_, manifest_, audit_,
                                          auditRequest(i), auditRequests_, memory);
}

void Chassis::releaseMachines() {
  // A machine's audit holds its memory: machines go first, then the memories unmap both sides.
  while (!machines_.empty()) machines_.pop_back();
  while (!memories_.empty()) memories_.pop_back();
}

U64 Chassis::viewOf(bool remote, U64& view) {
  const char* region = remote ? kRemoteName : kLocalName;
  if (!view) view = ostra_map(region, 0, 0, remote ? remoteSize() : total_);
  if (!view) throw std::runtime_error(std::string("cannot map ") + region);
  return view;
}

const U8* Chassis::remoteBytes() {
  return reinterpret_cast<const U8*>(viewOf(true, remoteView_));
}

const U8* Chassis::localBytes() {
  return reinterpret_cast<const U8*>(viewOf(false, localView_));
}

std::size_t Chassis::runUntilRest() {
  return Kel::activityManager()->runUntilRest();
}

void Chassis::envIs(const char* name, const char* value) {
  const bool known = std::any_of(savedEnv_.begin(), savedEnv_.end(),
                                 [name](const auto& saved) { return saved.first == name; });
  if (!known) {
    const char* old = std::getenv(name);
    savedEnv_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  }
  if (value) {
    ::setenv(name, value, 1);
  } else {
    ::unsetenv(name);
  }
}

void Chassis::restoreEnvironment() {
  for (auto it = savedEnv_.rbegin(); it != savedEnv_.rend(); ++it) {
    if (it->second) {
      ::setenv(it->first.c_str(), it->second->c_str(), 1);
    } else {
      ::unsetenv(it->first.c_str());
    }
  }
  savedEnv_.clear();
}

}  // namespace MorvikTest
