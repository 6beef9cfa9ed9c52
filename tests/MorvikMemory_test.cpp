#include "MorvikLib/MorvikMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/TraceCapture.h"
#include "MorvikLib/Trace.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikTest::MappedPair;
using MorvikTest::Regions;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr U32 kSize = 64 * 1024;

// Names every handler call, in order; `probe` runs inside the handler, while the setter that
// notified is still on the stack.
class Journal : public MorvikMemory::Notifiee {
 public:
  static Kel::Ptr<Journal> watching(const Kel::Ptr<MorvikMemory>& memory) {
    Kel::Ptr<Journal> journal = Kel::allocate<Journal>();
    journal->notifierIs(memory);
    journal->isRegisteredNotifieeIs(true);
    return journal;
  }

  std::vector<std::string> calls;
  std::function<void(const std::string&)> probe;

  void onActiveSupe() override { note("activeSupe"); }
  void onLocalMemory() override { note("localMemory"); }
  void onLocalMemoryWritableShadow() override { note("localMemoryWritableShadow"); }
  void onRemoteMemory() override { note("remoteMemory"); }
  void onRemoteMemoryWritableShadow() override { note("remoteMemoryWritableShadow"); }
  void onLocalMemorySimPaddr() override { note("localMemorySimPaddr"); }
  void onReplicationStatusBitmap(const U64& key) override { note("bitmap:" + std::to_string(key)); }
  void onReplicationStatusBitmapkelImmediate() override { note("bitmapImmediate"); }
  void onReplicationStatusBitmap() override { note("bitmapAll"); }
  void onLocalMemoryReady() override { note("localMemoryReady"); }
  void onRemoteMemoryReady() override { note("remoteMemoryReady"); }
  void onRemoteMemoryVersion() override { note("remoteMemoryVersion"); }
  void onRemoteMemoryChangedGenId() override { note("remoteMemoryChangedGenId"); }
  void onIgnoreChecksum() override { note("ignoreChecksum"); }
  void onRemoteCopyPending() override { note("remoteCopyPending"); }
  void onRemoteCopyChunkSize() override { note("remoteCopyChunkSize"); }
  void onDeletion() override { note("deletion"); }
  void onZeroReferences() override { note("zeroReferences"); }

 private:
  void note(const std::string& what) {
    calls.push_back(what);
    if (probe) probe(what);
  }
};

// Switches the library's trace levels for one test and puts the old ones back.
class TraceLevels {
 public:
  explicit TraceLevels(const std::vector<int>& levels) : saved_(MorvikLib::traceHandle().levels()) {
    MorvikLib::traceHandle().allLevelsIs(false);
    for (int level : levels) MorvikLib::traceHandle().levelIs(level, true);
  }
  ~TraceLevels() {
    for (int level = 0; level < Kel::TraceHandle::kLevels; ++level) {
      MorvikLib::traceHandle().levelIs(level, (saved_ >> level) & 1u);
    }
  }

 private:
  U32 saved_;
};

std::vector<int> allLevels() {
  std::vector<int> levels;
  for (int level = 0; level < Kel::TraceHandle::kLevels; ++level) levels.push_back(level);
  return levels;
}

// Index of the first captured entry from `function` whose text contains `fragment`, or -1.
int indexOf(const Kel::TraceCapture& capture, const std::string& function,
            const std::string& fragment = "") {
  const auto entries = capture.entries();
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].function == function && entries[i].text.find(fragment) != std::string::npos) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

int lastIndexOf(const Kel::TraceCapture& capture, const std::string& function,
                const std::string& fragment) {
  const auto entries = capture.entries();
  for (std::size_t i = entries.size(); i-- > 0;) {
    if (entries[i].function == function && entries[i].text.find(fragment) != std::string::npos) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

class MorvikMemoryAttributeTest : public testing::Test {
 protected:
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("memory");
  Kel::Ptr<Journal> journal_ = Journal::watching(memory_);
};

TEST_F(MorvikMemoryAttributeTest, StartsUnmappedNotReadyAndIgnoringChecksums) {
  const MorvikMemory& m = *memory_;
  EXPECT_EQ(m.name(), Kel::Name("memory"));
  EXPECT_STREQ(m.fwkType(), "MorvikLib::MorvikMemory");
  EXPECT_FALSE(m.activeSupe());
  EXPECT_TRUE(!m.localMemory());
  EXPECT_TRUE(!m.localMemoryWritableShadow());
  EXPECT_TRUE(!m.remoteMemory());
  EXPECT_TRUE(!m.remoteMemoryWritableShadow());
  EXPECT_EQ(m.localMemorySimPaddr(), 0u);
  EXPECT_TRUE(m.replicationStatusBitmap().empty());
  EXPECT_FALSE(m.localMemoryReady());
  EXPECT_FALSE(m.remoteMemoryReady());
  EXPECT_EQ(m.remoteMemoryVersion(), 0u);
  EXPECT_EQ(m.remoteMemoryChangedGenId(), 0u);
  EXPECT_TRUE(m.ignoreChecksum());
  EXPECT_FALSE(m.remoteCopyPending());
  EXPECT_EQ(m.remoteCopyChunkSize(), 4096u);
  EXPECT_FALSE(m.deletion());
}

// A mapping unlike the default in every field but vaddr, so nothing ever tries to unmap it.
MemoryMapping describedOnly(const std::string& name) {
  return MemoryMapping(Kel::Name(std::string(name)), 0, 4096, 0x1000, 7);
}

struct SetterCase {
  const char* handler;
  void (*toDefault)(MorvikMemory&);
  void (*change)(MorvikMemory&);
};

const SetterCase kSetters[] = {
    {"activeSupe", [](MorvikMemory& m) { m.activeSupeIs(false); },
     [](MorvikMemory& m) { m.activeSupeIs(true); }},
    {"localMemory", [](MorvikMemory& m) { m.localMemoryIs(MemoryMapping()); },
     [](MorvikMemory& m) { m.localMemoryIs(describedOnly("l")); }},
    {"localMemoryWritableShadow",
     [](MorvikMemory& m) { m.localMemoryWritableShadowIs(MemoryMapping()); },
     [](MorvikMemory& m) { m.localMemoryWritableShadowIs(describedOnly("ls")); }},
    {"remoteMemory", [](MorvikMemory& m) { m.remoteMemoryIs(MemoryMapping()); },
     [](MorvikMemory& m) { m.remoteMemoryIs(describedOnly("r")); }},
    {"remoteMemoryWritableShadow",
     [](MorvikMemory& m) { m.remoteMemoryWritableShadowIs(MemoryMapping()); },
     [](MorvikMemory& m) { m.remoteMemoryWritableShadowIs(describedOnly("rs")); }},
    {"localMemorySimPaddr", [](MorvikMemory& m) { m.localMemorySimPaddrIs(0); },
     [](MorvikMemory& m) { m.localMemorySimPaddrIs(U64{1} << 40); }},
    {"localMemoryReady", [](MorvikMemory& m) { m.localMemoryReadyIs(false); },
     [](MorvikMemory& m) { m.localMemoryReadyIs(true); }},
    {"remoteMemoryReady", [](MorvikMemory& m) { m.remoteMemoryReadyIs(false); },
     [](MorvikMemory& m) { m.remoteMemoryReadyIs(true); }},
    {"remoteMemoryVersion", [](MorvikMemory& m) { m.remoteMemoryVersionIs(0); },
     [](MorvikMemory& m) { m.remoteMemoryVersionIs(0xFFFFFFFFu); }},
    {"remoteMemoryChangedGenId", [](MorvikMemory& m) { m.remoteMemoryChangedGenIdIs(0); },
     [](MorvikMemory& m) { m.remoteMemoryChangedGenIdIs(U64{1} << 63); }},
    {"ignoreChecksum", [](MorvikMemory& m) { m.ignoreChecksumIs(true); },
     [](MorvikMemory& m) { m.ignoreChecksumIs(false); }},
    {"remoteCopyPending", [](MorvikMemory& m) { m.remoteCopyPendingIs(false); },
     [](MorvikMemory& m) { m.remoteCopyPendingIs(true); }},
    {"remoteCopyChunkSize", [](MorvikMemory& m) { m.remoteCopyChunkSizeIs(4096); },
     [](MorvikMemory& m) { m.remoteCopyChunkSizeIs(512); }},
    {"deletion", [](MorvikMemory& m) { m.deletionIs(false); },
     [](MorvikMemory& m) { m.deletionIs(true); }},
};

TEST_F(MorvikMemoryAttributeTest, EverySetterNotifiesItsOwnHandlerOnlyOnChange) {
  for (const SetterCase& c : kSetters) {
    SCOPED_TRACE(c.handler);
    journal_->calls.clear();
    c.toDefault(*memory_);
    EXPECT_THAT(journal_->calls, IsEmpty()) << "the default is already stored";
    c.change(*memory_);
    EXPECT_THAT(journal_->calls, ElementsAre(c.handler));
    c.change(*memory_);
    EXPECT_THAT(journal_->calls, ElementsAre(c.handler)) << "same value again";
    c.toDefault(*memory_);
    EXPECT_THAT(journal_->calls, ElementsAre(c.handler, c.handler));
  }
}

TEST_F(MorvikMemoryAttributeTest, AnEqualMappingWithAnotherNamePayloadNotifiesNobody) {
  memory_->remoteMemoryIs(describedOnly("peer"));
  journal_->calls.clear();
  memory_->remoteMemoryIs(describedOnly(std::string("pe") + "er"));
  EXPECT_THAT(journal_->calls, IsEmpty());
  memory_->remoteMemoryIs(MemoryMapping(Kel::Name("peer"), 0, 4096, 0x1000, 8));
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemory")) << "versions differ";
  memory_->remoteMemoryIs(MemoryMapping());
}

TEST_F(MorvikMemoryAttributeTest, TheStoredValueIsVisibleFromInsideTheHandler) {
  U32 seen = 0;
  journal_->probe = [&](const std::string&) { seen = memory_->remoteMemoryVersion(); };
  memory_->remoteMemoryVersionIs(41);
  EXPECT_EQ(seen, 41u);
}

TEST_F(MorvikMemoryAttributeTest, GenerationIncrementWrapsAndNotifiesOnlyForNonZeroDelta) {
  EXPECT_EQ(memory_->remoteMemoryChangedGenIdInc(0), 0u);
  EXPECT_THAT(journal_->calls, IsEmpty());
  EXPECT_EQ(memory_->remoteMemoryChangedGenIdInc(5), 5u);
  EXPECT_EQ(memory_->remoteMemoryChangedGenIdInc(1), 6u);
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemoryChangedGenId", "remoteMemoryChangedGenId"));
  memory_->remoteMemoryChangedGenIdIs(std::numeric_limits<U64>::max());
  journal_->calls.clear();
  EXPECT_EQ(memory_->remoteMemoryChangedGenIdInc(2), 1u);
  EXPECT_EQ(memory_->remoteMemoryChangedGenId(), 1u);
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemoryChangedGenId"));
}

TEST_F(MorvikMemoryAttributeTest, ZeroReferencesReachesEveryNotifiee) {
  Kel::Ptr<Journal> second = Journal::watching(memory_);
  memory_->zeroReferencesIs(false);
  EXPECT_THAT(journal_->calls, ElementsAre("zeroReferences"));
  EXPECT_THAT(second->calls, ElementsAre("zeroReferences"));
}

TEST_F(MorvikMemoryAttributeTest, FactoriesMakeDistinctNamedEntitiesAndTheBackupNameReplaces) {
  Kel::Ptr<MorvikMemory> made = MorvikLib::newEntityForDir(Kel::Name("fromDir"), nullptr);
  ASSERT_TRUE(made);
  EXPECT_EQ(made->name(), Kel::Name("fromDir"));
  EXPECT_NE(made.ptr(), memory_.ptr());
  EXPECT_TRUE(made->ignoreChecksum());
  made->nameIsFromBackup(Kel::Name("restored"));
  EXPECT_EQ(made->name(), Kel::Name("restored"));
}

// The bitmap: 8 chunks per member, keyed by chunk / 8.

struct BitCase {
  U64 byteOffset;
  U64 key;
  U8 bit;
};

TEST_F(MorvikMemoryAttributeTest, ByteOffsetsMapToKeyAndBit) {
  const BitCase cases[] = {
      {0, 0, 0x01},
      {4095, 0, 0x01},
      {4096, 0, 0x02},
      {28672, 0, 0x80},
      {32767, 0, 0x80},
      {32768, 1, 0x01},
      {U64{1} << 40, U64{1} << 25, 0x01},  // far beyond 32 bits: a full 64-bit division
      {(U64{1} << 40) + 7 * 4096, U64{1} << 25, 0x80},
  };
  for (const BitCase& c : cases) {
    SCOPED_TRACE(c.byteOffset);
    memory_->replicationStatusBitmapDelAll();
    journal_->calls.clear();
    memory_->replicationStatusIs(c.byteOffset, true);
    EXPECT_THAT(journal_->calls, ElementsAre("bitmap:" + std::to_string(c.key)));
    EXPECT_EQ(memory_->replicationStatusBitmap().size(), 1u);
    EXPECT_EQ(memory_->replicationStatusBitmap(c.key), c.bit);
    EXPECT_TRUE(memory_->replicationStatus(c.byteOffset));
    EXPECT_TRUE(memory_->replicationStatus(c.byteOffset / 4096 * 4096 + 4095)) << "whole chunk";
    EXPECT_FALSE(memory_->replicationStatus(c.byteOffset / 4096 * 4096 + 4096));
  }
}

TEST_F(MorvikMemoryAttributeTest, ClearingTheLastBitKeepsAZeroMemberAndSettingItAgainIsSilent) {
  memory_->replicationStatusIs(8192, true);
  memory_->replicationStatusIs(8192, true);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:0")) << "an already set bit";
  memory_->replicationStatusIs(8192, false);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:0", "bitmap:0"));
  ASSERT_NE(memory_->replicationStatusBitmap().find(0), nullptr);
  EXPECT_EQ(*memory_->replicationStatusBitmap().find(0), 0);
  EXPECT_FALSE(memory_->replicationStatus(8192));
}

TEST_F(MorvikMemoryAttributeTest, ClearingAChunkOfAnAbsentMemberInsertsAZeroMember) {
  memory_->replicationStatusIs(5 * 32768, false);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:5"));
  ASSERT_NE(memory_->replicationStatusBitmap().find(5), nullptr);
  memory_->replicationStatusIs(5 * 32768, false);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:5")) << "the zero member is there now";
}

TEST_F(MorvikMemoryAttributeTest, NeighbouringChunksOfOneMemberKeepTheirBits) {
  memory_->replicationStatusIs(0, true);
  memory_->replicationStatusIs(3 * 4096, true);
  memory_->replicationStatusIs(7 * 4096, true);
  memory_->replicationStatusIs(3 * 4096, false);
  EXPECT_EQ(memory_->replicationStatusBitmap(0), 0x81);
}

TEST_F(MorvikMemoryAttributeTest, KeyedSetterDeleteAndDeleteAll) {
  memory_->replicationStatusBitmapIs(3, 0x10);
  memory_->replicationStatusBitmapIs(3, 0x10);
  memory_->replicationStatusBitmapIs(3, 0x11);
  memory_->replicationStatusBitmapIs(U64{1} << 61, 0);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:3", "bitmap:3", "bitmap:2305843009213693952"));
  EXPECT_TRUE(memory_->replicationStatus(3 * 32768));
  EXPECT_TRUE(memory_->replicationStatus(3 * 32768 + 4 * 4096));

  journal_->calls.clear();
  memory_->replicationStatusBitmapDel(4);
  EXPECT_THAT(journal_->calls, IsEmpty()) << "nothing removed";
  memory_->replicationStatusBitmapDel(3);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:3"));
  EXPECT_FALSE(memory_->replicationStatus(3 * 32768));

  for (U64 key : {10u, 11u, 12u}) memory_->replicationStatusBitmapIs(key, 1);
  journal_->calls.clear();
  memory_->replicationStatusBitmapDelAll();
  std::vector<std::string> calls = journal_->calls;
  std::sort(calls.begin(), calls.end());
  EXPECT_THAT(calls,
              ElementsAre("bitmap:10", "bitmap:11", "bitmap:12", "bitmap:2305843009213693952"));
  EXPECT_TRUE(memory_->replicationStatusBitmap().empty());
  journal_->calls.clear();
  memory_->replicationStatusBitmapDelAll();
  EXPECT_THAT(journal_->calls, IsEmpty());
}

TEST_F(MorvikMemoryAttributeTest, DeleteAllSurvivesAHandlerThatRefillsTheMap) {
  for (U64 key : {1u, 2u, 3u}) memory_->replicationStatusBitmapIs(key, 1);
  bool refilled = false;
  journal_->probe = [&](const std::string&) {
    if (refilled) return;
    refilled = true;
    memory_->replicationStatusBitmapIs(99, 1);
  };
  memory_->replicationStatusBitmapDelAll();
  EXPECT_EQ(memory_->replicationStatusBitmap(1), 0);
  EXPECT_EQ(memory_->replicationStatusBitmap(2), 0);
  EXPECT_EQ(memory_->replicationStatusBitmap(3), 0);
}

TEST_F(MorvikMemoryAttributeTest, AChunkSizeChangeKeepsTheBitsForNewRanges) {
  memory_->replicationStatusIs(4096, true);  // chunk 1
  memory_->remoteCopyChunkSizeIs(8192);
  EXPECT_EQ(memory_->replicationStatusBitmap(0), 0x02);
  EXPECT_FALSE(memory_->replicationStatus(4096)) << "now chunk 0";
  EXPECT_TRUE(memory_->replicationStatus(8192));
  EXPECT_TRUE(memory_->replicationStatus(16383));
  memory_->remoteCopyChunkSizeIs(1024);
  EXPECT_TRUE(memory_->replicationStatus(1024));
  EXPECT_FALSE(memory_->replicationStatus(4096));
}

// Installing and tearing down real mappings, on both mapping paths.

class MorvikMemoryMappingTest : public testing::TestWithParam<Regions::Kind> {
 protected:
  Regions regions_{GetParam(), kSize, kSize};
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("memory");
  Kel::Ptr<Journal> journal_ = Journal::watching(memory_);
};

TEST_P(MorvikMemoryMappingTest, SetLocalAndSetRemoteInstallMappingShadowThenReadiness) {
  const MappedPair local = regions_.mapLocal();
  const MappedPair remote = regions_.mapRemote();
  memory_->setLocal(local.memory, local.shadow);
  memory_->setRemote(remote.memory, remote.shadow);
  EXPECT_THAT(journal_->calls,
              ElementsAre("localMemory", "localMemoryWritableShadow", "localMemoryReady",
                          "remoteMemory", "remoteMemoryWritableShadow", "remoteMemoryReady"));
  EXPECT_EQ(memory_->localMemory(), local.memory);
  EXPECT_EQ(memory_->localMemoryWritableShadow(), local.shadow);
  EXPECT_EQ(memory_->remoteMemory(), remote.memory);
  EXPECT_EQ(memory_->remoteMemoryWritableShadow(), remote.shadow);
  EXPECT_TRUE(memory_->localMemoryReady());
  EXPECT_TRUE(memory_->remoteMemoryReady());
}

TEST_P(MorvikMemoryMappingTest, UnsetLocalUnmapsPrimaryThenShadowAndClearsBoth) {
  const MappedPair local = regions_.mapLocal();
  memory_->setLocal(local.memory, local.shadow);
  memory_->localMemorySimPaddrIs(regions_.localPaddr() | 1);
  journal_->calls.clear();
  std::vector<std::string> order;
  journal_->probe = [&](const std::string& what) {
    order.push_back(what + (regions_.mapped(local.memory.vaddr()) ? " primary" : "") +
                    (regions_.mapped(local.shadow.vaddr()) ? " shadow" : ""));
  };
  TraceLevels levels({0});
  Kel::TraceCapture capture;
  memory_->unsetLocal();
  EXPECT_THAT(order, ElementsAre("localMemory shadow", "localMemoryWritableShadow",
                                 "localMemorySimPaddr", "localMemoryReady"));
  EXPECT_TRUE(!memory_->localMemory());
  EXPECT_TRUE(!memory_->localMemoryWritableShadow());
  EXPECT_EQ(memory_->localMemorySimPaddr(), 0u);
  EXPECT_FALSE(memory_->localMemoryReady());
  ASSERT_EQ(capture.size(), 1u);
  const auto entry = capture.entries().front();
  EXPECT_EQ(entry.level, 0);
  EXPECT_EQ(entry.file, "MorvikLib");
  EXPECT_EQ(entry.function, "unsetLocal");
  EXPECT_EQ(entry.text, "void MorvikLib::MorvikMemory::unsetLocal()");
}

TEST_P(MorvikMemoryMappingTest, UnsetLocalWithNothingMappedOnlyClearsSimPaddrAndReadiness) {
  memory_->localMemorySimPaddrIs(0x1234000);
  memory_->localMemoryReadyIs(true);
  journal_->calls.clear();
  TraceLevels levels(allLevels());
  Kel::TraceCapture capture;
  memory_->unsetLocal();
  EXPECT_THAT(journal_->calls, ElementsAre("localMemorySimPaddr", "localMemoryReady"));
  EXPECT_THAT(capture.texts(), ElementsAre("void MorvikLib::MorvikMemory::unsetLocal()"));

  journal_->calls.clear();
  memory_->unsetLocal();
  EXPECT_THAT(journal_->calls, IsEmpty());
  EXPECT_EQ(capture.size(), 2u) << "traced every time";
}

TEST_P(MorvikMemoryMappingTest, UnsetRemoteUnmapsBothButLeavesTheShadowAttribute) {
  const MappedPair remote = regions_.mapRemote();
  memory_->setRemote(remote.memory, remote.shadow);
  journal_->calls.clear();
  bool shadowMappedAtFirstNotification = false;
  journal_->probe = [&](const std::string& what) {
    if (what == "remoteMemory")
      shadowMappedAtFirstNotification = regions_.mapped(remote.shadow.vaddr());
  };
  TraceLevels levels(allLevels());
  Kel::TraceCapture capture;
  memory_->unsetRemote();
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemory", "remoteMemoryReady"));
  EXPECT_TRUE(shadowMappedAtFirstNotification);
  EXPECT_TRUE(!memory_->remoteMemory());
  EXPECT_EQ(memory_->remoteMemoryWritableShadow(), remote.shadow);
  EXPECT_FALSE(memory_->remoteMemoryReady());
  EXPECT_FALSE(regions_.mapped(remote.memory.vaddr()));
  EXPECT_FALSE(regions_.mapped(remote.shadow.vaddr()));
  EXPECT_EQ(indexOf(capture, "unsetRemote"), -1) << "unsetRemote itself is silent";
  EXPECT_NE(indexOf(capture, "doMunmap"), -1);

  journal_->calls.clear();
  memory_->unsetRemote();
  EXPECT_THAT(journal_->calls, IsEmpty()) << "the stale shadow attribute is never unmapped again";
}

TEST_P(MorvikMemoryMappingTest, HandleDeletionTearsDownRemoteBeforeLocal) {
  const MappedPair local = regions_.mapLocal();
  const MappedPair remote = regions_.mapRemote();
  memory_->setLocal(local.memory, local.shadow);
  memory_->setRemote(remote.memory, remote.shadow);
  journal_->calls.clear();
  TraceLevels levels(allLevels());
  Kel::TraceCapture capture;
  memory_->handleDeletion();
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemory", "remoteMemoryReady", "localMemory",
                                           "localMemoryWritableShadow", "localMemoryReady"));
  EXPECT_FALSE(memory_->deletion()) << "only the generic interface sets it";
  for (U64 vaddr :
       {local.memory.vaddr(), local.shadow.vaddr(), remote.memory.vaddr(), remote.shadow.vaddr()}) {
    EXPECT_FALSE(regions_.mapped(vaddr));
  }
  const auto entries = capture.entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.front().level, 5);
  EXPECT_EQ(entries.front().function, "handleDeletion");
  EXPECT_EQ(entries.front().text, "void MorvikLib::MorvikMemory::handleDeletion()");
  const int unsetLocal = indexOf(capture, "unsetLocal");
  ASSERT_NE(unsetLocal, -1);
  if (GetParam() == Regions::Kind::simulated) {
    EXPECT_LT(lastIndexOf(capture, "doMunmap", "MorvikRemote"), unsetLocal);
    EXPECT_GT(indexOf(capture, "doMunmap", "MorvikLocal"), unsetLocal);
  }
}

TEST_P(MorvikMemoryMappingTest, DroppingTheLastReferenceUnmapsBothSidesRemoteFirst) {
  const MappedPair local = regions_.mapLocal();
  const MappedPair remote = regions_.mapRemote();
  memory_->setLocal(local.memory, local.shadow);
  memory_->setRemote(remote.memory, remote.shadow);
  journal_->notifierIs(nullptr);
  TraceLevels levels(allLevels());
  Kel::TraceCapture capture;
  memory_ = nullptr;
  for (U64 vaddr :
       {local.memory.vaddr(), local.shadow.vaddr(), remote.memory.vaddr(), remote.shadow.vaddr()}) {
    EXPECT_FALSE(regions_.mapped(vaddr));
  }
  const int unsetLocal = indexOf(capture, "unsetLocal");
  EXPECT_EQ(indexOf(capture, "handleDeletion"), 0);
  ASSERT_NE(unsetLocal, -1);
  if (GetParam() == Regions::Kind::simulated) {
    EXPECT_LT(lastIndexOf(capture, "doMunmap", "MorvikRemote"), unsetLocal);
    EXPECT_GT(indexOf(capture, "doMunmap", "MorvikLocal"), unsetLocal);
  }
}

TEST_P(MorvikMemoryMappingTest, TheSidesAreIndependentAndCanBeMappedAgain) {
  const MappedPair local = regions_.mapLocal();
  memory_->setLocal(local.memory, local.shadow);
  const MappedPair remote = regions_.mapRemote();
  memory_->setRemote(remote.memory, remote.shadow);
  memory_->unsetRemote();
  EXPECT_TRUE(memory_->localMemoryReady());
  EXPECT_TRUE(regions_.mapped(local.memory.vaddr()));
  const MappedPair again = regions_.mapRemote();
  memory_->setRemote(again.memory, again.shadow);
  EXPECT_TRUE(memory_->remoteMemoryReady());
  EXPECT_EQ(memory_->remoteMemoryWritableShadow(), again.shadow);
}

INSTANTIATE_TEST_SUITE_P(BothPaths, MorvikMemoryMappingTest,
                         testing::Values(Regions::Kind::simulated, Regions::Kind::device),
                         [](const testing::TestParamInfo<Regions::Kind>& info) {
                           return info.param == Regions::Kind::simulated ? "Simulated" : "Device";
                         });

}  // namespace
