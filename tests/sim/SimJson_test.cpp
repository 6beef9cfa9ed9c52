#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "JsonWriter.h"
#include "Report.h"
#include "TimelineCsv.h"

namespace MorvikSim {
namespace {

TEST(SimJson, QuotesEverythingJsonCannotHoldRaw) {
  EXPECT_EQ(JsonWriter::quote("plain"), "\"plain\"");
  EXPECT_EQ(JsonWriter::quote("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(JsonWriter::quote("line\nnext\ttab\r"), "\"line\\nnext\\ttab\\r\"");
  EXPECT_EQ(JsonWriter::quote(std::string("\x01\x1f", 2)), "\"\\u0001\\u001f\"");
  EXPECT_EQ(JsonWriter::quote("caf\xc3\xa9"), "\"caf\xc3\xa9\"");
}

TEST(SimJson, OneMemberPerLine) {
  std::ostringstream out;
  JsonWriter j(out);
  j.beginObject().field("n", U64{3}).field("ok", true).key("list").beginArray();
  j.value("x").value(1.5).endArray().key("empty").beginObject().endObject();
  j.field("bad", std::numeric_limits<double>::quiet_NaN()).field("neg", -2).endObject();
  EXPECT_EQ(out.str(),
            "{\n"
            "  \"n\": 3,\n"
            "  \"ok\": true,\n"
            "  \"list\": [\n"
            "    \"x\",\n"
            "    1.5\n"
            "  ],\n"
            "  \"empty\": {},\n"
            "  \"bad\": null,\n"
            "  \"neg\": -2\n"
            "}\n");
}

// Events are filed under the first sample at or after them, and quotes in them are doubled.
TEST(SimTimelineCsv, FilesEventsUnderTheirSample) {
  Report r;
  Sample s;
  s.t = 0.0;
  r.samples.push_back(s);
  s.t = 10.0;
  s.bytesMirrored = 4096;
  s.mirroredInPeriod = 4096;
  s.pendingPeak = 3;
  r.samples.push_back(s);
  s.t = 20.0;
  s.mirroredInPeriod = 0;
  r.samples.push_back(s);
  r.events = {{0.0, true, "start"}, {5.0, true, "corrupt a+0x1"}, {10.0, false, "say \"hi\""}};
  std::ostringstream out;
  writeTimelineCsv(out, r);
  std::istringstream lines(out.str());
  std::string header, first, second, third;
  std::getline(lines, header);
  std::getline(lines, first);
  std::getline(lines, second);
  std::getline(lines, third);
  EXPECT_EQ(header.substr(0, 20), "time_s,pending_chunk");
  EXPECT_EQ(first, "0.000,0,0,0,0,0,0,0,0,0,\"start\"");
  EXPECT_EQ(second, "10.000,0,3,4096,409,0,0,0,0,0,\"corrupt a+0x1; say \"\"hi\"\"\"");
  EXPECT_EQ(third, "20.000,0,3,4096,0,0,0,0,0,0,\"\"");
}

TEST(SimChecks, APassingRunHasNoFailures) {
  Report r;
  r.atRest.standbyPresent = true;
  evaluateChecks(r);
  EXPECT_TRUE(r.passed());
  EXPECT_TRUE(r.note.empty());
}

TEST(SimChecks, EachBrokenPromiseGetsItsOwnLine) {
  Report r;
  r.auditInterval = 60.0;
  r.switchoverAt = 3600.0;
  r.nosync = true;
  r.atRest.differingBytes = 5;
  r.atRest.differingChunks = 2;
  r.atRest.corruptBytes = 1;
  r.atSwitchover.unaccountedChunks = 1;
  r.audit.unexplainedRepairs = 2;
  Corruption neverFound;
  neverFound.injectedAt = 3590.0;
  Corruption foundNotRepaired;
  foundNotRepaired.foundByAudit = true;
  r.corruptionList = {neverFound, foundNotRepaired};
  r.corruptions.failedHeals[static_cast<int>(HealCause::audit)] = 1;
  r.corruptions.failedHeals[static_cast<int>(HealCause::chunkChange)] = 3;
  evaluateChecks(r);
  const std::vector<std::string> want{
      "the copies differed after the copier came to rest: 5 bytes in 2 chunks (1 of them injected "
      "corruptions)",
      "1 corruption was never found (the last injected 10.0 s before the switchover; audits run "
      "every 1m00s)",
      "1 corruption found by the audit but never repaired",
      "the audit's repair left the corruption it found in place once",
      "the resync after a chunk-size change left a corruption in place 3 times",
      "the audit repaired 2 mismatches that no injected corruption explains",
      "1 chunk of the standby's copy were stale at the switchover without being pending: the "
      "mirror lost writes",
  };
  EXPECT_EQ(r.failures, want);
  EXPECT_EQ(r.note, "NOSYNC_MORVIK is set, so every resync did nothing");
}

}  // namespace
}  // namespace MorvikSim
