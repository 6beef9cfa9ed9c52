#include <gtest/gtest.h>

#include "CopyMath.h"
#include "HotZones.h"
#include "Layout.h"
#include "UsageError.h"

namespace MorvikSim {
namespace {

TEST(SimLayout, FeaturesLieBackToBack) {
  const Layout layout({{"a", 8192}, {"b", 65536}, {"c", 4096}}, {4096});
  ASSERT_EQ(layout.features(), 3u);
  EXPECT_EQ(layout.offset(0), 0u);
  EXPECT_EQ(layout.offset(1), 8192u);
  EXPECT_EQ(layout.offset(2), 73728u);
  EXPECT_EQ(layout.total(), 77824u);
  EXPECT_EQ(layout.find("b"), 1u);
  EXPECT_EQ(layout.find("z"), 3u);
}

// The copier and the audit work in whole chunks: a feature must be a whole number of chunks of
// every size the run uses, or the manifest is refused before anything starts.
TEST(SimLayout, RefusesFeaturesThatAreNotWholeChunks) {
  EXPECT_NO_THROW(Layout({{"a", 16384}}, {4096, 16384}));
  EXPECT_THROW(Layout({{"a", 8192}}, {4096, 16384}), UsageError);
  EXPECT_THROW(Layout({{"a", 4097}}, {4096}), UsageError);
  EXPECT_THROW(Layout({{"a", 0}}, {4096}), UsageError);
  EXPECT_THROW(Layout({}, {4096}), UsageError);
  EXPECT_THROW(Layout({{"a", 4096}}, {}), UsageError);
}

TEST(SimLayout, ChunkSizesArePowersOfTwoInRange) {
  const struct {
    U64 size;
    bool ok;
  } cases[] = {{32, false},
               {64, true},
               {96, false},
               {4096, true},
               {16 << 20, true},
               {32 << 20, false},
               {(16 << 20) + 64, false}};
  for (const auto& c : cases) {
    if (c.ok) {
      EXPECT_NO_THROW(Layout::checkChunkSize(c.size)) << c.size;
    } else {
      EXPECT_THROW(Layout::checkChunkSize(c.size), UsageError) << c.size;
    }
  }
}

TEST(SimLayout, RefusesMoreThanTheLargestMirror) {
  const U32 half = static_cast<U32>(Layout::kMaxTotal / 2);
  EXPECT_NO_THROW(Layout({{"a", half}, {"b", half}}, {4096}));
  EXPECT_THROW(Layout({{"a", half}, {"b", half}, {"c", 4096}}, {4096}), UsageError);
}

// The library's own rule, on the examples it documents: a piece is copied at once when the peer's
// memory is mapped and the piece is shorter than a chunk.
TEST(SimCopyMath, DirectBytesFollowTheChunkCut) {
  const struct {
    U32 offset, size, chunk;
    bool mapped;
    U64 direct;
  } cases[] = {
      {4000, 100, 4096, true, 100},      // 96 + 4 bytes, both short pieces
      {8192, 4096, 4096, true, 0},       // a whole chunk is left to the copier
      {0, 10000, 4096, true, 1808},      // two whole chunks, then 1808 bytes
      {100, 10000, 4096, false, 0},      // nothing goes at once while the peer is unmapped
      {4096, 0, 4096, true, 0},          // an empty write copies nothing
      {16380, 8, 16384, true, 8},        // crossing a 16 KiB boundary
      {100, 16384, 16384, true, 16384},  // two short pieces around a boundary
      {0, 3 * 4096, 4096, true, 0},      // three whole chunks
  };
  for (const auto& c : cases) {
    EXPECT_EQ(directCopyBytes(c.offset, c.size, c.chunk, c.mapped), c.direct)
        << c.offset << "+" << c.size << " in chunks of " << c.chunk;
  }
}

TEST(SimHotZones, AreWholeLargestChunksInsideTheirFeature) {
  SimOptions options;
  options.features = {{"a", 1u << 20}, {"b", 64u << 10}, {"c", 16u << 10}};
  options.chunkSizes = {4096, 16384};
  const Layout layout(options.features, options.chunkSizes);
  for (U64 seed : {1, 2, 3, 99}) {
    options.seed = seed;
    const auto zones = hotZones(options, layout);
    ASSERT_EQ(zones.size(), 3u);
    EXPECT_EQ(zones[0].size, (1u << 20) / 8);
    EXPECT_EQ(zones[1].size, 16384u);  // an eighth would be less than the largest chunk
    EXPECT_EQ(zones[2].size, 16384u);  // the whole feature
    for (std::size_t f = 0; f < zones.size(); ++f) {
      EXPECT_EQ(zones[f].start % 16384, 0u);
      EXPECT_LE(zones[f].start + zones[f].size, layout.size(f));
    }
  }
}

TEST(SimHotZones, ColdOffsetsAvoidTheZoneAndReachEveryOtherByte) {
  const HotZone zone{4096, 4096};
  std::vector<int> seen(16384, 0);
  for (U64 draw = 0; draw < 3 * 12288; ++draw) ++seen[coldOffset(zone, 16384, draw)];
  for (U32 i = 0; i < 16384; ++i) {
    EXPECT_EQ(seen[i] > 0, !zone.contains(i)) << i;
  }
  // A zone that is the whole feature leaves nothing cold: any byte will do.
  EXPECT_LT(coldOffset(HotZone{0, 4096}, 4096, 123456), 4096u);
}

}  // namespace
}  // namespace MorvikSim
