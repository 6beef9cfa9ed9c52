#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Layout.h"
#include "Options.h"
#include "UsageError.h"

namespace MorvikSim {
namespace {

// The words of `args`, split at blanks, as the command line.
SimOptions parse(const std::string& args) {
  std::istringstream words(args);
  std::vector<std::string> kept{"morvik_sim"};
  for (std::string word; words >> word;) kept.push_back(word);
  std::vector<const char*> argv;
  for (const std::string& word : kept) argv.push_back(word.c_str());
  return parseOptions(static_cast<int>(argv.size()), argv.data());
}

TEST(SimOptions, ValuesInlineOrSeparateAndFaultsReplaceTheDefaults) {
  const SimOptions o = parse(
      "--duration=20m --audit-interval 500ms --seed=9 --switchover-at 15m --json --csv t.csv "
      "--feature a:016K --feature b:1M --mix small=1,table=2,copy=3 --chunk-sizes 4K,16K "
      "--fault corrupt@5m,feature=b,offset=016 --fault away@10m,for=1m,record=null");
  EXPECT_DOUBLE_EQ(o.duration + o.auditInterval, 1200.5);
  EXPECT_DOUBLE_EQ(o.switchoverTime(), 900.0);
  EXPECT_TRUE(o.json && o.seed == 9 && o.csvFile == "t.csv");
  ASSERT_EQ(o.features.size(), 2u) << "the first --feature replaces the default layout";
  EXPECT_EQ(o.features[1].size, 1u << 20);
  EXPECT_DOUBLE_EQ(o.mix.copy + o.mix.set, 3.0) << "a kind left out weighs 0";
  EXPECT_EQ(o.chunkSizes, (std::vector<U32>{4096, 16384}));
  EXPECT_FALSE(o.usesDefaultFaults());
  ASSERT_EQ(o.faults.size(), 2u);
  EXPECT_TRUE(o.faults[0].kind == Fault::Kind::corrupt && o.faults[0].offset == 16u)
      << "decimal, a leading 0 included";
  EXPECT_DOUBLE_EQ(o.faults[0].at + o.faults[1].duration, 360.0);
  EXPECT_TRUE(o.faults[1].nullRecord);
  EXPECT_TRUE(parse("--faults default --fault chunk@30m").usesDefaultFaults());
  EXPECT_DOUBLE_EQ(parse("--audit-interval 5m").duration, 4500.0)
      << "without --duration, a run grows to the 15 audit intervals the default faults need";
  EXPECT_DOUBLE_EQ(parse("--audit-interval 5m --faults none").duration, 3600.0);
  EXPECT_EQ(parse("--seed 010 --seed 011").seed, 11u) << "decimal, and the last one counts";
  EXPECT_TRUE(parse("--help --bogus").help);
}

// The copier and the audit work in whole chunks: a manifest whose features are not whole chunks
// of every size the run uses is refused before anything starts.
TEST(SimLayout, FeaturesLieBackToBackInWholeChunksOfEverySize) {
  const Layout layout({{"a", 8192}, {"b", 65536}, {"c", 16384}}, {4096, 8192});
  EXPECT_EQ(layout.offset(2), 73728u);
  EXPECT_EQ(layout.total(), 90112u);
  EXPECT_THROW(Layout({{"a", 0}}, {4096}), UsageError);
  EXPECT_THROW(Layout({}, {4096}), UsageError);
  const U32 half = static_cast<U32>(Layout::kMaxTotal / 2);
  EXPECT_NO_THROW(Layout({{"a", half}, {"b", half}}, {4096}));
  EXPECT_THROW(Layout({{"a", half}, {"b", half}, {"c", 4096}}, {4096}), UsageError);
  for (U64 size : {64, 16 << 20}) EXPECT_NO_THROW(Layout::checkChunkSize(size)) << size;
  for (U64 size : {32, 96, 32 << 20}) EXPECT_THROW(Layout::checkChunkSize(size), UsageError);
  EXPECT_THROW(Layout({{"a b", 4096}}, {4096}), UsageError);
}

}  // namespace
}  // namespace MorvikSim
