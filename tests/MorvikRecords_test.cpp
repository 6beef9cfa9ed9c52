#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Morvik/ActiveSupeType.h"
#include "Morvik/Audit.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/DmaAddress.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"
#include "Morvik/PhysicalAddress.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"

namespace {

using Log = std::vector<std::string>;

// Every handler of a record's notifiee writes its own name (and key) into one log.
template <class N>
class Recorder : public N {
 public:
  Log log;

 protected:
  void record(const std::string& text) { log.push_back(text); }
};

#define RECORD(handler)     \
  void handler() override { \
    record(#handler);       \
  }

class RegionRecorder : public Recorder<Morvik::Region::NotifieeConst> {
  RECORD(onAddr)
  RECORD(onSize)
  RECORD(onVersion)
  RECORD(onMapFile)
};

class FeatureManifestRecorder : public Recorder<Morvik::FeatureManifest::NotifieeConst> {
  RECORD(onSize)
  RECORD(onByteOffset)
};

class ManifestRecorder : public Recorder<Morvik::Manifest::NotifieeConst> {
 public:
  // Run inside onManifest(name), after the record; lets a test act from a handler.
  std::function<void(const Kel::Name&)> reaction;

 private:
  void onManifest(const Kel::Name& name) override {
    record("onManifest(" + name.string().stdString() + ")");
    if (reaction) reaction(name);
  }
  RECORD(onManifestkelImmediate)
  RECORD(onManifest)
  RECORD(onFixedSystem)
  RECORD(onLocalMemory)
  RECORD(onPlatform)
};

class StatusRecorder : public Recorder<Morvik::Status::NotifieeConst> {
  void onPciAddress(const Kel::String& card) override {
    record("onPciAddress(" + card.stdString() + ")");
  }
  RECORD(onPciAddresskelImmediate)
  RECORD(onPciAddress)
  RECORD(onRemoteMemory)
  RECORD(onLocalMemoryVersion)
  RECORD(onMorvikMemReqId)
  RECORD(onPeerMemory)
  RECORD(onFeatureAuditTrigger)
  RECORD(onActiveSupe)
};

class AuditRequestRecorder : public Recorder<Morvik::AuditRequest::NotifieeConst> {
  RECORD(onActiveChecksum)
  RECORD(onActiveChecksumTwosComp)
  RECORD(onRemoteMemoryVersion)
  RECORD(onRequestId)
  RECORD(onAuditTrigger)
  RECORD(onAuditErrorsFixed)
  RECORD(onAuditMapEnabled)
  void onAuditMap(const U64& key) override { record("onAuditMap(" + std::to_string(key) + ")"); }
  RECORD(onAuditMapkelImmediate)
  RECORD(onAuditMap)
};

class AuditStatusRecorder : public Recorder<Morvik::AuditStatus::NotifieeConst> {
  RECORD(onStandbyChecksum)
  RECORD(onChecksumResult)
  RECORD(onResultId)
  RECORD(onResyncTrigger)
};

class AuditRecorder : public Recorder<Morvik::Audit::NotifieeConst> {
  void onAuditStatus(const Kel::Name& name) override {
    record("onAuditStatus(" + name.string().stdString() + ")");
  }
  RECORD(onAuditStatuskelImmediate)
  RECORD(onAuditStatus)
};

#undef RECORD

template <class Rec, class R>
Kel::Ptr<Rec> watch(const Kel::Ptr<R>& record) {
  Kel::Ptr<Rec> recorder = Kel::allocate<Rec>();
  recorder->notifierIs(record);
  recorder->isRegisteredNotifieeIs(true);
  return recorder;
}

// One scalar attribute: `set(r, false)` stores the record's initial value, `set(r, true)` another.
template <class R>
struct ScalarCase {
  const char* handler;
  std::function<void(R&, bool)> set;
  std::function<bool(const R&)> holdsOther;
};

// The setter rule: an equal value is dropped without a visit; a change is stored and heard once.
template <class R, class Rec>
void expectSetterRule(const std::vector<ScalarCase<R>>& cases) {
  for (const ScalarCase<R>& c : cases) {
    SCOPED_TRACE(c.handler);
    Kel::Ptr<R> record = Kel::allocate<R>("r");
    Kel::Ptr<Rec> recorder = watch<Rec>(record);
    c.set(*record, false);
    EXPECT_TRUE(recorder->log.empty());
    c.set(*record, true);
    EXPECT_TRUE(c.holdsOther(*record));
    EXPECT_EQ(recorder->log, Log{c.handler});
    c.set(*record, true);
    EXPECT_EQ(recorder->log.size(), 1u);
    c.set(*record, false);
    EXPECT_FALSE(c.holdsOther(*record));
    EXPECT_EQ(recorder->log, (Log{c.handler, c.handler}));
    // Unwatched, the value is still stored.
    recorder->isRegisteredNotifieeIs(false);
    c.set(*record, true);
    EXPECT_TRUE(c.holdsOther(*record));
    EXPECT_EQ(recorder->log.size(), 2u);
  }
}

TEST(MorvikRecords, RegionSetters) {
  using R = Morvik::Region;
  expectSetterRule<R, RegionRecorder>({
      {"onAddr", [](R& r, bool o) { r.addrIs(o ? 0x1'0000'0000ull : 0); },
       [](const R& r) { return r.addr() == 0x1'0000'0000ull; }},
      {"onSize", [](R& r, bool o) { r.sizeIs(o ? 0xFFFFFFFFu : 0); },
       [](const R& r) { return r.size() == 0xFFFFFFFFu; }},
      {"onVersion", [](R& r, bool o) { r.versionIs(o ? 3 : 0); },
       [](const R& r) { return r.version() == 3; }},
      {"onMapFile", [](R& r, bool o) { r.mapFileIs(o ? "/dev/mem" : ""); },
       [](const R& r) { return r.mapFile() == Kel::String("/dev/mem"); }},
  });
}

TEST(MorvikRecords, RegionEqualTextInAnotherPayloadIsNoChange) {
  Kel::Ptr<Morvik::Region> region =
      Kel::allocate<Morvik::Region>("r", 0x2000, 64, 1, Kel::String("/dev/mem"));
  Kel::Ptr<RegionRecorder> recorder = watch<RegionRecorder>(region);
  Kel::String same(std::string("/dev/") + "mem");
  region->mapFileIs(same);
  EXPECT_TRUE(recorder->log.empty());
  EXPECT_EQ(region->addr(), 0x2000u);
  EXPECT_EQ(region->size(), 64u);
  EXPECT_EQ(region->version(), 1u);
}

TEST(MorvikRecords, FeatureManifestSetters) {
  using R = Morvik::FeatureManifest;
  expectSetterRule<R, FeatureManifestRecorder>({
      {"onSize", [](R& r, bool o) { r.sizeIs(o ? 0x1'0000'0001ull : 0); },
       [](const R& r) { return r.size() == 0x1'0000'0001ull; }},
      {"onByteOffset", [](R& r, bool o) { r.byteOffsetIs(o ? 4096 : 0); },
       [](const R& r) { return r.byteOffset() == 4096; }},
  });
}

TEST(MorvikRecords, ManifestScalarSetters) {
  using R = Morvik::Manifest;
  Kel::Ptr<Morvik::Region const> region = Kel::allocate<Morvik::Region>("local", 0x1000, 16);
  expectSetterRule<R, ManifestRecorder>({
      {"onFixedSystem", [](R& r, bool o) { r.fixedSystemIs(o ? 1 : 0); },
       [](const R& r) { return r.fixedSystem() == 1; }},
      {"onLocalMemory", [region](R& r, bool o) { r.localMemoryIs(o ? region : nullptr); },
       [region](const R& r) { return r.localMemory() == region; }},
      {"onPlatform", [](R& r, bool o) { r.platformIs(o ? 7 : 0); },
       [](const R& r) { return r.platform() == 7; }},
  });
}

TEST(MorvikRecords, RegionPointerChangeIsByIdentity) {
  // A second record with the same fields is another range as far as watchers care.
  Kel::Ptr<Morvik::Manifest> manifest = Kel::allocate<Morvik::Manifest>("m");
  Kel::Ptr<ManifestRecorder> recorder = watch<ManifestRecorder>(manifest);
  Kel::Ptr<Morvik::Region const> first = Kel::allocate<Morvik::Region>("local", 0x1000, 16);
  Kel::Ptr<Morvik::Region const> twin = Kel::allocate<Morvik::Region>("local", 0x1000, 16);
  manifest->localMemoryIs(first);
  manifest->localMemoryIs(first);
  manifest->localMemoryIs(twin);
  EXPECT_EQ(recorder->log, (Log{"onLocalMemory", "onLocalMemory"}));
}

TEST(MorvikRecords, StatusScalarSetters) {
  using R = Morvik::Status;
  Kel::Ptr<Morvik::Region const> region = Kel::allocate<Morvik::Region>("remote", 0x8000, 16);
  expectSetterRule<R, StatusRecorder>({
      {"onRemoteMemory", [region](R& r, bool o) { r.remoteMemoryIs(o ? region : nullptr); },
       [region](const R& r) { return r.remoteMemory() == region; }},
      {"onLocalMemoryVersion", [](R& r, bool o) { r.localMemoryVersionIs(o ? 2 : 0); },
       [](const R& r) { return r.localMemoryVersion() == 2; }},
      {"onMorvikMemReqId", [](R& r, bool o) { r.morvikMemReqIdIs(o ? 9 : 0); },
       [](const R& r) { return r.morvikMemReqId() == 9; }},
      {"onPeerMemory", [](R& r, bool o) { r.peerMemoryIs(o ? 0x8000'0000'0000'0000ull : 0); },
       [](const R& r) { return r.peerMemory() == 0x8000'0000'0000'0000ull; }},
      {"onFeatureAuditTrigger", [](R& r, bool o) { r.featureAuditTriggerIs(o ? 1 : 0); },
       [](const R& r) { return r.featureAuditTrigger() == 1; }},
      {"onActiveSupe",
       [](R& r, bool o) { r.activeSupeIs(o ? Morvik::activeSupeStandby : Morvik::activeSupeNone); },
       [](const R& r) { return r.activeSupe() == Morvik::activeSupeStandby; }},
  });
}

TEST(MorvikRecords, AuditRequestScalarSetters) {
  using R = Morvik::AuditRequest;
  expectSetterRule<R, AuditRequestRecorder>({
      {"onActiveChecksum", [](R& r, bool o) { r.activeChecksumIs(o ? ~0ull : 0); },
       [](const R& r) { return r.activeChecksum() == ~0ull; }},
      {"onActiveChecksumTwosComp", [](R& r, bool o) { r.activeChecksumTwosCompIs(o ? 1 : 0); },
       [](const R& r) { return r.activeChecksumTwosComp() == 1; }},
      {"onRemoteMemoryVersion", [](R& r, bool o) { r.remoteMemoryVersionIs(o ? 4 : 0); },
       [](const R& r) { return r.remoteMemoryVersion() == 4; }},
      {"onRequestId", [](R& r, bool o) { r.requestIdIs(o ? 5 : 0); },
       [](const R& r) { return r.requestId() == 5; }},
      {"onAuditTrigger", [](R& r, bool o) { r.auditTriggerIs(o ? 6 : 0); },
       [](const R& r) { return r.auditTrigger() == 6; }},
      {"onAuditErrorsFixed", [](R& r, bool o) { r.auditErrorsFixedIs(o ? 7 : 0); },
       [](const R& r) { return r.auditErrorsFixed() == 7; }},
      {"onAuditMapEnabled", [](R& r, bool o) { r.auditMapEnabledIs(o); },
       [](const R& r) { return r.auditMapEnabled(); }},
  });
}

TEST(MorvikRecords, AuditStatusScalarSetters) {
  using R = Morvik::AuditStatus;
  expectSetterRule<R, AuditStatusRecorder>({
      {"onStandbyChecksum", [](R& r, bool o) { r.standbyChecksumIs(o ? 1ull << 63 : 0); },
       [](const R& r) { return r.standbyChecksum() == 1ull << 63; }},
      {"onChecksumResult", [](R& r, bool o) { r.checksumResultIs(o ? 1 : 0); },
       [](const R& r) { return r.checksumResult() == 1; }},
      {"onResultId", [](R& r, bool o) { r.resultIdIs(o ? 3 : 0); },
       [](const R& r) { return r.resultId() == 3; }},
      {"onResyncTrigger", [](R& r, bool o) { r.resyncTriggerIs(o ? 8 : 0); },
       [](const R& r) { return r.resyncTrigger() == 8; }},
  });
}

// One counter of any record: its setter, its increment and its reader.
struct CounterCase {
  const char* handler;
  std::function<void(U32)> set;
  std::function<U32(U32)> inc;
  std::function<U32()> get;
  std::function<const Log&()> log;
};

TEST(MorvikRecords, CountersAddNotifyOnChangeAndWrap) {
  Kel::Ptr<Morvik::AuditRequest> request = Kel::allocate<Morvik::AuditRequest>("q");
  Kel::Ptr<Morvik::AuditStatus> status = Kel::allocate<Morvik::AuditStatus>("s");
  Kel::Ptr<Morvik::Status> supe = Kel::allocate<Morvik::Status>("st");
  auto requestLog = watch<AuditRequestRecorder>(request);
  auto statusLog = watch<AuditStatusRecorder>(status);
  auto supeLog = watch<StatusRecorder>(supe);
  auto q = request.ptr();
  std::vector<CounterCase> cases = {
      {"onRequestId", [q](U32 v) { q->requestIdIs(v); }, [q](U32 d) { return q->requestIdInc(d); },
       [q] { return q->requestId(); }, [&]() -> const Log& { return requestLog->log; }},
      {"onAuditTrigger", [q](U32 v) { q->auditTriggerIs(v); },
       [q](U32 d) { return q->auditTriggerInc(d); }, [q] { return q->auditTrigger(); },
       [&]() -> const Log& { return requestLog->log; }},
      {"onAuditErrorsFixed", [q](U32 v) { q->auditErrorsFixedIs(v); },
       [q](U32 d) { return q->auditErrorsFixedInc(d); }, [q] { return q->auditErrorsFixed(); },
       [&]() -> const Log& { return requestLog->log; }},
      {"onResyncTrigger", [&](U32 v) { status->resyncTriggerIs(v); },
       [&](U32 d) { return status->resyncTriggerInc(d); }, [&] { return status->resyncTrigger(); },
       [&]() -> const Log& { return statusLog->log; }},
      {"onFeatureAuditTrigger", [&](U32 v) { supe->featureAuditTriggerIs(v); },
       [&](U32 d) { return supe->featureAuditTriggerInc(d); },
       [&] { return supe->featureAuditTrigger(); }, [&]() -> const Log& { return supeLog->log; }},
  };
  for (const CounterCase& c : cases) {
    SCOPED_TRACE(c.handler);
    std::size_t before = c.log().size();
    EXPECT_EQ(c.inc(0), 0u);
    EXPECT_EQ(c.log().size(), before);
    EXPECT_EQ(c.inc(1), 1u);
    EXPECT_EQ(c.inc(1), 2u);
    EXPECT_EQ(c.log().size(), before + 2);
    EXPECT_EQ(c.log().back(), c.handler);
    c.set(0xFFFFFFFEu);
    EXPECT_EQ(c.inc(3), 1u);
    EXPECT_EQ(c.get(), 1u);
    before = c.log().size();
    c.inc(0);
    EXPECT_EQ(c.log().size(), before);
  }
}

Kel::Ptr<Morvik::FeatureManifest> feature(const char* name, U64 size, U64 offset) {
  return Kel::allocate<Morvik::FeatureManifest>(name, size, offset);
}

std::vector<std::string> names(const Morvik::Manifest& manifest) {
  std::vector<std::string> result;
  for (const auto& member : manifest.manifest()) {
    result.push_back(member.first.string().stdString());
    EXPECT_EQ(member.second->name(), member.first);
  }
  return result;
}

TEST(MorvikRecords, ManifestKeepsFeaturesInNameOrder) {
  Kel::Ptr<Morvik::Manifest> manifest = Kel::allocate<Morvik::Manifest>("m");
  Kel::Ptr<ManifestRecorder> recorder = watch<ManifestRecorder>(manifest);
  manifest->manifestIs("rib", feature("rib", 64, 0));
  manifest->manifestIs("Bgp", feature("Bgp", 32, 64));
  manifest->manifestIs("arp", feature("arp", 16, 96));
  EXPECT_EQ(names(*manifest), (std::vector<std::string>{"Bgp", "arp", "rib"}));
  EXPECT_EQ(recorder->log, (Log{"onManifest(rib)", "onManifest(Bgp)", "onManifest(arp)"}));
  EXPECT_EQ(manifest->manifest("arp")->byteOffset(), 96u);
  EXPECT_FALSE(manifest->manifest("ospf"));
  EXPECT_FALSE(manifest->manifest()["ospf"]);
  // A missed lookup leaves no empty member behind.
  EXPECT_EQ(manifest->manifest().size(), 3u);
}

TEST(MorvikRecords, ManifestReplaceAndDelete) {
  Kel::Ptr<Morvik::Manifest> manifest = Kel::allocate<Morvik::Manifest>("m");
  Kel::Ptr<ManifestRecorder> recorder = watch<ManifestRecorder>(manifest);
  Kel::Ptr<Morvik::FeatureManifest> rib = feature("rib", 64, 0);
  manifest->manifestIs("rib", rib);
  manifest->manifestIs("rib", rib);
  Kel::Ptr<Morvik::FeatureManifest> twin = feature("rib", 64, 0);
  manifest->manifestIs("rib", twin);
  EXPECT_EQ(manifest->manifest("rib"), twin);
  manifest->manifestDel("absent");
  manifest->manifestIs("rib", nullptr);
  manifest->manifestIs("rib", nullptr);
  EXPECT_TRUE(manifest->manifest().empty());
  EXPECT_EQ(recorder->log, (Log{"onManifest(rib)", "onManifest(rib)", "onManifest(rib)"}));
}

TEST(MorvikRecords, ManifestDelAllTellsEachMemberOnceEvenWhenAHandlerDeletes) {
  Kel::Ptr<Morvik::Manifest> manifest = Kel::allocate<Morvik::Manifest>("m");
  for (const char* name : {"a", "b", "c", "d"}) manifest->manifestIs(name, feature(name, 1, 0));
  Kel::Ptr<ManifestRecorder> recorder = watch<ManifestRecorder>(manifest);
  Morvik::Manifest* raw = manifest.ptr();
  recorder->reaction = [raw](const Kel::Name& name) {
    if (name == Kel::Name("a")) raw->manifestDel("c");
  };
  manifest->manifestDelAll();
  EXPECT_TRUE(manifest->manifest().empty());
  EXPECT_EQ(recorder->log,
            (Log{"onManifest(a)", "onManifest(c)", "onManifest(b)", "onManifest(d)"}));
  manifest->manifestDelAll();
  EXPECT_EQ(recorder->log.size(), 4u);
}

TEST(MorvikRecords, StatusPciAddressByCard) {
  Kel::Ptr<Morvik::Status> status = Kel::allocate<Morvik::Status>("s");
  Kel::Ptr<StatusRecorder> recorder = watch<StatusRecorder>(status);
  status->pciAddressIs("sup2", "0000:03:00.0");
  status->pciAddressIs("sup1", "0000:02:00.0");
  status->pciAddressIs("sup1", Kel::String(std::string("0000:02:") + "00.0"));
  status->pciAddressIs("sup1", "0000:04:00.0");
  EXPECT_EQ(status->pciAddress("sup1"), Kel::String("0000:04:00.0"));
  EXPECT_TRUE(status->pciAddress("sup3").empty());
  EXPECT_EQ(status->pciAddress().begin()->first, Kel::String("sup1"));
  status->pciAddressDel("sup3");
  status->pciAddressDelAll();
  EXPECT_EQ(recorder->log, (Log{"onPciAddress(sup2)", "onPciAddress(sup1)", "onPciAddress(sup1)",
                                "onPciAddress(sup1)", "onPciAddress(sup2)"}));
}

TEST(MorvikRecords, AuditMapIteratesInAscendingOffsetOrder) {
  Kel::Ptr<Morvik::AuditRequest> request = Kel::allocate<Morvik::AuditRequest>("q");
  Kel::Ptr<AuditRequestRecorder> recorder = watch<AuditRequestRecorder>(request);
  // Offsets that differ only above bit 31 must still sort by the full value.
  const std::vector<std::pair<U64, U64>> ranges = {
      {0x1'0000'0000ull, 8}, {0x100, 16}, {0xFFFFFFFFull, 4}, {0x40, 0x1'0000'0008ull}};
  for (const auto& [offset, length] : ranges) request->auditMapIs(offset, length);
  request->auditMapIs(0x100, 16);
  std::vector<U64> order;
  for (const auto& member : request->auditMap()) order.push_back(member.first);
  EXPECT_EQ(order, (std::vector<U64>{0x40, 0x100, 0xFFFFFFFFull, 0x1'0000'0000ull}));
  EXPECT_EQ(request->auditMap(0x40), 0x1'0000'0008ull);
  EXPECT_EQ(request->auditMap(0x41), 0u);
  EXPECT_EQ(recorder->log.size(), 4u);

  recorder->log.clear();
  request->auditMapIs(0x100, 32);
  request->auditMapDel(0x41);
  request->auditMapDelAll();
  EXPECT_TRUE(request->auditMap().empty());
  EXPECT_EQ(recorder->log, (Log{"onAuditMap(256)", "onAuditMap(64)", "onAuditMap(256)",
                                "onAuditMap(4294967295)", "onAuditMap(4294967296)"}));
}

TEST(MorvikRecords, AuditHearsEntriesComeAndGoButNotTheirFields) {
  Kel::Ptr<Morvik::Audit> audit = Kel::allocate<Morvik::Audit>("audit");
  Kel::Ptr<AuditRecorder> recorder = watch<AuditRecorder>(audit);
  Kel::Ptr<Morvik::AuditStatus> first = Kel::allocate<Morvik::AuditStatus>("rib");
  Kel::Ptr<Morvik::AuditStatus> second = Kel::allocate<Morvik::AuditStatus>("rib");
  EXPECT_FALSE(audit->auditStatus("rib"));

  audit->auditStatusIs("rib", first);
  first->resultIdIs(4);
  first->resyncTriggerInc(1);
  audit->auditStatusIs("rib", first);
  EXPECT_EQ(recorder->log, Log{"onAuditStatus(rib)"});
  EXPECT_EQ(audit->auditStatus("rib")->resultId(), 4u);

  audit->auditStatusIs("rib", second);
  EXPECT_EQ(audit->auditStatus("rib"), second);
  audit->auditStatusDel("arp");
  audit->auditStatusIs("rib", nullptr);
  EXPECT_FALSE(audit->auditStatus("rib"));
  EXPECT_EQ(recorder->log.size(), 3u);

  audit->auditStatusIs("b", first);
  audit->auditStatusIs("a", second);
  recorder->log.clear();
  audit->auditStatusDelAll();
  EXPECT_EQ(recorder->log, (Log{"onAuditStatus(a)", "onAuditStatus(b)"}));
}

template <class T>
std::string text(const T& value) {
  std::ostringstream out;
  out << value << ' ' << 10;
  return out.str();
}

TEST(MorvikRecords, TraceFormsOfAddressesAndRole) {
  EXPECT_EQ(text(Morvik::PhysicalAddress(0)), "0x0 10");
  EXPECT_EQ(text(Morvik::PhysicalAddress(0xFEDC'BA98'7654'3210ull)), "0xfedcba9876543210 10");
  EXPECT_EQ(text(Morvik::DmaAddress(0xABCD0000u)), "0xabcd0000 10");
  EXPECT_EQ(text(Morvik::activeSupeStandby), "2 10");
  EXPECT_EQ(text(static_cast<Morvik::ActiveSupeType>(7)), "7 10");
  // Offsets add to an address like to any number.
  Morvik::PhysicalAddress base(0x1000);
  EXPECT_EQ(text(Morvik::PhysicalAddress(base + 0x20)), "0x1020 10");
}

}  // namespace
