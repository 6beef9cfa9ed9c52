#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "Kel/Allocate.h"
#include "Morvik/Checksum.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"

namespace {

U64 addressOf(const void* bytes) {
  return reinterpret_cast<std::uintptr_t>(bytes);
}

U64 fold(U64 checksum, const std::vector<unsigned char>& bytes) {
  return Morvik::addToChecksum(checksum, addressOf(bytes.data()), static_cast<U32>(bytes.size()));
}

TEST(MorvikChecksum, EmptyRangeLeavesTheChecksumAlone) {
  unsigned char byte = 0x5A;
  for (U64 seed : {0ull, 1ull, 0x8000'0000'0000'0000ull, ~0ull}) {
    EXPECT_EQ(Morvik::addToChecksum(seed, addressOf(&byte), 0), seed);
    // The address is not even looked at.
    EXPECT_EQ(Morvik::addToChecksum(seed, 0, 0), seed);
  }
}

TEST(MorvikChecksum, FoldIsFixedAcrossBuilds) {
  // The peer may run another build; both must keep folding alike.
  const char text[] = "morvik";
  U64 first = Morvik::addToChecksum(0, addressOf(text), 6);
  EXPECT_EQ(first, 0x2ac67f3f606268b8ull);
  EXPECT_EQ(Morvik::addToChecksum(first, addressOf(text), 6), 0xbd46d2ae30ad190full);
}

TEST(MorvikChecksum, EqualBytesAnywhereGiveEqualChecksums) {
  std::vector<unsigned char> local(4096);
  for (std::size_t i = 0; i < local.size(); ++i) local[i] = static_cast<unsigned char>(i * 7);
  std::vector<unsigned char> standby(local);
  ASSERT_NE(local.data(), standby.data());
  EXPECT_EQ(fold(0, local), fold(0, standby));
  EXPECT_EQ(fold(fold(0, local), local), fold(fold(0, standby), standby));

  standby[4095] ^= 0x01;
  EXPECT_NE(fold(0, local), fold(0, standby));
}

TEST(MorvikChecksum, OrderOfFoldsMatters) {
  std::vector<unsigned char> a(16, 0x11), b(8, 0x22);
  U64 ab = fold(fold(0, a), b);
  U64 ba = fold(fold(0, b), a);
  EXPECT_NE(ab, ba);
  // A range folded into a running checksum differs from the same range started afresh.
  EXPECT_NE(fold(0, b), ab);
  EXPECT_NE(fold(0, a), 0u);
}

TEST(MorvikChecksum, TwosComplementCancels) {
  const U64 values[] = {0,
                        1,
                        2,
                        0x7FFF'FFFF'FFFF'FFFFull,
                        0x8000'0000'0000'0000ull,
                        0xFFFF'FFFFull,
                        0x1'0000'0000ull,
                        ~0ull,
                        0x2ac67f3f606268b8ull};
  for (U64 v : values) {
    SCOPED_TRACE(v);
    EXPECT_EQ(v + Morvik::twosComplement(v), 0u);
    EXPECT_EQ(Morvik::twosComplement(Morvik::twosComplement(v)), v);
  }
  EXPECT_EQ(Morvik::twosComplement(0), 0u);
  EXPECT_EQ(Morvik::twosComplement(1ull << 63), 1ull << 63);
  EXPECT_EQ(Morvik::twosComplement(1), ~0ull);
}

Kel::Ptr<Morvik::Manifest> manifestOf(const std::vector<U64>& sizes) {
  Kel::Ptr<Morvik::Manifest> manifest = Kel::allocate<Morvik::Manifest>("m");
  U64 offset = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    std::string name = "feature" + std::to_string(i);
    manifest->manifestIs(name, Kel::allocate<Morvik::FeatureManifest>(name, sizes[i], offset));
    offset += sizes[i];
  }
  return manifest;
}

TEST(MorvikChecksum, SummerAddsFeatureSizesIn32Bits) {
  struct Case {
    std::vector<U64> sizes;
    U32 total;
  };
  const Case cases[] = {
      {{}, 0},
      {{4096}, 4096},
      {{4096, 8192, 1}, 12289},
      {{0xFFFFFFFFull, 2}, 1},
      {{0x8000'0000ull, 0x8000'0000ull}, 0},
      {{0x1'0000'0005ull, 3}, 8},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.total);
    Kel::Ptr<Morvik::Manifest> manifest = manifestOf(c.sizes);
    EXPECT_EQ(Morvik::morvikSummer(*manifest), c.total);
    EXPECT_EQ(Morvik::morvikSummer(Kel::Ptr<Morvik::Manifest const>(manifest)), c.total);
  }
  EXPECT_EQ(Morvik::morvikSummer(Kel::Ptr<Morvik::Manifest const>()), 0u);
}

TEST(MorvikChecksum, SummerFollowsTheManifest) {
  Kel::Ptr<Morvik::Manifest> manifest = manifestOf({100, 200});
  manifest->manifestIs("late", Kel::allocate<Morvik::FeatureManifest>("late", 50, 300));
  EXPECT_EQ(Morvik::morvikSummer(*manifest), 350u);
  manifest->manifestDel("feature0");
  EXPECT_EQ(Morvik::morvikSummer(*manifest), 250u);
}

}  // namespace
