#include "MorvikLib/MorvikMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "MorvikLib/Trace.h"
#include "support/Capture.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;
using MorvikTest::Regions;
using testing::ElementsAre;

// Names every handler call, in order.
class Journal : public MorvikMemory::Notifiee {
 public:
  std::vector<std::string> calls;

  void onLocalMemory() override { note("localMemory"); }
  void onLocalMemoryWritableShadow() override { note("localMemoryWritableShadow"); }
  void onRemoteMemory() override { note("remoteMemory"); }
  void onRemoteMemoryWritableShadow() override { note("remoteMemoryWritableShadow"); }
  void onLocalMemorySimPaddr() override { note("localMemorySimPaddr"); }
  void onReplicationStatusBitmap(const U64& key) override { note("bitmap:" + std::to_string(key)); }
  void onLocalMemoryReady() override { note("localMemoryReady"); }
  void onRemoteMemoryReady() override { note("remoteMemoryReady"); }
  void onRemoteMemoryChangedGenId() override { note("remoteMemoryChangedGenId"); }

 private:
  void note(const std::string& what) { calls.push_back(what); }
};

class MorvikMemoryTest : public testing::Test {
 protected:
  MorvikMemoryTest() {
    journal_->notifierIs(memory_);
    journal_->isRegisteredNotifieeIs(true);
  }
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("memory");
  Kel::Ptr<Journal> journal_ = Kel::allocate<Journal>();
};

// The bitmap: 8 chunks per member, keyed by chunk / 8, even for offsets beyond 32 bits.
TEST_F(MorvikMemoryTest, BitmapMembersChangeAndNotifyPerKey) {
  const U64 far = U64{1} << 40;
  for (U64 offset : {U64{0}, U64{4095}, U64{32767}, far + 7 * 4096}) {
    memory_->replicationStatusIs(offset, true);
    EXPECT_TRUE(memory_->replicationStatus(offset / 4096 * 4096 + 4095)) << offset;
  }
  EXPECT_EQ(memory_->replicationStatusBitmap(0), 0x81);
  EXPECT_EQ(memory_->replicationStatusBitmap(far / 32768), 0x80);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:0", "bitmap:0", "bitmap:33554432"))
      << "an already set bit is silent";
  // A member whose bits are all cleared stays, with value 0; clearing in an absent one adds it.
  memory_->replicationStatusIs(0, false);
  memory_->replicationStatusIs(7 * 4096, false);
  memory_->replicationStatusIs(5 * 32768, false);
  memory_->replicationStatusIs(5 * 32768, false);
  const auto& bitmap = memory_->replicationStatusBitmap();
  for (U64 key : {0, 5}) EXPECT_TRUE(bitmap.find(key) && *bitmap.find(key) == 0) << key;
  EXPECT_EQ(journal_->calls.size(), 6u);

  journal_->calls.clear();
  memory_->replicationStatusBitmapIs(3, 0x10);
  memory_->replicationStatusBitmapIs(3, 0x10);
  memory_->replicationStatusBitmapIs(3, 0x11);
  memory_->replicationStatusBitmapDel(4);  // nothing removed, nobody told
  memory_->replicationStatusBitmapDel(3);
  EXPECT_THAT(journal_->calls, ElementsAre("bitmap:3", "bitmap:3", "bitmap:3"));
  journal_->calls.clear();
  memory_->replicationStatusBitmapDelAll();
  EXPECT_THAT(journal_->calls,
              testing::UnorderedElementsAre("bitmap:0", "bitmap:5", "bitmap:33554432"));
  // Offset 32768 starts key 1; a larger chunk keeps the bits and widens the range each stands for.
  memory_->replicationStatusIs(32768, true);
  EXPECT_EQ(memory_->replicationStatusBitmap(1), 0x01);
  memory_->remoteCopyChunkSizeIs(8192);
  EXPECT_EQ(memory_->replicationStatusBitmap(1), 0x01);
  EXPECT_TRUE(memory_->replicationStatus(65536 + 8191) && !memory_->replicationStatus(32768));
  // The generation counter wraps, and only a non-zero step notifies.
  memory_->remoteMemoryChangedGenIdIs(~U64{0});
  journal_->calls.clear();
  EXPECT_EQ(memory_->remoteMemoryChangedGenIdInc(0), ~U64{0});
  EXPECT_EQ(memory_->remoteMemoryChangedGenIdInc(2), 1u);
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemoryChangedGenId"));
}

// Installing and tearing down real mappings, on both mapping paths.
class MorvikMemoryMappingTest : public MorvikMemoryTest,
                                public testing::WithParamInterface<Regions::Kind> {
 protected:
  MorvikMemoryMappingTest() {
    MorvikLib::traceHandle().allLevelsIs(true);
    mapBoth();
  }
  ~MorvikMemoryMappingTest() override {
    journal_->notifierIs(nullptr);
    memory_ = nullptr;  // before the regions go, even when a test stops early
    MorvikLib::traceHandle().levelsIs(savedLevels_);
  }
  // Installs both sides and notes the four mappings: local, its shadow, remote, its shadow.
  void mapBoth() {
    regions_.setLocal(*memory_);
    regions_.setRemote(*memory_);
    mapped_ = {memory_->localMemory().vaddr(), memory_->localMemoryWritableShadow().vaddr(),
               memory_->remoteMemory().vaddr(), memory_->remoteMemoryWritableShadow().vaddr()};
    capture_.clear();
  }
  void expectUnmappedAfterTrace(int level, const char* text) {
    for (U64 vaddr : mapped_) EXPECT_FALSE(regions_.mapped(vaddr));
    ASSERT_FALSE(capture_.entries().empty());
    EXPECT_EQ(capture_.entries().front().level, level);
    EXPECT_EQ(capture_.entries().front().text,
              std::string("void MorvikLib::MorvikMemory::") + text);
    capture_.clear();
  }
  U32 savedLevels_ = MorvikLib::traceHandle().levels();
  Regions regions_{GetParam(), 64 * 1024, 64 * 1024};
  MorvikTest::TraceCapture capture_;
  std::vector<U64> mapped_;
};

TEST_P(MorvikMemoryMappingTest, MappingsAreInstalledAndTornDownInOrder) {
  EXPECT_THAT(journal_->calls,
              ElementsAre("localMemory", "localMemoryWritableShadow", "localMemoryReady",
                          "remoteMemory", "remoteMemoryWritableShadow", "remoteMemoryReady"));
  const MemoryMapping remoteShadow = memory_->remoteMemoryWritableShadow();
  memory_->localMemorySimPaddrIs(0x1234000);
  journal_->calls.clear();
  memory_->unsetRemote();
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemory", "remoteMemoryReady"));
  EXPECT_EQ(memory_->remoteMemoryWritableShadow(), remoteShadow) << "left describing the old range";
  EXPECT_EQ(memory_->remoteMemory(), MemoryMapping());
  journal_->calls.clear();
  capture_.clear();
  memory_->unsetLocal();
  EXPECT_THAT(journal_->calls, ElementsAre("localMemory", "localMemoryWritableShadow",
                                           "localMemorySimPaddr", "localMemoryReady"));
  expectUnmappedAfterTrace(0, "unsetLocal()");
  // With nothing left to unmap nothing changes; unsetLocal still traces, unsetRemote never does.
  journal_->calls.clear();
  memory_->unsetRemote();
  memory_->unsetLocal();
  EXPECT_TRUE(journal_->calls.empty());
  EXPECT_THAT(capture_.texts(), ElementsAre("void MorvikLib::MorvikMemory::unsetLocal()"));
  // Nothing mapped: only the simulated address and the ready flag are left to clear.
  memory_->localMemorySimPaddrIs(0x1234000);
  memory_->localMemoryReadyIs(true);
  journal_->calls.clear();
  memory_->unsetLocal();
  EXPECT_THAT(journal_->calls, ElementsAre("localMemorySimPaddr", "localMemoryReady"));

  // Deletion, and then destruction, tear down remote before local.
  mapBoth();
  journal_->calls.clear();
  memory_->handleDeletion();
  EXPECT_THAT(journal_->calls, ElementsAre("remoteMemory", "remoteMemoryReady", "localMemory",
                                           "localMemoryWritableShadow", "localMemoryReady"));
  EXPECT_FALSE(memory_->deletion()) << "only the generic interface sets it";
  expectUnmappedAfterTrace(5, "handleDeletion()");
  mapBoth();
  journal_->notifierIs(nullptr);
  memory_ = nullptr;
  expectUnmappedAfterTrace(5, "handleDeletion()");
}

INSTANTIATE_TEST_SUITE_P(BothPaths, MorvikMemoryMappingTest,
                         testing::Values(Regions::Kind::simulated, Regions::Kind::device),
                         [](const auto& info) {
                           return info.param == Regions::Kind::simulated ? "Simulated" : "Device";
                         });

}  // namespace
