#include "support/Chassis.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/FeatureManifest.h"
#include "MorvikLib/Library.h"
#include "MorvikLib/Trace.h"
#include "ostra/OstraReclaim.h"
#include "ostra/ostra.h"
#include "support/AllocCounts.h"

namespace MorvikTest {

namespace {

const std::string kVmidPrefix = "morvik-chassis-";

// A death-test child dies before its chassis can free its regions; whoever comes next reclaims
// the regions of every chassis left behind.
void freeOrphanRegions() {
  const std::string prefix = "ostra." + kVmidPrefix;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", error)) {
    const std::string name = entry.path().filename().string();
    const auto dot = name.rfind('.');
    if (name.rfind(prefix, 0) != 0 || dot < prefix.size()) continue;
    ostra::reclaimRegion(name.substr(6, dot - 6), name.substr(dot + 1));
  }
}

void setOrUnset(const char* name, const char* value) {
  value ? ::setenv(name, value, 1) : ::unsetenv(name);
}

}  // namespace

Chassis::Chassis() : Chassis(Options{}) {}

Chassis::Chassis(Options options) : options_(std::move(options)) {
  // The process-wide objects are made on first use and live on: not the scenario's.
  Kel::activityManager();
  MorvikLib::traceHandle();
  MorvikLib::checksumErrorLog();
  liveAtStart_ = KelTest::totalLive();
  freeOrphanRegions();
  wasVirtual_ = Kel::System::virtualTime();
  Kel::System::virtualTimeIs(true, options_.start);
  // Distinct for every chassis of every process, death-test children included.
  static std::atomic<unsigned> counter{0};
  vmid_ = kVmidPrefix + std::to_string(::getpid()) + "-" + std::to_string(counter++);
  envIs("SIMULATION_VMID", vmid_.c_str());
  for (const Feature& f : options_.features) {
    offsets_.push_back(total_);
    total_ += static_cast<U32>(f.size);
  }
  remotePaddr_ = ostra_alloc_func("MorvikRemote", total_, "chassis");
  if (!remotePaddr_) throw std::runtime_error("cannot allocate the peer's memory");
  publishRecords();
  if (options_.machines) buildMachines();
}

Chassis::~Chassis() {
  if (savedLevels_) MorvikLib::traceHandle().levelsIs(*savedLevels_);
  // Unmapping must find this machine's regions, wherever a test pointed the environment.
  ::setenv("SIMULATION_VMID", vmid_.c_str(), 1);
  // The machines first, then the memories (which unmap both sides).
  machines_.clear();
  memories_.clear();
  if (remoteView_) ostra_unmap("MorvikRemote", remoteView_, total_);
  if (localView_) ostra_unmap("MorvikLocal", localView_, total_);
  ostra_free("MorvikLocal");
  ostra_free("MorvikRemote");
  requests_.clear();
  statuses_.clear();
  audit_ = nullptr;
  auditRequests_ = nullptr;
  status_ = nullptr;
  manifest_ = nullptr;
  for (auto it = savedEnv_.rbegin(); it != savedEnv_.rend(); ++it)
    setOrUnset(it->first.c_str(), it->second ? it->second->c_str() : nullptr);
  EXPECT_EQ(KelTest::totalLive(), liveAtStart_) << "tracked objects leaked";
  EXPECT_TRUE(Kel::activityManager()->clock()->idle()) << "a clock request outlived the chassis";
  if (!wasVirtual_) Kel::System::virtualTimeIs(false);
  freeOrphanRegions();
}

void Chassis::publishRecords() {
  manifest_ = Kel::allocate<Morvik::Manifest>(Kel::Name("manifest"));
  for (std::size_t i = 0; i < features(); ++i) {
    Kel::Name name(feature(i).name);
    manifest_->manifestIs(
        name, Kel::allocate<Morvik::FeatureManifest>(name, feature(i).size, offsets_[i]));
  }
  // Where the mirrored memory would lie on hardware; simulation allocates its own.
  manifest_->localMemoryIs(Kel::allocate<Morvik::Region>(Kel::Name("localMemory"),
                                                         Morvik::PhysicalAddress(0x10000000),
                                                         total_, 0, Kel::String("/dev/mem")));
  status_ = Kel::allocate<Morvik::Status>(Kel::Name("status"));
  status_->peerMemoryIs(options_.peerMemory);
  status_->activeSupeIs(options_.role);
  remoteMemoryIs(options_.remoteKnown);
  if (!options_.audit) return;
  audit_ = Kel::allocate<Morvik::Audit>(Kel::Name("audit"));
  auditRequests_ = Kel::allocate<Kel::Dir>(Kel::Name("auditRequests"));
  for (std::size_t i = 0; i < features(); ++i) {
    requests_.push_back(Kel::allocate<Morvik::AuditRequest>(auditName(i)));
    auditRequests_->entityIs(auditName(i), requests_.back());
    statuses_.push_back(Kel::allocate<Morvik::AuditStatus>(auditName(i)));
    audit_->auditStatusIs(auditName(i), statuses_.back());
  }
}

Kel::Ptr<Morvik::Region const> Chassis::remoteRegion(U64 paddr, U32 size) const {
  return Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"), Morvik::PhysicalAddress(paddr),
                                       size, 7, Kel::String("MorvikRemote"));
}

void Chassis::remoteMemoryIs(bool known) {
  status_->remoteMemoryIs(known ? remoteRegion(remotePaddr_, total_) : nullptr);
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

const U8* Chassis::view(const char* region, U64& view) {
  if (!view) view = ostra_map(region, 0, 0, total_);
  if (!view) throw std::runtime_error(std::string("cannot map ") + region);
  return reinterpret_cast<const U8*>(view);
}

void Chassis::envIs(const char* name, const char* value) {
  if (std::none_of(savedEnv_.begin(), savedEnv_.end(),
                   [name](const auto& saved) { return saved.first == name; })) {
    const char* old = std::getenv(name);
    savedEnv_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  }
  setOrUnset(name, value);
}

void Chassis::traceLevelsIs(std::initializer_list<int> levels) {
  if (!savedLevels_) savedLevels_ = MorvikLib::traceHandle().levels();
  U32 mask = 0;
  for (int level : levels) mask |= U32{1} << level;
  MorvikLib::traceHandle().levelsIs(mask);
}

std::vector<U8> Chassis::pattern(std::size_t size, U8 seed) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(seed + i * 7 + (i >> 8));
  return bytes;
}

double Chassis::logEpoch() {
  // Each event moves it on by more than any scenario lasts.
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  return 1e7 + 1e5 * static_cast<double>(log.emitted() + log.suppressed());
}

}  // namespace MorvikTest
