// Long random sequences of operations on a memory entity over real mappings, checked after every
// step against plain byte arrays for both copies and a set of pending chunk indices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "MorvikLib/MorvikMemory.h"
#include "support/Regions.h"

namespace {

using MorvikLib::MorvikMemory;
using MorvikTest::MappedPair;
using MorvikTest::Regions;

constexpr U32 kRegion = 32 * 1024;
// Every one divides kRegion, so a whole chunk below the region's end never runs past it.
constexpr U32 kChunkSizes[] = {256, 512, 1024, 2048, 4096, 8192, 16384};
constexpr int kSteps = 2500;

// What the two copies and the copier should hold, stated plainly.
struct Model {
  std::vector<U8> local = std::vector<U8>(kRegion, 0);
  std::vector<U8> remote = std::vector<U8>(kRegion, 0);
  std::set<U64> pending;
  bool remoteMapped = true;
  bool copyPending = false;
  U32 chunk = 4096;

  // A changed local range reaches the peer piece by piece, pieces never crossing a chunk boundary:
  // a piece shorter than a chunk is copied at once if the peer is mapped, anything else waits.
  void mirror(U32 offset, U32 size) {
    bool deferred = false;
    const U32 end = offset + size;
    U32 at = offset;
    do {
      const U32 next = std::min((at / chunk + 1) * chunk, end);
      const U32 length = next - at;
      if (remoteMapped && length < chunk) {
        std::copy_n(local.begin() + at, length, remote.begin() + at);
      } else {
        pending.insert(at / chunk);
        deferred = true;
      }
      at = next;
    } while (at < end);
    if (deferred) copyPending = true;
  }

  void copyChunk() {
    copyPending = false;
    if (!remoteMapped) return;
    for (U64 index : pending) {
      if (index * chunk >= kRegion) break;
      std::copy_n(local.begin() + index * chunk, chunk, remote.begin() + index * chunk);
      pending.erase(index);
      copyPending = true;
      return;
    }
  }

  void sync() {
    pending.clear();
    mirror(0, remoteMapped ? kRegion : 0);
  }

  void bitmapIs(U64 key, U8 value) {
    for (U64 bit = 0; bit < 8; ++bit) {
      if ((value >> bit) & 1) {
        pending.insert(key * 8 + bit);
      } else {
        pending.erase(key * 8 + bit);
      }
    }
  }
};

class MorvikMemoryModelTest : public testing::TestWithParam<unsigned> {
 protected:
  MorvikMemoryModelTest() : random_(GetParam()) {
    const MappedPair local = regions_.mapLocal();
    memory_->setLocal(local.memory, local.shadow);
    mapRemote();
  }

  void mapRemote() {
    const MappedPair remote = regions_.mapRemote();
    memory_->setRemote(remote.memory, remote.shadow);
  }

  U32 uniform(U32 low, U32 high) { return std::uniform_int_distribution<U32>(low, high)(random_); }
  bool chance(U32 percent) { return uniform(0, 99) < percent; }

  // A length that is empty, short, about a chunk, or long, and an offset that fits it; sometimes
  // chunk-aligned, so whole chunks are written.
  std::pair<U32, U32> range() {
    U32 size;
    switch (uniform(0, 9)) {
      case 0:
        size = 0;
        break;
      case 1:
      case 2:
      case 3:
        size = uniform(1, 64);
        break;
      case 4:
      case 5:
      case 6:
        size = uniform(1, 2 * model_.chunk);
        break;
      default:
        size = uniform(1, kRegion);
        break;
    }
    size = std::min(size, kRegion);
    U32 offset = uniform(0, kRegion - size);
    if (chance(25)) offset = offset / model_.chunk * model_.chunk;
    return {offset, size};
  }

  void write(std::ostringstream& step) {
    auto [offset, size] = range();
    buffer_.resize(std::max<U32>(size, 1));
    for (U8& byte : buffer_) byte = static_cast<U8>(random_());
    step << "doWrite(" << offset << ", " << size << ")";
    memory_->doWrite(offset, buffer_.data(), size);
    std::copy_n(buffer_.begin(), size, model_.local.begin() + offset);
    model_.mirror(offset, size);
  }

  void set(std::ostringstream& step) {
    auto [offset, size] = range();
    const U32 value = static_cast<U32>(random_());
    step << "doSet(" << offset << ", " << value << ", " << size << ")";
    memory_->doSet(offset, value, size);
    std::fill_n(model_.local.begin() + offset, size, static_cast<U8>(value));
    model_.mirror(offset, size);
  }

  void copy(std::ostringstream& step) {
    const U32 size = uniform(0, kRegion / 2);
    const U32 first = uniform(0, kRegion - 2 * size);
    const U32 second = uniform(first + size, kRegion - size);
    const bool forward = chance(50);
    const U32 dst = forward ? second : first;
    const U32 src = forward ? first : second;
    step << "doCopy(" << dst << ", " << src << ", " << size << ")";
    memory_->doCopy(dst, src, size);
    std::copy_n(model_.local.begin() + src, size, model_.local.begin() + dst);
    model_.mirror(dst, size);
  }

  void toggleRemote(std::ostringstream& step) {
    if (model_.remoteMapped) {
      step << "unsetRemote()";
      memory_->unsetRemote();
    } else {
      step << "setRemote()";
      mapRemote();
    }
    model_.remoteMapped = !model_.remoteMapped;
  }

  void changeChunkSize(std::ostringstream& step, bool thenSync) {
    const U32 chunk = kChunkSizes[uniform(0, std::size(kChunkSizes) - 1)];
    step << "remoteCopyChunkSizeIs(" << chunk << ")" << (thenSync ? " doSync()" : "");
    memory_->remoteCopyChunkSizeIs(chunk);
    model_.chunk = chunk;
    if (!thenSync) return;
    memory_->doSync();
    model_.sync();
  }

  void touchBitmap(std::ostringstream& step) {
    const U64 key = uniform(0, kRegion / 256 / 8 + 1);
    switch (uniform(0, 9)) {
      case 0:
        step << "replicationStatusBitmapDelAll()";
        memory_->replicationStatusBitmapDelAll();
        model_.pending.clear();
        break;
      case 1:
      case 2:
      case 3:
        step << "replicationStatusBitmapDel(" << key << ")";
        memory_->replicationStatusBitmapDel(key);
        model_.bitmapIs(key, 0);
        break;
      default: {
        const U8 value = static_cast<U8>(random_());
        step << "replicationStatusBitmapIs(" << key << ", " << unsigned{value} << ")";
        memory_->replicationStatusBitmapIs(key, value);
        model_.bitmapIs(key, value);
      }
    }
  }

  void randomStep(std::ostringstream& step) {
    const U32 roll = uniform(0, 99);
    if (roll < 28) return write(step);
    if (roll < 38) return set(step);
    if (roll < 46) return copy(step);
    if (roll < 51) return toggleRemote(step);
    if (roll < 55) return changeChunkSize(step, true);
    if (roll < 57) return changeChunkSize(step, false);
    if (roll < 62) return touchBitmap(step);
    if (roll < 66) {
      step << "doSync()";
      memory_->doSync();
      return model_.sync();
    }
    step << "remoteCopyChunk()";
    memory_->remoteCopyChunk();
    model_.copyChunk();
  }

  std::set<U64> pendingInEntity() const {
    std::set<U64> chunks;
    for (const auto& [key, value] : memory_->replicationStatusBitmap()) {
      for (U64 bit = 0; bit < 8; ++bit) {
        if ((value >> bit) & 1) chunks.insert(key * 8 + bit);
      }
    }
    return chunks;
  }

  testing::AssertionResult agrees() const {
    if (std::memcmp(regions_.localBytes(), model_.local.data(), kRegion) != 0) {
      return testing::AssertionFailure() << "local memory differs";
    }
    if (std::memcmp(regions_.remoteBytes(), model_.remote.data(), kRegion) != 0) {
      return testing::AssertionFailure() << "remote memory differs";
    }
    if (pendingInEntity() != model_.pending) {
      return testing::AssertionFailure() << "pending chunks differ";
    }
    if (memory_->remoteCopyPending() != model_.copyPending) {
      return testing::AssertionFailure() << "remoteCopyPending is " << memory_->remoteCopyPending();
    }
    if (memory_->remoteMemoryReady() != model_.remoteMapped) {
      return testing::AssertionFailure() << "remoteMemoryReady differs";
    }
    return testing::AssertionSuccess();
  }

  Regions regions_{Regions::Kind::simulated, kRegion, kRegion};
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("model");
  std::mt19937 random_;
  Model model_;
  std::vector<U8> buffer_;
};

TEST_P(MorvikMemoryModelTest, RandomOperationsKeepBothCopiesAndThePendingSetAsModelled) {
  SCOPED_TRACE("seed " + std::to_string(GetParam()));
  for (int i = 0; i < kSteps; ++i) {
    std::ostringstream step;
    step << "step " << i << ": ";
    randomStep(step);
    ASSERT_TRUE(agrees()) << step.str();
    EXPECT_TRUE(memory_->ignoreChecksum());
  }

  if (!model_.remoteMapped) {
    mapRemote();
    model_.remoteMapped = true;
  }
  memory_->doSync();
  model_.sync();
  int passes = 0;
  do {
    memory_->remoteCopyChunk();
    model_.copyChunk();
    ASSERT_TRUE(agrees()) << "resync pass " << passes;
    ASSERT_LT(++passes, 1000);
  } while (memory_->remoteCopyPending());
  memory_->remoteCopyChunk();
  EXPECT_FALSE(memory_->remoteCopyPending()) << "stays false";
  EXPECT_EQ(std::memcmp(regions_.localBytes(), regions_.remoteBytes(), kRegion), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, MorvikMemoryModelTest,
                         testing::Values(1u, 2u, 3u, 5u, 8u, 13u, 21u, 34u));

}  // namespace
