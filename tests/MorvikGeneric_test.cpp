// The library's four types in the generic interface: names, orders, types, constructor
// arguments, sets through setters, the keyed attribute, refusals, the watcher and MemoryMapping's
// value operations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
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
using MorvikLib::MemoryMapping;
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

GenericValue mapping(const char* name, U64 vaddr, U64 size, U64 paddr, U64 version) {
  return GenericIf::genericIfFromCtorArgs(
      kMap, {text(name), u64(vaddr), u64(size), u64(paddr), u64(version)});
}

class MorvikGenericTest : public KelTest::LeakCheckedTest {
 public:
  // The library sets up its trace handle on first use; that one-time state is not a leak.
  static void SetUpTestSuite() { MorvikLib::morvikMemoryFactory(Kel::Name("warmUp")); }
};

TEST_F(MorvikGenericTest, TypesAreRegisteredInLoadOrder) {
  std::vector<std::string> all = Kel::typeNames();
  std::vector<std::string> ours;
  for (const std::string& n : all) {
    if (n.rfind("MorvikLib::", 0) == 0) ours.push_back(n);
  }
  EXPECT_EQ(ours, (std::vector<std::string>{kMap, "MorvikLib::MorvikAuditSm", kMem,
                                            "MorvikLib::MorvikMemorySm"}));
  std::vector<std::string> section(std::begin(MorvikLib::kTypeNames),
                                   std::end(MorvikLib::kTypeNames));
  EXPECT_EQ(section, (std::vector<std::string>{"MorvikLib::MorvikMemorySm", kMem,
                                               "MorvikLib::MorvikAuditSm", kMap}));
}

TEST_F(MorvikGenericTest, MemoryMappingOffersItsFiveFieldsReadOnly) {
  EXPECT_EQ(described(kMap),
            (std::vector<std::string>{"name:Kel::Name:r", "vaddr:U64:r", "size:U32:r",
                                      "paddr:U64:r", "version:U64:r"}));
  EXPECT_EQ(Kel::GenericAttribute::argList(GenericIf::type(kMap).constructorArgs()),
            "Kel::Name name, U64 vaddr, U32 size, U64 paddr, U64 version");
}

TEST_F(MorvikGenericTest, MorvikMemoryOffersItsAttributesInDeclaredOrder) {
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
  EXPECT_EQ(Kel::GenericAttribute::argList(GenericIf::type(kMem).constructorArgs()),
            "Kel::Name name");
}

TEST_F(MorvikGenericTest, StateMachinesOfferTheirAttributesAndConstructorArguments) {
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
  EXPECT_EQ(Kel::GenericAttribute::argList(
                GenericIf::type("MorvikLib::MorvikMemorySm").constructorArgs()),
            "Kel::Name name, Morvik::Status morvikStatus, Morvik::Manifest morvikManifest, "
            "Morvik::Audit morvikAudit, Morvik::AuditRequest morvikAuditRequest, Kel::Dir "
            "morvikAuditRequests, MorvikLib::MorvikMemory morvikMemory");
  const auto& sm = GenericIf::type("MorvikLib::MorvikMemorySm");
  EXPECT_EQ(Kel::GenericAttribute::argList(sm.attribute("overlap")->args),
            "U64 start1, U64 size1, U64 start2, U64 size2");
  EXPECT_EQ(Kel::GenericAttribute::argList(sm.attribute("setWriteAccess")->args),
            "U64 dest, U32 size, int prot");
  EXPECT_EQ(
      names("MorvikLib::MorvikAuditSm"),
      (std::vector<std::string>{
          "name", "morvikMemory", "morvikStatus", "morvikManifest", "morvikAudit", "auditRequest",
          "auditStatus", "clock", "auditMemory", "handleAuditClockTimeout", "handleAuditResync",
          "auditInterval", "auditEnabled", "computeChecksum", "handleFeatureAuditTrigger",
          "initialized", "handleInitialized", "resultRetryCount", "resultRetryCountMax"}));
  EXPECT_EQ(
      Kel::GenericAttribute::argList(GenericIf::type("MorvikLib::MorvikAuditSm").constructorArgs()),
      "Kel::Name name, MorvikLib::MorvikMemory morvikMemory, Morvik::Status morvikStatus, "
      "Morvik::Manifest morvikManifest, Morvik::AuditRequest auditRequest, "
      "Morvik::AuditStatus auditStatus, Kel::Clock clock");
}

// Counts what the entity's own notifiee hears.
class Counter : public MorvikMemory::Notifiee {
 public:
  void onRemoteCopyChunkSize() override { ++chunkSize; }
  void onLocalMemory() override { ++localMemory; }
  void onReplicationStatusBitmap(const U64& key) override { keys.push_back(key); }
  int chunkSize = 0;
  int localMemory = 0;
  std::vector<U64> keys;
};

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
  MorvikMemoryGenericTest() {
    counter_->notifierIs(mem_.object());
    counter_->isRegisteredNotifieeIs(true);
  }
  MorvikMemory& memory() { return *mem_.as<Kel::Ptr<MorvikMemory>>(); }

  GenericValue mem_ = GenericIf::genericIfFromCtorArgs(kMem, {text("mem")});
  Kel::Ptr<Counter> counter_ = Kel::allocate<Counter>();
};

TEST_F(MorvikMemoryGenericTest, SetsGoThroughTheSettersAndNotifyOnChangeOnly) {
  GenericIf::attributeIs(mem_, "remoteCopyChunkSize", u64(8192));
  GenericIf::attributeIs(mem_, "remoteCopyChunkSize", u64(8192));
  GenericIf::attributeIs(mem_, "localMemory", mapping("m", 0, 64, 0, 1));
  GenericIf::attributeIs(mem_, "localMemory", mapping("m", 0, 64, 0, 1));
  EXPECT_EQ(counter_->chunkSize, 1);
  EXPECT_EQ(counter_->localMemory, 1);
  EXPECT_EQ(memory().remoteCopyChunkSize(), 8192u);
  EXPECT_EQ(memory().localMemory(), MemoryMapping(Kel::Name("m"), 0, 64, 0, 1));
  EXPECT_EQ(GenericIf::attribute(mem_, "remoteCopyChunkSize").describe(), "U32 8192");
  EXPECT_EQ(GenericIf::attribute(mem_, "ignoreChecksum").describe(), "bool true");
  EXPECT_TRUE(GenericIf::equal(GenericIf::attribute(mem_, "entity"), mem_));
}

TEST_F(MorvikMemoryGenericTest, KeyedAttributeLooksUpSetsDeletesAndIterates) {
  GenericIf::memberIs(mem_, "replicationStatusBitmap", u64(1), u64(0x81));
  GenericIf::memberIs(mem_, "replicationStatusBitmap", u64(1), u64(0x81));
  GenericIf::call(mem_, "replicationStatusIs", {u64(0), GenericValue::of(true)});
  EXPECT_EQ(counter_->keys, (std::vector<U64>{1, 0}));
  EXPECT_EQ(GenericIf::member(mem_, "replicationStatusBitmap", u64(1)).describe(), "U8 129");
  EXPECT_TRUE(GenericIf::member(mem_, "replicationStatusBitmap", u64(2)).isNull());
  auto all = GenericIf::members(mem_, "replicationStatusBitmap");
  ASSERT_EQ(all.size(), 2u);
  // From a key: that member and every one after it in the map's own order.
  GenericValue from = all[1].first;
  auto tail = GenericIf::members(mem_, "replicationStatusBitmap", &from);
  ASSERT_EQ(tail.size(), 1u);
  EXPECT_EQ(tail[0].first.describe(), from.describe());
  GenericIf::memberDel(mem_, "replicationStatusBitmap", u64(1));
  EXPECT_EQ(counter_->keys, (std::vector<U64>{1, 0, 1}));
  EXPECT_EQ(GenericIf::members(mem_, "replicationStatusBitmap").size(), 1u);
  EXPECT_EQ(GenericIf::call(mem_, "replicationStatus", {u64(100)}).describe(), "bool true");
}

TEST_F(MorvikMemoryGenericTest, WatcherHearsEveryChangeByAttributeUntilUnregistered) {
  auto recorder = Kel::allocate<Recorder>();
  Kel::Ptr<Kel::EntityNotifiee> watch = GenericIf::watch(mem_, recorder);
  memory().activeSupeIs(true);
  memory().replicationStatusBitmapIs(7, 1);
  memory().remoteMemoryChangedGenIdInc(1);
  GenericIf::attributeIs(mem_, "deletion", GenericValue::of(true));
  GenericIf::call(mem_, "replicationStatusIs", {u64(0), GenericValue::of(true)});
  watch->isRegisteredNotifieeIs(false);
  memory().activeSupeIs(false);
  EXPECT_EQ(recorder->heard, (std::vector<std::string>{"activeSupe", "replicationStatusBitmap[7]",
                                                       "remoteMemoryChangedGenId", "deletion",
                                                       "replicationStatusBitmap[0]"}));
}

// Loading the library again registers its types again, destroying the nodes a watch began with.
TEST_F(MorvikMemoryGenericTest, WatchOutlivesTheTypeBeingRegisteredAgain) {
  auto recorder = Kel::allocate<Recorder>();
  Kel::Ptr<Kel::EntityNotifiee> watch = GenericIf::watch(mem_, recorder);
  MorvikLib::registerGenericTypes();
  memory().remoteCopyChunkSizeIs(512);
  memory().replicationStatusBitmapIs(3, 1);
  watch->isRegisteredNotifieeIs(false);
  EXPECT_EQ(recorder->heard,
            (std::vector<std::string>{"remoteCopyChunkSize", "replicationStatusBitmap[3]"}));
}

TEST_F(MorvikMemoryGenericTest, RefusalsNameTheTypeTheAttributeAndWhatWasExpected) {
  GenericValue buffer = GenericValue::of(Kel::BytePtr{});
  const MorvikTest::Refusals table = {
      {[&] {
         GenericIf::call(mem_, "doWrite_py", {u64(0), u64(0)});
       },
       "MorvikLib::MorvikMemory.doWrite_py: expected 3 arguments (U32 addr, U64 data, U32 size), "
       "got 2"},
      {[&] {
         GenericIf::call(mem_, "doWrite", {u64(0), u64(0), u64(1)});
       },
       "MorvikLib::MorvikMemory.doWrite: argument 2 (Kel::BytePtr data): expected Kel::BytePtr, "
       "got U64 0"},
      {[&] {
         GenericIf::call(mem_, "doRead_py", {u64(0), buffer, u64(1)});
       },
       "MorvikLib::MorvikMemory.doRead_py: argument 2 (U64 data): expected U64, got Kel::BytePtr"},
      {[&] { GenericIf::attributeIs(mem_, "localMemory", mem_); },
       "MorvikLib::MorvikMemory.localMemory: expected MorvikLib::MemoryMapping, got "
       "MorvikLib::MorvikMemory"},
      {[&] { GenericIf::memberIs(mem_, "replicationStatusBitmap", u64(0), u64(256)); },
       "MorvikLib::MorvikMemory.replicationStatusBitmap: expected U8, got U64 256 (out of "
       "range)"},
      {[&] { GenericIf::genericIfFromCtorArgs(kMem, {u64(1)}); },
       "MorvikLib::MorvikMemory constructor: argument 1 (Kel::Name name): expected Kel::Name, got "
       "U64 1"},
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
      {[&] { GenericIf::attribute(mem_, "doSync"); },
       "MorvikLib::MorvikMemory.doSync: a function, call it instead"},
      {[&] { GenericIf::attribute(mem_, "replicationStatusBitmap"); },
       "MorvikLib::MorvikMemory.replicationStatusBitmap: a keyed attribute, look up, set or "
       "delete a member by key instead"},
      {[&] { GenericIf::call(mem_, "noSuchFunction", {}); },
       "MorvikLib::MorvikMemory.noSuchFunction: no such attribute"},
      {[&] { GenericIf::less(mem_, mem_); }, "MorvikLib::MorvikMemory: ordering is not supported"},
  };
  MorvikTest::expectRefused<Kel::OpNotSupportedException>(unsupported);
  EXPECT_EQ(counter_->chunkSize + counter_->localMemory, 0);
}

// A well-formed call runs the library's function itself: its precondition still ends the process.
TEST_F(MorvikMemoryGenericTest, WellFormedCallRunsTheFunctionAndItsAssertions) {
  EXPECT_DEATH(
      {
        ::unsetenv("SIMULATION_VMID");
        GenericIf::call(mem_, "doReadRemoteTest_py", {u64(0), u64(0), u64(1)});
      },
      "inSimulationEnv\\(\\)");
}

TEST_F(MorvikGenericTest, MemoryMappingComparesPrintsParsesAndRefusesHashAndSet) {
  GenericValue a = mapping("a", 1, 2, 3, 4);
  GenericValue b = mapping("a", 1, 2, 3, 5);
  EXPECT_TRUE(GenericIf::equal(a, mapping("a", 1, 2, 3, 4)));
  EXPECT_FALSE(GenericIf::equal(a, b));
  EXPECT_TRUE(GenericIf::less(a, b));
  EXPECT_TRUE(GenericIf::less(mapping("a", 9, 9, 9, 9), mapping("b", 0, 0, 0, 0)));
  EXPECT_TRUE(GenericIf::empty(mapping("", 0, 0, 0, 0)));
  EXPECT_FALSE(GenericIf::empty(mapping("", 0, 0, 0, 1)));
  EXPECT_EQ(GenericIf::attribute(a, "size").describe(), "U32 2");
  Kel::String text = GenericIf::strRep(a);
  EXPECT_EQ(text, Kel::String("Value('MorvikLib::MemoryMapping', ** {'name': 'a', 'vaddr': 1, "
                              "'size': 2, 'paddr': 3, 'version': 4})"));
  EXPECT_TRUE(GenericIf::equal(GenericIf::fromStrRep(kMap, text), a));
  EXPECT_THROW(GenericIf::fromStrRep(kMap, Kel::String(text.stdString() + " ")),
               Kel::ParseException);
  EXPECT_THROW(GenericIf::hash(a), Kel::UnhashableException);
  EXPECT_THROW(GenericIf::attributeIs(a, "vaddr", u64(0)), Kel::OpNotSupportedException);
  EXPECT_THROW(GenericIf::less(a, u64(1)), Kel::TypeException);
}

}  // namespace
