#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Options.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {
namespace {

SimOptions parse(const std::vector<std::string>& args) {
  std::vector<const char*> argv{"morvik_sim"};
  for (const std::string& a : args) argv.push_back(a.c_str());
  return parseOptions(static_cast<int>(argv.size()), argv.data());
}

std::string errorOf(const std::vector<std::string>& args) {
  try {
    parse(args);
  } catch (const UsageError& e) {
    return e.what();
  }
  return "(accepted)";
}

TEST(SimUnits, BytesTakeBinarySuffixesAndHex) {
  const struct {
    const char* text;
    U64 bytes;
  } cases[] = {{"4096", 4096},     {"64K", 65536}, {"64k", 65536}, {"1M", 1u << 20},
               {"2G", 2ULL << 30}, {"0x100", 256}, {"0", 0},       {"0x10K", 16384}};
  for (const auto& c : cases) EXPECT_EQ(parseBytes(c.text), c.bytes) << c.text;
}

TEST(SimUnits, BadBytesNameTheWholeText) {
  for (const char* text :
       {"", "K", "-1", "+1", "1.5K", "12abc", " 12", "99999999999999999999", "17179869184G"}) {
    try {
      parseBytes(text);
      ADD_FAILURE() << "accepted '" << text << "'";
    } catch (const UsageError& e) {
      EXPECT_EQ(std::string(e.what()), std::string("bad size '") + text + "'");
    }
  }
}

TEST(SimUnits, SecondsTakeUnits) {
  const struct {
    const char* text;
    double seconds;
  } cases[] = {{"500ms", 0.5}, {"90s", 90}, {"90", 90}, {"15m", 900}, {"1.5h", 5400}, {"0", 0}};
  for (const auto& c : cases) EXPECT_DOUBLE_EQ(parseSeconds(c.text), c.seconds) << c.text;
  for (const char* text : {"", "s", "m", "-5s", "5x", "5xs", "nan", "inf", "1e999"}) {
    EXPECT_THROW(parseSeconds(text), UsageError) << text;
  }
}

TEST(SimUnits, FormatsForPeople) {
  EXPECT_EQ(formatBytes(512), "512 B");
  EXPECT_EQ(formatBytes(65536), "64 KiB");
  EXPECT_EQ(formatBytes(1900544), "1.81 MiB");
  EXPECT_EQ(formatSeconds(0.34), "340 ms");
  EXPECT_EQ(formatSeconds(12.5), "12.5 s");
  EXPECT_EQ(formatSeconds(330), "5m30s");
  EXPECT_EQ(formatSeconds(3600), "1h00m00s");
  EXPECT_EQ(formatNanoseconds(312), "312 ns");
  EXPECT_EQ(formatNanoseconds(4100), "4.1 us");
  EXPECT_EQ(formatNanoseconds(2.3e6), "2.3 ms");
}

TEST(SimOptions, DefaultsAreTheDemonstration) {
  const SimOptions o = parse({});
  EXPECT_DOUBLE_EQ(o.duration, 3600.0);
  EXPECT_DOUBLE_EQ(o.switchoverTime(), 3600.0);
  EXPECT_DOUBLE_EQ(o.auditInterval, 60.0);
  ASSERT_EQ(o.features.size(), 4u);
  EXPECT_EQ(o.features[0].size, 1u << 20);
  EXPECT_EQ(o.features[3].size, 64u << 10);
  EXPECT_TRUE(o.usesDefaultFaults());
  EXPECT_FALSE(o.realTime);
  EXPECT_FALSE(o.json);
}

TEST(SimOptions, ValuesInlineOrSeparate) {
  const SimOptions o = parse({"--duration=20m", "--audit-interval", "10s", "--rate", "50",
                              "--seed=9", "--switchover-at", "15m", "--real-time", "--json",
                              "--csv", "t.csv", "--plot=t.png", "--vmid", "v1", "--nosync"});
  EXPECT_DOUBLE_EQ(o.duration, 1200.0);
  EXPECT_DOUBLE_EQ(o.auditInterval, 10.0);
  EXPECT_DOUBLE_EQ(o.rate, 50.0);
  EXPECT_EQ(o.seed, 9u);
  EXPECT_DOUBLE_EQ(o.switchoverTime(), 900.0);
  EXPECT_TRUE(o.realTime && o.json && o.nosync);
  EXPECT_EQ(o.csvFile, "t.csv");
  EXPECT_EQ(o.plotFile, "t.png");
  EXPECT_EQ(o.vmid, "v1");
}

TEST(SimOptions, FirstFeatureReplacesTheDefaultLayout) {
  const SimOptions o = parse({"--feature", "a:64K", "--feature", "b:1M"});
  ASSERT_EQ(o.features.size(), 2u);
  EXPECT_EQ(o.features[0].name, "a");
  EXPECT_EQ(o.features[1].size, 1u << 20);
}

TEST(SimOptions, MixAndChunkSizes) {
  const SimOptions o =
      parse({"--mix", "small=1,table=2,set=0,copy=3", "--chunk-sizes", "4K,8K,16K"});
  EXPECT_DOUBLE_EQ(o.mix.small, 1.0);
  EXPECT_DOUBLE_EQ(o.mix.table, 2.0);
  EXPECT_DOUBLE_EQ(o.mix.set, 0.0);
  EXPECT_DOUBLE_EQ(o.mix.copy, 3.0);
  EXPECT_EQ(o.chunkSizes, (std::vector<U32>{4096, 8192, 16384}));
}

TEST(SimOptions, FaultsReplaceTheDefaultScheduleUnlessAskedToKeepIt) {
  const SimOptions explicitOnly = parse({"--fault", "corrupt@5m,feature=routes,offset=0x10"});
  EXPECT_FALSE(explicitOnly.usesDefaultFaults());
  ASSERT_EQ(explicitOnly.faults.size(), 1u);
  const Fault& f = explicitOnly.faults[0];
  EXPECT_EQ(f.kind, Fault::Kind::corrupt);
  EXPECT_DOUBLE_EQ(f.at, 300.0);
  EXPECT_EQ(f.feature, "routes");
  EXPECT_EQ(f.offset, 16u);

  EXPECT_TRUE(parse({"--faults", "default", "--fault", "chunk@30m,size=16K"}).usesDefaultFaults());
  EXPECT_FALSE(parse({"--faults", "none"}).usesDefaultFaults());

  const SimOptions lasting =
      parse({"--fault", "silent@10m,for=7m", "--fault", "away@20m,for=1m,record=null", "--fault",
             "chunk@30m,size=16K"});
  EXPECT_DOUBLE_EQ(lasting.faults[0].duration, 420.0);
  EXPECT_TRUE(lasting.faults[1].nullRecord);
  EXPECT_EQ(lasting.faults[2].chunkSize, 16384u);
}

// Every refusal is one line that names what is wrong.
TEST(SimOptions, BadOptionsAreRefusedWithTheReason) {
  const struct {
    std::vector<std::string> args;
    const char* message;
  } cases[] = {
      {{"--bogus"}, "unknown option '--bogus'"},
      {{"extra"}, "unexpected argument 'extra'"},
      {{"--duration"}, "option --duration needs a value"},
      {{"--json=yes"}, "option --json takes no value"},
      {{"--duration", "0"}, "--duration must be more than 0 s"},
      {{"--switchover-at", "2h"}, "--switchover-at must lie within the run"},
      {{"--rate", "-1"}, "bad number '-1'"},
      {{"--rate", "2000000"}, "--rate above"},
      {{"--mix", "small=0,table=0,set=0,copy=0"}, "--mix gives every operation weight 0"},
      {{"--mix", "huge=1"}, "unknown operation 'huge'"},
      {{"--locality", "1.5"}, "--locality is a share between 0 and 1"},
      {{"--small-max", "0"}, "--small-max must lie between 1"},
      {{"--faults", "some"}, "bad --faults 'some'"},
      {{"--feature", "nocolon"}, "bad feature 'nocolon'"},
      {{"--feature", "a:1000"},
       "manifest refused: feature 'a' is 1000 bytes, not a multiple of the 4096-byte chunk size"},
      {{"--feature", "a:64K", "--feature", "a:64K"}, "feature 'a' is listed twice"},
      {{"--feature", "a+b:64K"}, "may not contain"},
      {{"--chunk-sizes", "3000"}, "chunk size 3000 is not a power of two"},
      {{"--fault", "leak@5m"}, "unknown fault kind 'leak'"},
      {{"--fault", "corrupt5m"}, "bad fault 'corrupt5m'"},
      {{"--fault", "corrupt@5m,for=1m"}, "bad item 'for=1m' for a corrupt fault"},
      {{"--fault", "corrupt@5m,feature=nope"}, "no feature 'nope'"},
      {{"--fault", "corrupt@5m,offset=4"}, "an offset needs a feature"},
      {{"--fault", "corrupt@5m,feature=counters,offset=64K"}, "offset 65536 is outside 'counters'"},
      {{"--fault", "chunk@5m,size=128K"}, "not a multiple of the 131072-byte chunk size"},
      {{"--fault", "away@59m"}, "lasts past the switchover"},
      {{"--fault", "silent@2h"}, "comes after the switchover"},
      {{"--duration", "10m"}, "the default faults need a run of at least 15m00s"},
      {{"--csv", "-"}, "--csv and --plot write files"},
  };
  for (const auto& c : cases) {
    const std::string error = errorOf(c.args);
    EXPECT_NE(error.find(c.message), std::string::npos) << c.args[0] << ": " << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(SimOptions, ShortRunsWithoutDefaultFaultsAreFine) {
  EXPECT_EQ(errorOf({"--duration", "10m", "--faults", "none"}), "(accepted)");
  EXPECT_EQ(errorOf({"--duration", "10m", "--audit-interval", "30s"}), "(accepted)");
}

TEST(SimOptions, HelpExplainsEveryOption) {
  const std::string help = usageText();
  for (const char* option :
       {"--duration",       "--switchover-at", "--real-time",   "--seed",      "--feature",
        "--chunk-sizes",    "--rate",          "--mix",         "--small-max", "--locality",
        "--audit-interval", "--faults",        "--corruptions", "--fault",     "--nosync",
        "--json",           "--csv",           "--plot",        "--sample",    "--quiet",
        "--vmid",           "--help"}) {
    EXPECT_NE(help.find(option), std::string::npos) << option;
  }
  // A bad option next to --help is still refused: the user sees what was wrong.
  EXPECT_NE(errorOf({"--help", "--bogus"}), "(accepted)");
  EXPECT_TRUE(parse({"-h"}).help);
}

}  // namespace
}  // namespace MorvikSim
