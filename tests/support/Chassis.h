#ifndef TESTS_SUPPORT_CHASSIS_H
#define TESTS_SUPPORT_CHASSIS_H

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Dir.h"
#include "Kel/Types.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "support/Loop.h"

namespace MorvikTest {

// Plays the platform's agents for one simulated chassis: a machine of its own (a fresh
// "SIMULATION_VMID"), virtual time, the peer's memory ("MorvikRemote"), the manifest, the status,
// optionally the audit records, and one MorvikMemory and MorvikMemorySm per feature, back to back.
// When it goes it fails the test if a tracked object made since it came still lives or the clock
// still has a request: a test makes its own objects after the chassis and lets go of them first.
class Chassis {
 public:
  struct Feature {
    std::string name;
    U64 size;
  };
  struct Options {
    std::vector<Feature> features{{"alpha", 8192}, {"beta", 16384}, {"gamma", 4096}};
    Morvik::ActiveSupeType role = Morvik::activeSupeActive;
    bool remoteKnown = true;      // publish the peer's memory before the machines start
    U64 peerMemory = 0x7f000000;  // the peer's own base address, as its status publishes it
    bool audit = false;
    bool machines = true;   // otherwise buildMachines() makes them
    double start = 1000.0;  // virtual time
  };

  Chassis();
  explicit Chassis(Options options);
  ~Chassis();
  const std::string& vmid() const { return vmid_; }
  std::size_t features() const { return options_.features.size(); }
  const Feature& feature(std::size_t i) const { return options_.features.at(i); }
  U64 byteOffset(std::size_t i) const { return offsets_.at(i); }
  U32 total() const { return total_; }  // the whole mirrored memory, and "MorvikRemote"
  U64 remotePaddr() const { return remotePaddr_; }
  const Kel::Ptr<Morvik::Status>& status() const { return status_; }
  const Kel::Ptr<Morvik::Manifest>& manifest() const { return manifest_; }
  // Publishes the peer's memory afresh (so the status notifies; version 7), or takes it away.
  void remoteMemoryIs(bool known);
  Kel::Ptr<Morvik::Region const> remoteRegion(U64 paddr, U32 size) const;

  const Kel::Ptr<Morvik::Audit>& audit() const { return audit_; }
  Kel::Name auditName(std::size_t i) const { return Kel::Name(feature(i).name + "Audit"); }
  Kel::Ptr<Morvik::AuditRequest> auditRequest(std::size_t i) const {
    return options_.audit ? requests_.at(i) : nullptr;
  }
  const Kel::Ptr<Morvik::AuditStatus>& auditStatus(std::size_t i) const { return statuses_.at(i); }

  void buildMachines();
  Kel::Ptr<MorvikLib::MorvikMemorySm> newMachine(std::size_t i,
                                                 const Kel::Ptr<MorvikLib::MorvikMemory>& memory);
  const Kel::Ptr<MorvikLib::MorvikMemory>& memory(std::size_t i) const { return memories_.at(i); }
  const Kel::Ptr<MorvikLib::MorvikMemorySm>& sm(std::size_t i) const { return machines_.at(i); }

  // Through read-only mappings of the chassis's own.
  const U8* remoteBytes() { return view("MorvikRemote", remoteView_); }
  const U8* localBytes() { return view("MorvikLocal", localView_); }
  bool copiesEqual() { return std::equal(localBytes(), localBytes() + total_, remoteBytes()); }

  static std::size_t runUntilRest() { return Kel::activityManager()->runUntilRest(); }
  static void runUntil(double time) { KelTest::runUntil(time); }
  // Both last until the chassis goes; a null value unsets the variable.
  void envIs(const char* name, const char* value);
  void traceLevelsIs(std::initializer_list<int> levels);
  static std::vector<U8> pattern(std::size_t size, U8 seed);
  // A start time past every rate-limit window the library's log handle has opened so far.
  static double logEpoch();

 private:
  void publishRecords();
  const U8* view(const char* region, U64& view);

  Options options_;
  std::int64_t liveAtStart_ = 0;
  std::string vmid_;
  std::vector<U64> offsets_;
  U32 total_ = 0;
  U64 remotePaddr_ = 0;
  bool wasVirtual_ = false;
  std::optional<U32> savedLevels_;
  Kel::Ptr<Morvik::Status> status_;
  Kel::Ptr<Morvik::Manifest> manifest_;
  Kel::Ptr<Morvik::Audit> audit_;
  Kel::Ptr<Kel::Dir> auditRequests_;
  std::vector<Kel::Ptr<Morvik::AuditRequest>> requests_;
  std::vector<Kel::Ptr<Morvik::AuditStatus>> statuses_;
  std::vector<Kel::Ptr<MorvikLib::MorvikMemory>> memories_;
  std::vector<Kel::Ptr<MorvikLib::MorvikMemorySm>> machines_;
  U64 remoteView_ = 0;
  U64 localView_ = 0;
  std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv_;
};

}  // namespace MorvikTest

#endif
