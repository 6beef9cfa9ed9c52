// Long random sequences of operations on a memory entity over real mappings, checked after every
// step against plain byte arrays for both copies and a set of pending chunk indices. Odd seeds
// run on simulated regions, even ones through the hardware path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "MorvikLib/MorvikMemory.h"
#include "support/Regions.h"

namespace {

using MorvikTest::Regions;

constexpr U32 kRegion = 32 * 1024;
// Every one divides kRegion, so a whole chunk below the region's end never runs past it.
constexpr U32 kChunkSizes[] = {256, 512, 1024, 2048, 4096, 8192, 16384};

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
    U32 at = offset;
    do {
      const U32 next = std::min((at / chunk + 1) * chunk, offset + size);
      if (remoteMapped && next - at < chunk) {
        std::copy(local.begin() + at, local.begin() + next, remote.begin() + at);
      } else {
        pending.insert(at / chunk);
        copyPending = true;
      }
      at = next;
    } while (at < offset + size);
  }
  // The lowest pending chunk inside the region, one per call.
  void copyChunk() {
    const auto lowest = pending.begin();
    copyPending = remoteMapped && lowest != pending.end() && *lowest * chunk < kRegion;
    if (!copyPending) return;
    std::copy_n(local.begin() + *lowest * chunk, chunk, remote.begin() + *lowest * chunk);
    pending.erase(lowest);
  }
  void sync() { pending.clear(), mirror(0, remoteMapped ? kRegion : 0); }
  void bitmapIs(U64 key, U8 value) {
    for (U64 bit = 0; bit < 8; ++bit) pending.erase(key * 8 + bit);
    for (U64 bit = 0; bit < 8; ++bit)
      if ((value >> bit) & 1) pending.insert(key * 8 + bit);
  }
};

class MorvikMemoryModelTest : public testing::TestWithParam<unsigned> {
 protected:
  MorvikMemoryModelTest() { regions_.setLocal(*memory_), regions_.setRemote(*memory_); }

  U32 uniform(U32 low, U32 high) { return std::uniform_int_distribution<U32>(low, high)(random_); }

  // A length that is empty, short, about a chunk, or long, and an offset that fits it; a quarter
  // of them chunk-aligned, so whole chunks are written.
  std::pair<U32, U32> range() {
    const U32 kind = uniform(0, 9);
    const U32 most = kind < 4 ? 64 : kind < 7 ? std::min(2 * model_.chunk, kRegion) : kRegion;
    const U32 size = kind == 0 ? 0 : uniform(1, most);
    const U32 offset = uniform(0, kRegion - size);
    return {uniform(0, 3) ? offset : offset / model_.chunk * model_.chunk, size};
  }

  void change(U32 roll) {
    const auto [offset, size] = range();
    const U32 value = static_cast<U32>(random_());
    std::vector<U8> bytes(std::max<U32>(size, 1), static_cast<U8>(value));
    for (U8& byte : bytes) byte ^= static_cast<U8>(random_());
    if (roll < 38) {
      roll < 28 ? memory_->doWrite(offset, bytes.data(), size)
                : memory_->doSet(offset, value, size);
      if (roll >= 28) std::fill(bytes.begin(), bytes.end(), static_cast<U8>(value));
      std::copy_n(bytes.begin(), size, model_.local.begin() + offset);
      return model_.mirror(offset, size);
    }
    // Two ranges that do not overlap, copied either way.
    const U32 length = uniform(0, kRegion / 2);
    const U32 first = uniform(0, kRegion - 2 * length);
    const U32 second = uniform(first + length, kRegion - length);
    const U32 dst = uniform(0, 1) ? second : first;
    const U32 src = dst == first ? second : first;
    memory_->doCopy(dst, src, length);
    std::copy_n(model_.local.begin() + src, length, model_.local.begin() + dst);
    model_.mirror(dst, length);
  }

  void randomStep() {
    const U32 roll = uniform(0, 99);
    const U64 key = uniform(0, kRegion / 256 / 8 + 1);  // reaches past the region
    const U8 value = static_cast<U8>(random_());
    if (roll < 46) {
      change(roll);
    } else if (roll < 51) {
      model_.remoteMapped ? memory_->unsetRemote() : regions_.setRemote(*memory_);
      model_.remoteMapped = !model_.remoteMapped;
    } else if (roll < 57) {
      model_.chunk = kChunkSizes[uniform(0, std::size(kChunkSizes) - 1)];
      memory_->remoteCopyChunkSizeIs(model_.chunk);
    } else if (roll < 58) {
      memory_->replicationStatusBitmapDelAll();
      model_.pending.clear();
    } else if (roll < 62) {
      roll < 60 ? memory_->replicationStatusBitmapDel(key)
                : memory_->replicationStatusBitmapIs(key, value);
      model_.bitmapIs(key, roll < 60 ? 0 : value);
    } else if (roll < 70) {
      memory_->doSync();
      model_.sync();
    } else {
      memory_->remoteCopyChunk();
      model_.copyChunk();
    }
  }

  std::string differences() const {
    Model entity;
    for (const auto& [key, bits] : memory_->replicationStatusBitmap()) entity.bitmapIs(key, bits);
    std::string found;
    if (std::memcmp(regions_.localBytes(), model_.local.data(), kRegion)) found += " local";
    if (std::memcmp(regions_.remoteBytes(), model_.remote.data(), kRegion)) found += " remote";
    if (entity.pending != model_.pending) found += " pending";
    if (memory_->remoteCopyPending() != model_.copyPending) found += " remoteCopyPending";
    if (!memory_->ignoreChecksum()) found += " ignoreChecksum";
    return found;
  }

  Regions regions_{GetParam() % 2 ? Regions::Kind::simulated : Regions::Kind::device, kRegion,
                   kRegion};
  Kel::Ptr<MorvikLib::MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("model");
  std::mt19937 random_{GetParam()};
  Model model_;
};

TEST_P(MorvikMemoryModelTest, RandomOperationsKeepBothCopiesAndThePendingSetAsModelled) {
  SCOPED_TRACE("seed " + std::to_string(GetParam()));
  for (int step = 0; step < 2500; ++step) {
    randomStep();
    ASSERT_EQ(differences(), "") << "step " << step;
  }
  if (!model_.remoteMapped) regions_.setRemote(*memory_);
  model_.remoteMapped = true;
  memory_->doSync();
  model_.sync();
  for (int pass = 0; pass == 0 || memory_->remoteCopyPending(); ++pass) {
    memory_->remoteCopyChunk();
    model_.copyChunk();
    ASSERT_EQ(differences(), "") << "resync pass " << pass;
  }
  EXPECT_EQ(std::memcmp(regions_.localBytes(), regions_.remoteBytes(), kRegion), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, MorvikMemoryModelTest, testing::Values(1u, 2u, 3u, 5u, 8u, 13u));

}  // namespace
