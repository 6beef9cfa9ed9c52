#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/TraceCapture.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MorvikMemory;
using MorvikTest::MappedPair;
using MorvikTest::Regions;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr U32 kSize = 64 * 1024;

const std::string kSigWrite = "void MorvikLib::MorvikMemory::doWrite(U32, Kel::BytePtr, U32)";
const std::string kSigRead = "void MorvikLib::MorvikMemory::doRead(U32, Kel::BytePtr, U32) const";
const std::string kSigSet = "void MorvikLib::MorvikMemory::doSet(U32, U32, U32)";
const std::string kSigCopy = "void MorvikLib::MorvikMemory::doCopy(U32, U32, U32)";
const std::string kSigRemoteSet = "void MorvikLib::MorvikMemory::remoteSet(U32, U32, U32) const";
const std::string kSigSchedule = "bool MorvikLib::MorvikMemory::scheduleRemoteCopy(U32, U32)";
const std::string kSigReadRemote =
    "void MorvikLib::MorvikMemory::doReadRemoteTest(U32, Kel::BytePtr, U32) const";
const std::string kSigWriteRemote =
    "void MorvikLib::MorvikMemory::doWriteRemoteTest(U32, Kel::BytePtr, U32)";
const std::string kSigWriteLocal =
    "void MorvikLib::MorvikMemory::doWriteLocalTest(U32, Kel::BytePtr, U32)";

std::string hex(U64 value) {
  std::ostringstream out;
  out << std::hex << value;
  return out.str();
}

std::string low32Hex(U64 value) {
  return hex(static_cast<U32>(value));
}

U64 addressOf(const void* p) {
  return static_cast<U64>(reinterpret_cast<std::uintptr_t>(p));
}

// Switches the library's trace levels for one test and puts the old ones back.
class TraceLevels {
 public:
  explicit TraceLevels(std::initializer_list<int> levels)
      : saved_(MorvikLib::traceHandle().levels()) {
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

// Counts changes of the flags the data operations may or may not touch.
class FlagWatcher : public MorvikMemory::Notifiee {
 public:
  int ignoreChecksumCalls = 0;
  int pendingCalls = 0;
  int bitmapCalls = 0;
  void onIgnoreChecksum() override { ++ignoreChecksumCalls; }
  void onRemoteCopyPending() override { ++pendingCalls; }
  void onReplicationStatusBitmap(const U64&) override { ++bitmapCalls; }
};

std::vector<U8> pattern(std::size_t size, U8 seed) {
  std::vector<U8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(seed + i * 7 + (i >> 8));
  return bytes;
}

class MorvikMemoryDataTest : public testing::Test {
 protected:
  MorvikMemoryDataTest() {
    const MappedPair local = regions_.mapLocal();
    const MappedPair remote = regions_.mapRemote();
    memory_->setLocal(local.memory, local.shadow);
    memory_->setRemote(remote.memory, remote.shadow);
    memory_->ignoreChecksumIs(false);
    watcher_->notifierIs(memory_);
    watcher_->isRegisteredNotifieeIs(true);
  }

  U64 local() const { return memory_->localMemory().vaddr(); }
  U64 remote() const { return memory_->remoteMemory().vaddr(); }
  std::vector<U8> localAt(U32 offset, U32 size) const {
    return {regions_.localBytes() + offset, regions_.localBytes() + offset + size};
  }
  std::vector<U8> remoteAt(U32 offset, U32 size) const {
    return {regions_.remoteBytes() + offset, regions_.remoteBytes() + offset + size};
  }
  bool copiesEqual() const {
    return std::memcmp(regions_.localBytes(), regions_.remoteBytes(), kSize) == 0;
  }

  Regions regions_{Regions::Kind::simulated, kSize, kSize};
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("data");
  Kel::Ptr<FlagWatcher> watcher_ = Kel::allocate<FlagWatcher>();
};

TEST_F(MorvikMemoryDataTest, AShortWriteLandsInBothCopiesThroughTheShadows) {
  std::vector<U8> bytes = pattern(300, 1);
  memory_->doWrite(1000, bytes.data(), 300);
  EXPECT_EQ(localAt(1000, 300), bytes);
  EXPECT_EQ(remoteAt(1000, 300), bytes);
  EXPECT_TRUE(copiesEqual());
  EXPECT_TRUE(memory_->ignoreChecksum());
  EXPECT_FALSE(memory_->remoteCopyPending());
  EXPECT_EQ(watcher_->bitmapCalls, 0);

  std::vector<U8> back(300);
  memory_->doRead(1000, back.data(), 300);
  EXPECT_EQ(back, bytes);
}

TEST_F(MorvikMemoryDataTest, AWriteMayEndExactlyAtTheEndOfLocalMemory) {
  std::vector<U8> bytes = pattern(16, 9);
  memory_->doWrite(kSize - 16, bytes.data(), 16);
  EXPECT_EQ(localAt(kSize - 16, 16), bytes);
  EXPECT_EQ(remoteAt(kSize - 16, 16), bytes);
}

TEST_F(MorvikMemoryDataTest, AnEmptyWriteOnlyMarksTheChecksumAndMirrorsNothing) {
  U8 byte = 0x5A;
  memory_->doWrite(77, &byte, 0);
  EXPECT_TRUE(memory_->ignoreChecksum());
  EXPECT_TRUE(copiesEqual());
  EXPECT_EQ(localAt(77, 1), std::vector<U8>{0});
  EXPECT_EQ(watcher_->pendingCalls, 0);
  EXPECT_TRUE(memory_->replicationStatusBitmap().empty());
}

TEST_F(MorvikMemoryDataTest, AnEmptyWriteWithRemoteUnmappedMarksItsChunkPending) {
  memory_->unsetRemote();
  U8 byte = 0;
  memory_->doWrite(3 * 4096 + 5, &byte, 0);
  EXPECT_TRUE(memory_->replicationStatus(3 * 4096));
  EXPECT_EQ(memory_->replicationStatusBitmap(0), 0x08);
  EXPECT_TRUE(memory_->remoteCopyPending());
}

TEST_F(MorvikMemoryDataTest, TheScriptingWriteIsTheWriteOnTheBufferItsIntegerAddresses) {
  U8 buffer[4] = {'a', 0, 'c', 'd'};
  TraceLevels levels{9};
  Kel::TraceCapture scripted;
  memory_->doWrite_py(0, addressOf(buffer), 4);
  const std::vector<std::string> scriptedTexts = scripted.texts();
  const std::vector<U8> after = localAt(0, 4);
  EXPECT_EQ(remoteAt(0, 4), after);
  EXPECT_EQ(after, std::vector<U8>(buffer, buffer + 4));

  U8 zeros[4] = {};
  memory_->doWrite(0, zeros, 4);
  Kel::TraceCapture plain;
  memory_->doWrite(0, buffer, 4);
  EXPECT_EQ(plain.texts(), scriptedTexts);
  EXPECT_EQ(localAt(0, 4), after);
}

TEST_F(MorvikMemoryDataTest, ReadingTouchesNeitherTheChecksumFlagNorTheRemoteCopy) {
  std::vector<U8> bytes = pattern(64, 3);
  memory_->doWrite(200, bytes.data(), 64);
  memory_->ignoreChecksumIs(false);
  watcher_->ignoreChecksumCalls = 0;
  std::vector<U8> back(64);
  memory_->doRead_py(200, addressOf(back.data()), 64);
  EXPECT_EQ(back, bytes);
  EXPECT_FALSE(memory_->ignoreChecksum());
  EXPECT_EQ(watcher_->ignoreChecksumCalls, 0);
}

TEST_F(MorvikMemoryDataTest, SetFillsWithTheLowByteOfTheValueAndMirrorsIt) {
  memory_->doSet(500, 418, 33);
  EXPECT_EQ(localAt(500, 33), std::vector<U8>(33, 0xA2));
  EXPECT_EQ(remoteAt(500, 33), std::vector<U8>(33, 0xA2));
  EXPECT_EQ(localAt(533, 1), std::vector<U8>{0});
  EXPECT_TRUE(memory_->ignoreChecksum());
}

TEST_F(MorvikMemoryDataTest, CopyMovesLocalBytesAndMirrorsTheDestination) {
  std::vector<U8> bytes = pattern(128, 11);
  memory_->doWriteLocalTest(0, bytes.data(), 128);  // the source differs from the peer's copy
  memory_->ignoreChecksumIs(false);
  memory_->doCopy(6000, 0, 128);
  EXPECT_EQ(localAt(6000, 128), bytes);
  EXPECT_EQ(remoteAt(6000, 128), bytes);
  EXPECT_EQ(remoteAt(0, 128), std::vector<U8>(128, 0)) << "the source range is not mirrored";
  EXPECT_TRUE(memory_->ignoreChecksum());
}

TEST_F(MorvikMemoryDataTest, RemoteSetWritesThePeersCopyAlone) {
  std::vector<U8> bytes = pattern(40, 5);
  memory_->doWrite(64, bytes.data(), 40);
  memory_->ignoreChecksumIs(false);
  watcher_->pendingCalls = 0;
  memory_->remoteSet(64, 0x3FF, 40);
  EXPECT_EQ(remoteAt(64, 40), std::vector<U8>(40, 0xFF));
  EXPECT_EQ(localAt(64, 40), bytes);
  EXPECT_FALSE(memory_->ignoreChecksum());
  EXPECT_EQ(watcher_->pendingCalls, 0);
  EXPECT_EQ(watcher_->bitmapCalls, 0);
}

TEST_F(MorvikMemoryDataTest, RemoteSetOfAWholeChunkAtTheStartOfRemoteMemoryIsAllowed) {
  memory_->remoteSet(0, 0x11, 4096);
  EXPECT_EQ(remoteAt(0, 4096), std::vector<U8>(4096, 0x11));
  EXPECT_EQ(remoteAt(4096, 1), std::vector<U8>{0});
}

TEST_F(MorvikMemoryDataTest, RemoteSetWithRemoteUnmappedOnlyTraces) {
  memory_->unsetRemote();
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  memory_->remoteSet(0, 1, 1 << 20);
  ASSERT_EQ(capture.size(), 1u);
  const auto entry = capture.entries().front();
  EXPECT_EQ(entry.level, 0);
  EXPECT_EQ(entry.function, "remoteSet");
  EXPECT_EQ(entry.text, kSigRemoteSet + " vaddrStart NULL ");
}

TEST_F(MorvikMemoryDataTest, TestWritesChangeOneCopyAloneAndMarkNothingPending) {
  std::vector<U8> mine = pattern(100, 1);
  std::vector<U8> theirs = pattern(100, 2);
  memory_->doWriteLocalTest(300, mine.data(), 100);
  EXPECT_TRUE(memory_->ignoreChecksum());
  memory_->ignoreChecksumIs(false);
  memory_->doWriteRemoteTest_py(300, addressOf(theirs.data()), 100);
  EXPECT_FALSE(memory_->ignoreChecksum()) << "only the local test write marks the checksum";

  std::vector<U8> local(100), remote(100);
  memory_->doRead(300, local.data(), 100);
  memory_->doReadRemoteTest(300, remote.data(), 100);
  EXPECT_EQ(local, mine);
  EXPECT_EQ(remote, theirs);
  std::vector<U8> viaScript(100);
  memory_->doReadRemoteTest_py(300, addressOf(viaScript.data()), 100);
  EXPECT_EQ(viaScript, theirs);
  memory_->doWriteLocalTest_py(300, addressOf(theirs.data()), 100);
  EXPECT_EQ(localAt(300, 100), theirs);
  EXPECT_EQ(watcher_->pendingCalls, 0);
  EXPECT_EQ(watcher_->bitmapCalls, 0);
}

TEST_F(MorvikMemoryDataTest, TheSimulationTestIsReadAtEachCallAndAcceptsAnEmptyValue) {
  regions_.envIs("SIMULATION_VMID", "");
  std::vector<U8> bytes = pattern(8, 4);
  memory_->doWriteRemoteTest(0, bytes.data(), 8);
  regions_.envIs("SIMULATION_VMID", regions_.vmid().c_str());
  EXPECT_EQ(remoteAt(0, 8), bytes);
}

TEST_F(MorvikMemoryDataTest, ARemoteTestWriteOfExactlyOneChunkIsAllowed) {
  std::vector<U8> bytes = pattern(4096, 6);
  memory_->doWriteRemoteTest(kSize - 4096, bytes.data(), 4096);
  EXPECT_EQ(remoteAt(kSize - 4096, 4096), bytes);
}

// Exact trace text of the data path.

TEST_F(MorvikMemoryDataTest, WriteTracesFiveLinesAndTheDataUpToTheFirstZeroByte) {
  U8 buffer[7] = {'a', 'b', 'c', 0, 'x', 'y', 'z'};
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doWrite(16, buffer, 7);
  EXPECT_THAT(capture.texts(),
              ElementsAre(kSigWrite + " byteOffset 16 size 7 data64 " +
                              std::to_string(addressOf(buffer)) + " data abc",
                          kSigWrite + " write to local memory : " + hex(local()),
                          kSigWrite + " memcpy : " + low32Hex(local() + 16) + " size 7",
                          kSigWrite + " write to remote memory : " + hex(remote()),
                          kSigWrite + " memcpy : " + low32Hex(remote() + 16) + " size 7",
                          kSigSchedule + " Copy data @ 10 size 7"));
  for (const auto& entry : capture.entries()) {
    EXPECT_EQ(entry.level, 9);
    EXPECT_EQ(entry.file, "MorvikLib");
  }
  EXPECT_EQ(capture.entries().front().function, "doWrite");
  EXPECT_EQ(capture.entries().back().function, "scheduleRemoteCopy");
}

TEST_F(MorvikMemoryDataTest, WriteTraceOfABufferWithoutAZeroStopsAfterSizeBytes) {
  struct {
    U8 data[4];
    U8 beyond[4];
  } buffer = {{'w', 'x', 'y', 'z'}, {'Q', 'Q', 'Q', 'Q'}};
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doWrite(0, buffer.data, 4);
  ASSERT_FALSE(capture.texts().empty());
  EXPECT_EQ(capture.texts().front(), kSigWrite + " byteOffset 0 size 4 data64 " +
                                         std::to_string(addressOf(buffer.data)) + " data wxyz");
}

TEST_F(MorvikMemoryDataTest, WriteTracesTheRemoteLinesEvenWithRemoteUnmapped) {
  memory_->unsetRemote();
  U8 buffer[2] = {'h', 'i'};
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doWrite(4096, buffer, 2);
  EXPECT_THAT(
      capture.texts(),
      ElementsAre(kSigWrite + " byteOffset 4096 size 2 data64 " +
                      std::to_string(addressOf(buffer)) + " data hi",
                  kSigWrite + " write to local memory : " + hex(local()),
                  kSigWrite + " memcpy : " + low32Hex(local() + 4096) + " size 2",
                  kSigWrite + " write to remote memory : 0", kSigWrite + " memcpy : 1000 size 2",
                  kSigSchedule + " Scheduled data copy @ 1000 size 2"));
}

TEST_F(MorvikMemoryDataTest, NothingIsTracedBelowTheEnabledLevels) {
  U8 buffer[4] = {1, 2, 3, 4};
  TraceLevels levels{0, 5, 8};
  Kel::TraceCapture capture;
  memory_->doWrite(8, buffer, 4);
  memory_->doRead(8, buffer, 4);
  memory_->doSet(8, 1, 4);
  memory_->doCopy(100, 8, 4);
  memory_->doWriteLocalTest(8, buffer, 4);
  memory_->doWriteRemoteTest(8, buffer, 4);
  memory_->doReadRemoteTest(8, buffer, 4);
  EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST_F(MorvikMemoryDataTest, ReadTracesTheSizeRunningOnFromTheSignature) {
  U8 buffer[4];
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doRead(8, buffer, 4);
  EXPECT_THAT(capture.texts(),
              ElementsAre(kSigRead + "localMemory().size() 65536 byteOffset:8 size:4",
                          kSigRead + " read from local memory : " + hex(local()),
                          kSigRead + " memcpy : " + low32Hex(local() + 8) + " size 4"));
  EXPECT_EQ(capture.entries().front().function, "doRead");
}

TEST_F(MorvikMemoryDataTest, SetAndCopyTraces) {
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doSet(32, 418, 5);
  memory_->doCopy(100, 32, 10);
  EXPECT_THAT(capture.texts(),
              ElementsAre(kSigSet + " byteOffset 32 value 418 size 5",
                          kSigSet + " write to local memory : " + hex(local()),
                          kSigSet + " memset : " + low32Hex(local() + 32) + " value 418 size 5",
                          kSigSchedule + " Copy data @ 20 size 5",
                          kSigCopy + " dstOffset 100 srcOffset 32 size 10",
                          kSigCopy + " write to local memory : " + hex(local()),
                          kSigCopy + " memcpy : " + low32Hex(local() + 100) + " src " +
                              low32Hex(local() + 32) + " size 10",
                          kSigSchedule + " Copy data @ 64 size a"));
  const auto entries = capture.entries();
  EXPECT_EQ(entries[0].function, "doSet");
  EXPECT_EQ(entries[4].function, "doCopy");
}

TEST_F(MorvikMemoryDataTest, RemoteSetTracesThePointerFormAndStaysInHex) {
  TraceLevels levels{0};
  Kel::TraceCapture capture;
  memory_->remoteSet(16, 0x1A2, 0x20);
  std::ostringstream pointer;
  pointer << reinterpret_cast<const void*>(static_cast<std::uintptr_t>(remote() + 16));
  EXPECT_THAT(capture.texts(), ElementsAre(kSigRemoteSet + " set remote memory : " + pointer.str() +
                                           "value1a2 size 20"));
  EXPECT_EQ(capture.entries().front().level, 0);
  EXPECT_EQ(capture.entries().front().function, "remoteSet");
}

TEST_F(MorvikMemoryDataTest, TestPathTraces) {
  U8 buffer[4] = {9, 8, 7, 6};
  TraceLevels levels{9};
  Kel::TraceCapture capture;
  memory_->doReadRemoteTest(8, buffer, 4);
  memory_->doWriteRemoteTest(12, buffer, 4);
  memory_->doWriteLocalTest(20, buffer, 3);
  EXPECT_THAT(capture.texts(),
              ElementsAre(kSigReadRemote + "remoteMemory().size() 65536 byteOffset:8 size:4",
                          kSigReadRemote + " read from remote memory : " + hex(remote()),
                          kSigReadRemote + " memcpy : " + low32Hex(remote() + 8) + " size 4",
                          kSigWriteRemote + " byteOffset 12 size 4",
                          kSigWriteRemote + " write to remote memory : " + hex(remote()),
                          kSigWriteRemote + " memcpy : " + low32Hex(remote() + 12) + " size 4",
                          kSigWriteLocal + " byteOffset 20 size 3",
                          kSigWriteLocal + " write to local memory : " + hex(local()),
                          kSigWriteLocal + " memcpy : " + low32Hex(local() + 20) + " size 3"));
  const auto entries = capture.entries();
  EXPECT_EQ(entries[0].function, "doReadRemoteTest");
  EXPECT_EQ(entries[3].function, "doWriteRemoteTest");
  EXPECT_EQ(entries[6].function, "doWriteLocalTest");
}

// Shadow translation.

TEST_F(MorvikMemoryDataTest, ShadowTranslationOfAddressesInsideAndOutsideTheRegions) {
  const U64 localShadow = memory_->localMemoryWritableShadow().vaddr();
  const U64 remoteShadow = memory_->remoteMemoryWritableShadow().vaddr();
  U8 own[8];
  struct Case {
    const char* what;
    U64 dest;
    U32 size;
    U64 expected;
  };
  const Case cases[] = {
      {"remote start, one chunk", remote(), 4096, remoteShadow},
      {"remote last byte", remote() + kSize - 1, 1, remoteShadow + kSize - 1},
      {"remote, empty", remote() + 100, 0, remoteShadow + 100},
      {"local, the whole region", local(), kSize, localShadow},
      {"local middle", local() + 12345, 100, localShadow + 12345},
      {"caller's buffer", addressOf(own), 0xFFFFFFFFu, addressOf(own)},
      {"address 0", 0, 16, 0},
      {"top of the address space", ~U64{0}, 1, ~U64{0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(memory_->getShadow(c.dest, c.size), c.expected);
  }
}

TEST_F(MorvikMemoryDataTest, OnlyTheStartAddressChoosesTheRegion) {
  const U64 before = remote() - 1;
  const bool beforeIsLocal = before >= local() && before < local() + kSize;
  if (!beforeIsLocal) {
    EXPECT_EQ(memory_->getShadow(before, 100), before);
  }
  const U64 after = remote() + kSize;
  const bool afterIsLocal = after >= local() && after < local() + kSize;
  if (!afterIsLocal) {
    EXPECT_EQ(memory_->getShadow(after, 1), after);
  }
}

TEST(MorvikMemoryShadowTest, WithBothRegionsUnmappedEveryAddressIsItsOwn) {
  Kel::Ptr<MorvikMemory> memory = MorvikLib::morvikMemoryFactory("bare");
  for (U64 dest : {U64{0}, U64{1}, U64{0x1000}, U64{1} << 47, ~U64{0}}) {
    EXPECT_EQ(memory->getShadow(dest, 0xFFFFFFFFu), dest);
  }
}

TEST_F(MorvikMemoryDataTest, ProtectedStoresGoThroughTheShadowAndReadTheSourceInPlace) {
  std::vector<U8> bytes = pattern(256, 8);
  memory_->doWriteLocalTest(1024, bytes.data(), 256);
  // Remote destination, source in local memory's own (read-only) mapping.
  memory_->protectedMemoryCopy(remote() + 2048, local() + 1024, 256);
  EXPECT_EQ(remoteAt(2048, 256), bytes);
  memory_->protectedMemorySet(local() + 7, 0x1FE, 3);
  EXPECT_EQ(localAt(7, 3), std::vector<U8>(3, 0xFE));
  EXPECT_EQ(watcher_->ignoreChecksumCalls, 1) << "only the test write's";
}

// Both mapping paths carry a mirrored write alike.
class MorvikMemoryPathTest : public testing::TestWithParam<Regions::Kind> {};

TEST_P(MorvikMemoryPathTest, AMirroredWriteReachesBothCopies) {
  Regions regions(GetParam(), kSize, kSize);
  Kel::Ptr<MorvikMemory> memory = MorvikLib::morvikMemoryFactory("path");
  const MappedPair local = regions.mapLocal();
  const MappedPair remote = regions.mapRemote();
  memory->setLocal(local.memory, local.shadow);
  memory->setRemote(remote.memory, remote.shadow);
  std::vector<U8> bytes = pattern(kSize, 2);
  memory->doWrite(0, bytes.data(), kSize);
  EXPECT_TRUE(memory->remoteCopyPending());
  while (memory->remoteCopyPending()) memory->remoteCopyChunk();
  EXPECT_EQ(std::memcmp(regions.localBytes(), bytes.data(), kSize), 0);
  EXPECT_EQ(std::memcmp(regions.remoteBytes(), bytes.data(), kSize), 0);
  memory = nullptr;
}

INSTANTIATE_TEST_SUITE_P(BothPaths, MorvikMemoryPathTest,
                         testing::Values(Regions::Kind::simulated, Regions::Kind::device),
                         [](const testing::TestParamInfo<Regions::Kind>& info) {
                           return info.param == Regions::Kind::simulated ? "Simulated" : "Device";
                         });

}  // namespace
