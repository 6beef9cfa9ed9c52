#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>

#include "Kel/Allocate.h"
#include "Morvik/ActiveSupeType.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"
#include "Morvik/PhysicalAddress.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"

namespace {

std::string journal;  // every recorder writes "handler " or "handler(key) " here

// Every handler of a record's notifiee writes its name (and key) into one log.
template <class N>
class Recorder : public N {
 public:
  std::function<void(const std::string&)> reaction;  // runs inside a keyed handler

 protected:
  void record(const std::string& text) { journal += text + " "; }
  template <class K>
  void recordKey(const char* handler, const K& key) {
    std::ostringstream text;
    text << handler << "(" << key << ")";
    record(text.str());
    if (reaction) reaction(text.str());
  }
};

// clang-format off
#define RECORD(handler) void handler() override { record(#handler); }
struct RegionRecorder : Recorder<Morvik::Region::NotifieeConst> {
  RECORD(onAddr) RECORD(onSize) RECORD(onVersion) RECORD(onMapFile)
};
struct ManifestRecorder : Recorder<Morvik::Manifest::NotifieeConst> {
  void onManifest(const Kel::Name& name) override { recordKey("onManifest", name); }
  RECORD(onFixedSystem) RECORD(onLocalMemory) RECORD(onPlatform)
};
struct StatusRecorder : Recorder<Morvik::Status::NotifieeConst> {
  RECORD(onRemoteMemory)
  RECORD(onLocalMemoryVersion) RECORD(onMorvikMemReqId) RECORD(onPeerMemory)
  RECORD(onFeatureAuditTrigger) RECORD(onActiveSupe)
};
struct AuditRequestRecorder : Recorder<Morvik::AuditRequest::NotifieeConst> {
  RECORD(onActiveChecksum) RECORD(onActiveChecksumTwosComp) RECORD(onRemoteMemoryVersion)
  RECORD(onRequestId) RECORD(onAuditTrigger) RECORD(onAuditErrorsFixed) RECORD(onAuditMapEnabled)
  void onAuditMap(const U64& key) override { recordKey("onAuditMap", key); }
};
struct AuditStatusRecorder : Recorder<Morvik::AuditStatus::NotifieeConst> {
  RECORD(onStandbyChecksum) RECORD(onChecksumResult) RECORD(onResultId) RECORD(onResyncTrigger)
};
#undef RECORD
// clang-format on

template <class Rec, class R>
Kel::Ptr<Rec> watch(const Kel::Ptr<R>& record) {
  journal.clear();
  Kel::Ptr<Rec> recorder = Kel::allocate<Rec>();
  recorder->notifierIs(record);
  recorder->isRegisteredNotifieeIs(true);
  return recorder;
}

// Each setter is called twice with a new value: only the first call is heard, by its own handler.
// Each counter adds, is heard only when its value changes, and wraps.
TEST(MorvikRecords, SettersAndCountersNotifyTheirOwnHandlerOnlyOnAChange) {
  auto region = Kel::allocate<Morvik::Region>("r", 0, 0, 0, Kel::String("/dev/mem"));
  auto manifest = Kel::allocate<Morvik::Manifest>("m");
  auto status = Kel::allocate<Morvik::Status>("s");
  auto request = Kel::allocate<Morvik::AuditRequest>("q");
  auto result = Kel::allocate<Morvik::AuditStatus>("a");
  auto recorders =
      std::make_tuple(watch<RegionRecorder>(region), watch<ManifestRecorder>(manifest),
                      watch<StatusRecorder>(status), watch<AuditRequestRecorder>(request),
                      watch<AuditStatusRecorder>(result));
  for (int i = 0; i < 2; ++i) {
    region->mapFileIs(Kel::String(std::string("/dev/") + "shm"));  // a new payload each time
    manifest->localMemoryIs(region);
    status->remoteMemoryIs(region);
    status->peerMemoryIs(1ull << 63);
    status->activeSupeIs(Morvik::activeSupeStandby);
    request->activeChecksumIs(~0ull);
    request->auditMapEnabledIs(true);
    result->checksumResultIs(1);
    result->resultIdIs(3);
  }
  // A region pointer changes by identity: a twin with the same fields is another range.
  manifest->localMemoryIs(Kel::allocate<Morvik::Region>("r", 0, 0));
  EXPECT_EQ(journal,
            "onMapFile onLocalMemory onRemoteMemory onPeerMemory onActiveSupe onActiveChecksum "
            "onAuditMapEnabled onChecksumResult onResultId onLocalMemory ");
  const std::function<U32(U32)> incs[] = {[&](U32 d) { return request->requestIdInc(d); },
                                          [&](U32 d) { return request->auditTriggerInc(d); },
                                          [&](U32 d) { return request->auditErrorsFixedInc(d); },
                                          [&](U32 d) { return result->resyncTriggerInc(d); }};
  for (const auto& inc : incs) {
    journal.clear();
    const U32 start = inc(0);
    EXPECT_EQ(inc(1), start + 1);
    EXPECT_EQ(inc(0xFFFFFFFFu - start - 1), 0xFFFFFFFFu);
    EXPECT_EQ(inc(3), 2u);
    EXPECT_EQ(std::count(journal.begin(), journal.end(), ' '), 3);
  }
  EXPECT_EQ(journal, "onResyncTrigger onResyncTrigger onResyncTrigger ");
}

TEST(MorvikRecords, KeyedCollectionsKeepKeyOrderAndNotifyPerMember) {
  auto manifest = Kel::allocate<Morvik::Manifest>("m");
  auto manifestLog = watch<ManifestRecorder>(manifest);
  auto rib = Kel::allocate<Morvik::FeatureManifest>("rib", 64, 0);
  for (const char* name : {"rib", "Bgp", "arp", "rib"}) {
    manifest->manifestIs(name, Kel::allocate<Morvik::FeatureManifest>(name, 16, 96));
  }
  manifest->manifestIs("rib", rib);
  manifest->manifestIs("rib", rib);
  EXPECT_EQ(manifest->manifest().begin()->first, Kel::Name("Bgp"));
  EXPECT_FALSE(manifest->manifest("ospf"));
  EXPECT_EQ(manifest->manifest().size(), 3u) << "a missed lookup leaves no empty member behind";
  manifestLog->reaction = [&](const std::string& what) {
    if (what == "onManifest(Bgp)") manifest->manifestDel("rib");
  };
  manifest->manifestDel("absent");
  for (const char* name : {"Bgp", "rib"}) manifest->manifestDel(name);
  manifest->manifestIs("arp", nullptr);
  EXPECT_TRUE(manifest->manifest().empty());
  EXPECT_EQ(journal,
            "onManifest(rib) onManifest(Bgp) onManifest(arp) onManifest(rib) onManifest(rib) "
            "onManifest(Bgp) onManifest(rib) onManifest(arp) ");

  // Offsets that differ only above bit 31 must still sort by the full value.
  auto request = Kel::allocate<Morvik::AuditRequest>("q");
  auto recorder = watch<AuditRequestRecorder>(request);
  for (U64 offset : {0x1'0000'0000ull, 0x100ull, 0xFFFFFFFFull, 0x40ull, 0x100ull}) {
    request->auditMapIs(offset, 0x1'0000'0008ull);
  }
  EXPECT_EQ(request->auditMap().at(0x40), 0x1'0000'0008ull);
  journal.clear();
  request->auditMapDel(0x41);  // no such member: nothing to tell
  request->auditMapDelAll();
  EXPECT_EQ(journal,
            "onAuditMap(64) onAuditMap(256) onAuditMap(4294967295) onAuditMap(4294967296) ");
}

TEST(MorvikRecords, TraceFormsOfAddressesAndRole) {
  std::ostringstream out;
  out << Morvik::PhysicalAddress(0) << ' ' << Morvik::PhysicalAddress(0xFEDC'BA98'7654'3210ull)
      << ' ' << Morvik::DmaAddress(0xABCD0000u) << ' ' << Morvik::activeSupeStandby << ' '
      << static_cast<Morvik::ActiveSupeType>(7) << ' ' << 10;
  EXPECT_EQ(out.str(), "0x0 0xfedcba9876543210 0xabcd0000 2 7 10");
}

}  // namespace
