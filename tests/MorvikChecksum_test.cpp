#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Morvik/Checksum.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"

namespace {

U64 fold(U64 checksum, const std::string& bytes) {
  return Morvik::addToChecksum(checksum, reinterpret_cast<std::uintptr_t>(bytes.data()),
                               static_cast<U32>(bytes.size()));
}

TEST(MorvikChecksum, FoldIsFixedSeededEmptyRangesLeaveItAloneAndTheComplementCancelsIt) {
  // The peer may run another build; both must keep folding alike.
  EXPECT_EQ(fold(0, "morvik"), 0x2ac67f3f606268b8ull);
  EXPECT_EQ(fold(0x2ac67f3f606268b8ull, "morvik"), 0xbd46d2ae30ad190full);
  EXPECT_NE(fold(fold(0, "ab"), "c"), fold(fold(0, "c"), "ab"));
  for (U64 seed : {0ull, 1ull, ~0ull}) {
    EXPECT_EQ(fold(seed, ""), seed);
    EXPECT_EQ(Morvik::addToChecksum(seed, 0, 0), seed);  // the address is not even looked at
  }
  std::string local(4096, 'x'), standby(local);
  EXPECT_EQ(fold(0, local), fold(0, standby));
  standby[4095] ^= 0x01;
  EXPECT_NE(fold(0, local), fold(0, standby));
  // The active publishes the complement beside the checksum: the two add up to zero.
  for (U64 v : {0ull, 1ull, 0x7FFF'FFFF'FFFF'FFFFull, 1ull << 63, 0xFFFF'FFFFull, ~0ull}) {
    EXPECT_EQ(v + Morvik::twosComplement(v), 0u) << v;
  }
}

TEST(MorvikChecksum, SummerAddsFeatureSizesIn32Bits) {
  const std::pair<std::vector<U64>, U32> cases[] = {
      {{}, 0}, {{4096, 8192, 1}, 12289}, {{0xFFFFFFFFull, 2}, 1}, {{0x1'0000'0005ull, 3}, 8}};
  for (const auto& [sizes, total] : cases) {
    auto manifest = Kel::allocate<Morvik::Manifest>("m");
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      const std::string name = "feature" + std::to_string(i);
      manifest->manifestIs(name, Kel::allocate<Morvik::FeatureManifest>(name, sizes[i], 0));
    }
    EXPECT_EQ(Morvik::morvikSummer(*manifest), total);
  }
}

}  // namespace
