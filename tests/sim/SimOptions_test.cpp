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

std::string errorOf(const std::string& args) {
  try {
    parse(args);
  } catch (const UsageError& e) {
    return e.what();
  }
  return "(accepted)";
}

TEST(SimOptions, ValuesInlineOrSeparateAndFaultsReplaceTheDefaults) {
  const SimOptions o = parse(
      "--duration=20m --audit-interval 500ms --seed=9 --switchover-at 15m --json --csv t.csv "
      "--feature a:0x10K --feature b:1M --mix small=1,table=2,set=0,copy=3 --chunk-sizes 4K,16K "
      "--fault corrupt@5m,feature=b,offset=0x10 --fault away@10m,for=1m,record=null");
  EXPECT_DOUBLE_EQ(o.duration + o.auditInterval, 1200.5);
  EXPECT_DOUBLE_EQ(o.switchoverTime(), 900.0);
  EXPECT_TRUE(o.json && o.seed == 9 && o.csvFile == "t.csv");
  ASSERT_EQ(o.features.size(), 2u) << "the first --feature replaces the default layout";
  EXPECT_EQ(o.features[1].size, 1u << 20);
  EXPECT_DOUBLE_EQ(o.mix.copy, 3.0);
  EXPECT_EQ(o.chunkSizes, (std::vector<U32>{4096, 16384}));
  EXPECT_FALSE(o.usesDefaultFaults());
  ASSERT_EQ(o.faults.size(), 2u);
  EXPECT_TRUE(o.faults[0].kind == Fault::Kind::corrupt && o.faults[0].offset == 16u);
  EXPECT_DOUBLE_EQ(o.faults[0].at + o.faults[1].duration, 360.0);
  EXPECT_TRUE(o.faults[1].nullRecord);
  EXPECT_TRUE(parse("--faults default --fault chunk@30m").usesDefaultFaults());
  EXPECT_TRUE(parse("").usesDefaultFaults());
}

// Every refusal is one line that names what is wrong.
TEST(SimOptions, BadOptionsAreRefusedOnOneLineWithTheReason) {
  const struct {
    const char* args;
    const char* message;
  } cases[] = {
      {"--bogus", "unknown option '--bogus'"},
      {"--small-max 12abc", "bad size '12abc'"},
      {"--feature a:17179869184G", "bad size '17179869184G'"},
      {"--duration 1e999", "bad"},
      {"--duration", "option --duration needs a value"},
      {"--duration 0", "--duration must be more than 0 s"},
      {"--switchover-at 2h", "--switchover-at must lie within the run"},
      {"--rate -1", "bad number '-1'"},
      {"--mix small=0,table=0,set=0,copy=0", "--mix gives every operation weight 0"},
      {"--mix huge=1", "unknown operation 'huge'"},
      {"--locality 1.5", "--locality is a share between 0 and 1"},
      {"--faults some", "bad --faults 'some'"},
      {"--feature nocolon", "bad feature 'nocolon'"},
      {"--feature a:1000",
       "manifest refused: feature 'a' is 1000 bytes, not a multiple of the 4096-byte chunk size"},
      {"--feature a:64K --feature a:64K", "feature 'a' is listed twice"},
      {"--chunk-sizes 3000", "chunk size 3000 is not a power of two"},
      {"--fault leak@5m", "unknown fault kind 'leak'"},
      {"--fault corrupt@5m,for=1m", "bad item 'for=1m' for a corrupt fault"},
      {"--fault corrupt@5m,feature=nope", "no feature 'nope'"},
      {"--fault corrupt@5m,feature=counters,offset=64K", "offset 65536 is outside 'counters'"},
      {"--fault chunk@5m,size=128K", "not a multiple of the 131072-byte chunk size"},
      {"--fault away@59m", "lasts past the switchover"},
      {"--duration 10m", "the default faults need a run of at least 15m00s"},
      {"--csv -", "--csv and --plot write files"},
      {"--help --bogus", "unknown option '--bogus'"}};
  for (const auto& c : cases) {
    const std::string error = errorOf(c.args);
    EXPECT_NE(error.find(c.message), std::string::npos) << c.args << ": " << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
  EXPECT_EQ(errorOf("--duration 10m --faults none"), "(accepted)");
  EXPECT_TRUE(parse("-h").help);
}

// The copier and the audit work in whole chunks: a manifest whose features are not whole chunks
// of every size the run uses is refused before anything starts.
TEST(SimLayout, FeaturesLieBackToBackInWholeChunksOfEverySize) {
  const Layout layout({{"a", 8192}, {"b", 65536}, {"c", 16384}}, {4096, 8192});
  EXPECT_EQ(layout.offset(2), 73728u);
  EXPECT_EQ(layout.total(), 90112u);
  EXPECT_EQ(layout.find("z"), 3u);
  EXPECT_THROW(Layout({{"a", 8192}}, {4096, 16384}), UsageError);
  EXPECT_THROW(Layout({{"a", 0}}, {4096}), UsageError);
  EXPECT_THROW(Layout({}, {4096}), UsageError);
  const U32 half = static_cast<U32>(Layout::kMaxTotal / 2);
  EXPECT_NO_THROW(Layout({{"a", half}, {"b", half}}, {4096}));
  EXPECT_THROW(Layout({{"a", half}, {"b", half}, {"c", 4096}}, {4096}), UsageError);
  for (U64 size : {64, 16 << 20}) EXPECT_NO_THROW(Layout::checkChunkSize(size)) << size;
  for (U64 size : {32, 96, 32 << 20}) EXPECT_THROW(Layout::checkChunkSize(size), UsageError);
}

}  // namespace
}  // namespace MorvikSim
