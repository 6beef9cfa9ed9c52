#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "DefaultSchedule.h"
#include "HotZones.h"
#include "Layout.h"

namespace MorvikSim {
namespace {

using Kind = Fault::Kind;

std::vector<Fault> scheduleFor(const SimOptions& options) {
  return faultSchedule(options, Layout(options.features, options.chunkSizes));
}

std::vector<Fault> ofKind(const std::vector<Fault>& all, Kind kind) {
  std::vector<Fault> out;
  for (const Fault& f : all) {
    if (f.kind == kind) out.push_back(f);
  }
  return out;
}

TEST(SimSchedule, DefaultsHaveEveryKindEarlyEnoughForTheAudit) {
  for (U64 seed : {1, 2, 3, 4, 5, 77}) {
    SimOptions options;
    options.seed = seed;
    const auto schedule = scheduleFor(options);
    std::set<Kind> kinds;
    for (const Fault& f : schedule) {
      kinds.insert(f.kind);
      EXPECT_GE(f.at, 0.0);
      EXPECT_LE(f.at, 0.7 * options.switchoverTime()) << kindName(f.kind) << " seed " << seed;
    }
    EXPECT_EQ(kinds.size(), 4u) << "seed " << seed;
    EXPECT_EQ(ofKind(schedule, Kind::corrupt).size(), options.corruptions);
    EXPECT_EQ(ofKind(schedule, Kind::chunk).size(), 2u);
    // Long enough for the audit to give up on the silent standby (five unanswered ticks).
    EXPECT_GT(ofKind(schedule, Kind::silent).at(0).duration, 6 * options.auditInterval);
    for (std::size_t i = 1; i < schedule.size(); ++i) EXPECT_LE(schedule[i - 1].at, schedule[i].at);
  }
}

// Two corruptions of one feature between the same two audit ticks (5 s after the audits start,
// then one per interval), away from the feature's hot part: the audit finds both in one repair.
TEST(SimSchedule, OnePairFallsIntoOneAuditInterval) {
  for (U64 seed : {1, 2, 3, 4, 5, 77}) {
    SimOptions options;
    options.seed = seed;
    const Layout layout(options.features, options.chunkSizes);
    const auto zones = hotZones(options, layout);
    const auto corruptions = ofKind(scheduleFor(options), Kind::corrupt);
    bool paired = false;
    for (std::size_t i = 0; i < corruptions.size() && !paired; ++i) {
      for (std::size_t j = i + 1; j < corruptions.size() && !paired; ++j) {
        const Fault& a = corruptions[i];
        const Fault& b = corruptions[j];
        const double ia = std::floor((a.at - 5.0) / options.auditInterval);
        const double ib = std::floor((b.at - 5.0) / options.auditInterval);
        if (a.feature != b.feature || ia != ib) continue;
        paired = true;
        const std::size_t f = layout.find(a.feature);
        EXPECT_FALSE(zones[f].contains(*a.offset));
        EXPECT_FALSE(zones[f].contains(*b.offset));
        EXPECT_LT(b.at, 0.45 * options.switchoverTime());  // before the audits are replaced
      }
    }
    EXPECT_TRUE(paired) << "seed " << seed;
  }
}

TEST(SimSchedule, CorruptionsPointInsideTheirFeature) {
  SimOptions options;
  options.corruptions = 40;
  const Layout layout(options.features, options.chunkSizes);
  for (const Fault& f : ofKind(scheduleFor(options), Kind::corrupt)) {
    const std::size_t i = layout.find(f.feature);
    ASSERT_LT(i, layout.features());
    ASSERT_TRUE(f.offset.has_value());
    EXPECT_LT(*f.offset, layout.size(i));
  }
}

TEST(SimSchedule, FixedBySeed) {
  SimOptions a;
  SimOptions b;
  a.seed = b.seed = 5;
  const auto x = scheduleFor(a);
  const auto y = scheduleFor(b);
  ASSERT_EQ(x.size(), y.size());
  for (std::size_t i = 0; i < x.size(); ++i) {
    EXPECT_EQ(x[i].at, y[i].at);
    EXPECT_EQ(x[i].feature, y[i].feature);
    EXPECT_EQ(x[i].offset, y[i].offset);
  }
  b.seed = 6;
  EXPECT_NE(scheduleFor(b).back().at, x.back().at);
}

TEST(SimSchedule, ExplicitFaultsJoinOrReplaceTheDefaults) {
  SimOptions options;
  Fault f;
  f.kind = Kind::chunk;
  f.at = 100.0;
  options.faults = {f};
  EXPECT_EQ(scheduleFor(options).size(), 1u);
  options.faultSet = SimOptions::FaultSet::defaults;
  const auto both = scheduleFor(options);
  EXPECT_EQ(both.size(), 1u + 4u + options.corruptions);
  options.faultSet = SimOptions::FaultSet::none;
  options.faults.clear();
  EXPECT_TRUE(scheduleFor(options).empty());
}

TEST(SimSchedule, NoChunkChangeWithOneChunkSize) {
  SimOptions options;
  options.chunkSizes = {4096};
  const auto schedule = scheduleFor(options);
  EXPECT_TRUE(ofKind(schedule, Kind::chunk).empty());
  // The corruption meant to precede a chunk change goes to a random time instead.
  EXPECT_EQ(ofKind(schedule, Kind::corrupt).size(), options.corruptions);
}

}  // namespace
}  // namespace MorvikSim
