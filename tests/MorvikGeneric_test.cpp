// The library's four types in the generic interface: names, orders, types, constructor
// arguments, sets through setters, the keyed attribute, refusals and the watcher. MemoryMapping's
// value operations there are exercised from a script (python/tests/test_scripting.py).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericType.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/TypeNames.h"
#include "MorvikLib/generic/GenericRegistration.h"
#include "support/KelLeakCheck.h"
#include "support/Refusals.h"

namespace {

namespace GenericIf = Kel::GenericIf;
using Kel::GenericValue;
using MorvikLib::MorvikMemory;

constexpr const char* kMem = "MorvikLib::MorvikMemory";
constexpr const char* kMap = "MorvikLib::MemoryMapping";

// "name:type:kind" for every attribute, in declared order; a function adds "(args)".
std::vector<std::string> described(const char* typeName) {
  static const char* const kKinds[] = {"r", "s", "k", "f"};
  std::vector<std::string> out;
  for (const auto& a : GenericIf::type(typeName).attributes()) {
    std::string d = a.name + ":" + a.type + ":" + kKinds[static_cast<int>(a.kind)];
    if (a.kind == Kel::GenericAttribute::Kind::function) {
      d += "(" + Kel::GenericAttribute::argList(a.args) + ")";
    }
    if (a.kind == Kel::GenericAttribute::Kind::keyed) d += "[" + a.keyType + "]";
    out.push_back(d);
  }
  return out;
}

std::vector<std::string> names(const char* typeName) {
  std::vector<std::string> out;
  for (const auto& a : GenericIf::type(typeName).attributes()) out.push_back(a.name);
  return out;
}

GenericValue u64(U64 v) {
  return GenericValue::ofUnsigned("U64", v);
}

GenericValue text(const char* v) {
  return GenericValue::of(Kel::String(v));
}

class MorvikGenericTest : public KelTest::LeakCheckedTest {
 public:
  // The library sets up its trace handle on first use; that one-time state is not a leak.
  static void SetUpTestSuite() { MorvikLib::morvikMemoryFactory(Kel::Name("warmUp")); }
};

TEST_F(MorvikGenericTest, TypesAreRegisteredInLoadOrderWithTheirAttributesInDeclaredOrder) {
  std::vector<std::string> ours;
  for (const std::string& n : Kel::typeNames()) {
    if (n.rfind("MorvikLib::", 0) == 0) ours.push_back(n);
  }
  EXPECT_EQ(ours, (std::vector<std::string>{kMap, "MorvikLib::MorvikAuditSm", kMem,
                                            "MorvikLib::MorvikMemorySm"}));
  std::vector<std::string> section(std::begin(MorvikLib::kTypeNames),
                                   std::end(MorvikLib::kTypeNames));
  EXPECT_EQ(section, (std::vector<std::string>{"MorvikLib::MorvikMemorySm", kMem,
                                               "MorvikLib::MorvikAuditSm", kMap}));
  EXPECT_EQ(described(kMap),
            (std::vector<std::string>{"name:Kel::Name:r", "vaddr:U64:r", "size:U32:r",
                                      "paddr:U64:r", "version:U64:r"}));
  EXPECT_EQ(Kel::GenericAttribute::argList(GenericIf::type(kMap).constructorArgs()),
            "Kel::Name name, U64 vaddr, U32 size, U64 paddr, U64 version");
  const std::string buf = "(U32 addr, Kel::BytePtr data, U32 size)";
  const std::string py = "(U32 addr, U64 data, U32 size)";
  const std::string mm = "MorvikLib::MemoryMapping";
  const std::vector<std::string> expected = {
      "name:Kel::Name:r",
      "fullName:Kel::String:r",
      "parent:Kel::Entity:r",
      "parentAttrName:Kel::Name:r",
      "entity:MorvikLib::MorvikMemory:r",
      "activeSupe:bool:s",
      "localMemory:" + mm + ":s",
      "localMemoryWritableShadow:" + mm + ":s",
      "setLocal:void:f(" + mm + " map, " + mm + " shadow)",
      "unsetLocal:void:f()",
      "remoteMemory:" + mm + ":s",
      "remoteMemoryWritableShadow:" + mm + ":s",
      "setRemote:void:f(" + mm + " map, " + mm + " shadow)",
      "unsetRemote:void:f()",
      "localMemorySimPaddr:U64:s",
      "replicationStatusBitmap:U8:k[U64]",
      "replicationStatusIs:void:f(U64 offset, bool state)",
      "replicationStatus:bool:f(U64 offset)",
      "localMemoryReady:bool:s",
      "remoteMemoryReady:bool:s",
      "remoteMemoryVersion:U32:s",
      "remoteMemoryChangedGenId:U64:s",
      "doRead:void:f" + buf,
      "doRead_py:void:f" + py,
      "doWrite:void:f" + buf,
      "doWrite_py:void:f" + py,
      "doSet:void:f(U32 offset, U32 value, U32 size)",
      "doCopy:void:f(U32 dstOffset, U32 srcOffset, U32 size)",
      "doSync:void:f()",
      "ignoreChecksum:bool:s",
      "doReadRemoteTest:void:f" + buf,
      "doReadRemoteTest_py:void:f" + py,
      "doWriteRemoteTest:void:f" + buf,
      "doWriteRemoteTest_py:void:f" + py,
      "doWriteLocalTest:void:f" + buf,
      "doWriteLocalTest_py:void:f" + py,
      "doFlushWithRead:void:f()",
      "remoteSet:void:f(U32 byteOffset, U32 value, U32 size)",
      "remoteCopyChunk:void:f()",
      "scheduleRemoteCopy:bool:f(U32 byteOffset, U32 size)",
      "remoteCopy:void:f(U32 byteOffset, U32 size)",
      "remoteCopyPending:bool:s",
      "remoteCopyChunkSize:U32:s",
      "getShadow:U64:f(U64 dest, U32 size)",
      "protectedMemoryCopy:void:f(U64 dest, U64 src, U32 size)",
      "protectedMemorySet:void:f(U64 dest, U32 c, U32 size)",
      "deletion:bool:s",
      "handleDeletion:void:f()"};
  EXPECT_EQ(described(kMem), expected);
  EXPECT_EQ(names("MorvikLib::MorvikMemorySm"),
            (std::vector<std::string>{"name",
                                      "morvikStatus",
                                      "morvikManifest",
                                      "morvikAudit",
                                      "morvikAuditRequest",
                                      "morvikAuditRequests",
                                      "morvikMemory",
                                      "handleLocalMemoryChange",
                                      "handleRemoteMemoryChange",
                                      "handleMorvikRemoteMemVersion",
                                      "handleSupStateChange",
                                      "resetAuditSm",
                                      "morvikAuditSm",
                                      "deletion",
                                      "handleDeletion",
                                      "initialized",
                                      "handleInitialized",
                                      "wrClock",
                                      "scheduleClockTimeout",
                                      "overlap",
                                      "setWriteAccess"}));
  const auto& sm = GenericIf::type("MorvikLib::MorvikMemorySm");
  EXPECT_EQ(Kel::GenericAttribute::argList(sm.constructorArgs()),
            "Kel::Name name, Morvik::Status morvikStatus, Morvik::Manifest morvikManifest, "
            "Morvik::Audit morvikAudit, Morvik::AuditRequest morvikAuditRequest, Kel::Dir "
            "morvikAuditRequests, MorvikLib::MorvikMemory morvikMemory");
  EXPECT_EQ(Kel::GenericAttribute::argList(sm.attribute("overlap")->args),
            "U64 start1, U64 size1, U64 start2, U64 size2");
  EXPECT_EQ(Kel::GenericAttribute::argList(sm.attribute("setWriteAccess")->args),
            "U64 dest, U32 size, int prot");
  // The entity's and the audit machine's constructor arguments are quoted whole by their refusals
  // (below, and in python/tests/test_refusals.py).
  EXPECT_EQ(
      names("MorvikLib::MorvikAuditSm"),
      (std::vector<std::string>{
          "name", "morvikMemory", "morvikStatus", "morvikManifest", "morvikAudit", "auditRequest",
          "auditStatus", "clock", "auditMemory", "handleAuditClockTimeout", "handleAuditResync",
          "auditInterval", "auditEnabled", "computeChecksum", "handleFeatureAuditTrigger",
          "initialized", "handleInitialized", "resultRetryCount", "resultRetryCountMax"}));
}

// Records what a generic watcher is told, by attribute name.
class Recorder : public Kel::GenericIfNotifiee {
 public:
  void onRawAttribute(U32 id) override { heard.push_back(name(id)); }
  void onRawAttribute(U32 id, const GenericValue& key) override {
    heard.push_back(name(id) + "[" + std::to_string(key.unsignedInt()) + "]");
  }
  std::vector<std::string> heard;

 private:
  static std::string name(U32 id) { return GenericIf::type(kMem).attributes().at(id).name; }
};

class MorvikMemoryGenericTest : public MorvikGenericTest {
 protected:
  MorvikMemory& memory() { return *mem_.as<Kel::Ptr<MorvikMemory>>(); }

  GenericValue mem_ = GenericIf::genericIfFromCtorArgs(kMem, {text("mem")});
  Kel::Ptr<Recorder> recorder_ = Kel::allocate<Recorder>();
  Kel::Ptr<Kel::EntityNotifiee> watch_ = GenericIf::watch(mem_, recorder_);
};

// Every change reaches the watcher, by attribute name (and key), once: a set to the current value
// is silent, also for a mapping whose name is a different but equal string.
TEST_F(MorvikMemoryGenericTest, SetsMembersAndCallsGoThroughTheEntityAndTheWatcherHearsEachChange) {
  for (int i = 0; i < 2; ++i) {
    GenericIf::attributeIs(mem_, "remoteCopyChunkSize", u64(8192));
    // vaddr 0: nothing mapped, so the entity's teardown has nothing to unmap.
    GenericIf::attributeIs(
        mem_, "localMemory",
        GenericIf::genericIfFromCtorArgs(kMap, {text("m"), u64(0), u64(64), u64(0), u64(1)}));
  }
  EXPECT_EQ(GenericIf::attribute(mem_, "remoteCopyChunkSize").describe(), "U32 8192");
  GenericIf::memberIs(mem_, "replicationStatusBitmap", u64(1), u64(0x81));
  GenericIf::call(mem_, "replicationStatusIs", {u64(0), GenericValue::of(true)});
  EXPECT_EQ(GenericIf::member(mem_, "replicationStatusBitmap", u64(1)).describe(), "U8 129");
  auto all = GenericIf::members(mem_, "replicationStatusBitmap");
  ASSERT_EQ(all.size(), 2u);
  // From a key: that member and every one after it in the map's own order.
  GenericValue from = all[1].first;
  auto tail = GenericIf::members(mem_, "replicationStatusBitmap", &from);
  ASSERT_EQ(tail.size(), 1u);
  EXPECT_EQ(tail[0].first.describe(), from.describe());
  GenericIf::memberDel(mem_, "replicationStatusBitmap", u64(1));
  memory().activeSupeIs(true);
  memory().remoteMemoryChangedGenIdInc(1);
  // Registering the types again (a second load) destroys the nodes the watch began with.
  MorvikLib::registerGenericTypes();
  GenericIf::attributeIs(mem_, "deletion", GenericValue::of(true));
  memory().replicationStatusBitmapIs(7, 1);
  watch_->isRegisteredNotifieeIs(false);
  memory().activeSupeIs(false);
  EXPECT_EQ(recorder_->heard,
            (std::vector<std::string>{
                "remoteCopyChunkSize", "localMemory", "replicationStatusBitmap[1]",
                "replicationStatusBitmap[0]", "replicationStatusBitmap[1]", "activeSupe",
                "remoteMemoryChangedGenId", "deletion", "replicationStatusBitmap[7]"}));
}

// The framework's own refusals (GenericIf_test.cpp) over this library's declared types; the rest,
// from a script, in python/tests/test_refusals.py.
TEST_F(MorvikMemoryGenericTest, RefusalsNameTheTypeTheAttributeAndWhatWasExpected) {
  const MorvikTest::Refusals table = {
      {[&] {
         GenericIf::call(mem_, "doRead_py", {u64(0), GenericValue::of(Kel::BytePtr{}), u64(1)});
       },
       "MorvikLib::MorvikMemory.doRead_py: argument 2 (U64 data): expected U64, got Kel::BytePtr"},
      {[&] {
         GenericIf::genericIfFromCtorArgs("MorvikLib::MorvikAuditSm", {text("a"), mem_});
       },
       "MorvikLib::MorvikAuditSm constructor: expected 7 arguments (Kel::Name name, "
       "MorvikLib::MorvikMemory morvikMemory, Morvik::Status morvikStatus, Morvik::Manifest "
       "morvikManifest, Morvik::AuditRequest auditRequest, Morvik::AuditStatus auditStatus, "
       "Kel::Clock clock), got 2"},
  };
  MorvikTest::expectRefused<Kel::TypeException>(table);
  const MorvikTest::Refusals unsupported = {
      {[&] { GenericIf::attributeIs(mem_, "fullName", text("x")); },
       "MorvikLib::MorvikMemory.fullName: read-only attribute, set is not supported"},
      {[&] { GenericIf::attribute(mem_, "replicationStatusBitmap"); },
       "MorvikLib::MorvikMemory.replicationStatusBitmap: a keyed attribute, look up, set or "
       "delete a member by key instead"},
  };
  MorvikTest::expectRefused<Kel::OpNotSupportedException>(unsupported);
  EXPECT_TRUE(recorder_->heard.empty());
}

}  // namespace
