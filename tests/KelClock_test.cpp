#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/Clock.h"
#include "Kel/System.h"
#include "support/KelLeakCheck.h"

namespace {

using Journal = std::vector<std::string>;

// Journals "tag@time" for every onTime and runs an optional action from inside it.
class Alarm : public Kel::Clock::NotifieeConst {
 public:
  Alarm(std::string tag, Journal* journal) : tag_(std::move(tag)), journal_(journal) {}

  void onTime() override {
    EXPECT_FALSE(running_) << tag_ << " ran inside its own onTime";
    running_ = true;
    ++runs;
    journal_->push_back(tag_ + "@" + std::to_string(static_cast<int>(Kel::System::currentTime())));
    if (action) action(*this);
    running_ = false;
  }

  int runs = 0;
  std::function<void(Alarm&)> action;

 private:
  std::string tag_;
  Journal* journal_;
  bool running_ = false;
};

class KelClockTest : public KelTest::LeakCheckedTest {
 public:
  static void SetUpTestSuite() { Kel::activityManager(); }

  void SetUp() override {
    ASSERT_TRUE(manager->clock()->idle()) << "an earlier test left a clock request behind";
    wasVirtual_ = Kel::System::virtualTime();
    Kel::System::virtualTimeIs(true, 1000.0);
  }
  void TearDown() override {
    EXPECT_TRUE(manager->clock()->idle()) << "this test left a clock request behind";
    if (!wasVirtual_) Kel::System::virtualTimeIs(false);
  }

  Kel::Ptr<Alarm> alarm(const char* tag, const Kel::Ptr<Kel::Clock>& clock) {
    Kel::Ptr<Alarm> a = Kel::allocate<Alarm>(tag, &journal);
    a->notifierIs(clock);
    a->isRegisteredNotifieeIs(true);
    return a;
  }
  Kel::Ptr<Alarm> alarm(const char* tag) { return alarm(tag, manager->clock()); }
  static double now() { return Kel::System::currentTime(); }

  Journal journal;
  Kel::ActivityManager* manager = Kel::activityManager();

 private:
  bool wasVirtual_ = false;
};

TEST_F(KelClockTest, RunsByTimeThenByRequestOrder) {
  auto c = alarm("c");
  auto a = alarm("a");
  auto b = alarm("b");
  auto d = alarm("d");
  c->timeMinIs(1002);
  b->timeMinIs(1001);
  a->timeMinIs(1001);
  d->timeMinIs(1002);
  EXPECT_EQ(manager->runUntilIdle(), 4u);
  EXPECT_EQ(journal, (Journal{"b@1001", "a@1001", "c@1002", "d@1002"}));
}

TEST_F(KelClockTest, NewRequestReplacesTheEarlierOne) {
  auto early = alarm("early");
  auto late = alarm("late");
  early->timeMinIs(1005);
  early->timeMinIs(1001);
  late->timeMinIs(1001);
  late->timeMinIs(1007);
  EXPECT_EQ(manager->clock()->scheduled(), 2u);
  manager->runUntilIdle();
  EXPECT_EQ(journal, (Journal{"early@1001", "late@1007"}));
}

TEST_F(KelClockTest, RearmingForNowRunsOnTheNextPassNeverRecursively) {
  auto copier = alarm("copier");
  auto other = alarm("other");
  copier->action = [](Alarm& self) {
    if (self.runs < 4) self.timeMinIs(now());
  };
  copier->timeMinIs(now());
  other->timeMinIs(now());
  std::uint64_t passes = manager->passes();
  EXPECT_EQ(manager->runUntilRest(), 5u);
  EXPECT_EQ(manager->passes() - passes, 4u);
  EXPECT_EQ(journal,
            (Journal{"copier@1000", "other@1000", "copier@1000", "copier@1000", "copier@1000"}));
  EXPECT_EQ(now(), 1000.0);
}

TEST_F(KelClockTest, RunUntilRunsEverythingDueAndStopsTimeThere) {
  auto tick = alarm("tick");
  tick->action = [](Alarm& self) { self.timeMinIs(now() + 1.0); };
  tick->timeMinIs(1001);
  EXPECT_EQ(manager->runUntil(1004.5), 4u);
  EXPECT_EQ(now(), 1004.5);
  EXPECT_EQ(journal, (Journal{"tick@1001", "tick@1002", "tick@1003", "tick@1004"}));
  EXPECT_EQ(tick->timeMin(), 1005.0);
  tick->action = nullptr;
  EXPECT_EQ(manager->runUntil(1005), 1u);
  EXPECT_EQ(manager->runUntil(1100), 0u);
  EXPECT_EQ(now(), 1100.0);
}

TEST_F(KelClockTest, RunNextPassJumpsToTheNextRequest) {
  EXPECT_EQ(manager->runNextPass(), 0u);
  EXPECT_EQ(now(), 1000.0);
  auto a = alarm("a");
  auto b = alarm("b");
  a->timeMinIs(1030);
  b->timeMinIs(1030);
  std::uint64_t passes = manager->passes();
  EXPECT_EQ(manager->runNextPass(), 2u);
  EXPECT_EQ(now(), 1030.0);
  EXPECT_EQ(manager->passes() - passes, 1u);
}

TEST_F(KelClockTest, RunUntilIdleStopsAfterMaxPasses) {
  auto tick = alarm("tick");
  tick->action = [](Alarm& self) { self.timeMinIs(now() + 10.0); };
  tick->timeMinIs(now());
  EXPECT_EQ(manager->runUntilIdle(3), 3u);
  EXPECT_EQ(now(), 1020.0);
  tick = nullptr;
}

TEST_F(KelClockTest, RunUntilRestLeavesLaterRequestsAlone) {
  auto now1 = alarm("now");
  auto later = alarm("later");
  now1->timeMinIs(now());
  later->timeMinIs(now() + 1.0);
  EXPECT_EQ(manager->runUntilRest(), 1u);
  EXPECT_EQ(now(), 1000.0);
  EXPECT_TRUE(later->timeRequested());
  EXPECT_EQ(manager->runPass(), 0u);
  later = nullptr;
}

TEST_F(KelClockTest, TimeNeverMovesBackwards) {
  auto past = alarm("past");
  past->timeMinIs(990);
  EXPECT_EQ(manager->runUntil(995), 1u);
  EXPECT_EQ(journal, Journal{"past@1000"});
  EXPECT_EQ(now(), 1000.0);
  Kel::System::virtualTimeAdvanceTo(999);
  EXPECT_EQ(now(), 1000.0);
}

TEST_F(KelClockTest, PassesCountOnlyPassesThatRanSomething) {
  std::uint64_t passes = manager->passes();
  EXPECT_EQ(manager->runPass(), 0u);
  auto a = alarm("a");
  a->timeMinIs(now());
  EXPECT_EQ(manager->runPass(), 1u);
  EXPECT_EQ(manager->passes() - passes, 1u);
}

// What happens to a request whose notifiee goes away; `by` runs first in the same pass.
struct CancelCase {
  const char* name;
  bool inEarlierHandler;
  std::function<void(Kel::Ptr<Alarm>&)> cancel;
};

void PrintTo(const CancelCase& c, std::ostream* out) {
  *out << c.name;
}

class KelClockCancelTest : public KelClockTest, public ::testing::WithParamInterface<CancelCase> {};

TEST_P(KelClockCancelTest, CancelledRequestNeverRuns) {
  auto by = alarm("by");
  auto victim = alarm("victim");
  by->timeMinIs(1001);
  victim->timeMinIs(1001);
  if (GetParam().inEarlierHandler) {
    by->action = [this, &victim](Alarm&) { GetParam().cancel(victim); };
  } else {
    GetParam().cancel(victim);
  }
  manager->runUntil(1010);
  EXPECT_EQ(journal, Journal{"by@1001"});
  EXPECT_TRUE(manager->clock()->idle());
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelClockCancelTest,
    ::testing::Values(
        CancelCase{"Destroyed", false, [](Kel::Ptr<Alarm>& a) { a = nullptr; }},
        CancelCase{"DestroyedInPass", true, [](Kel::Ptr<Alarm>& a) { a = nullptr; }},
        CancelCase{"Unregistered", false,
                   [](Kel::Ptr<Alarm>& a) { a->isRegisteredNotifieeIs(false); }},
        CancelCase{"UnregisteredInPass", true,
                   [](Kel::Ptr<Alarm>& a) { a->isRegisteredNotifieeIs(false); }},
        CancelCase{"Zombie", false, [](Kel::Ptr<Alarm>& a) { a->kelDoZombieReactors(true); }},
        CancelCase{"ClockLetGo", true, [](Kel::Ptr<Alarm>& a) { a->notifierIs(nullptr); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(KelClockTest, HandlerMayRearmAndDropItsOwnNotifiee) {
  auto a = alarm("a");
  a->action = [&a](Alarm& self) {
    self.timeMinIs(now());
    a = nullptr;
  };
  a->timeMinIs(now());
  EXPECT_EQ(manager->runUntilRest(), 1u);
  EXPECT_EQ(Kel::AllocTracker::live<Alarm>(), 0);
}

TEST_F(KelClockTest, RequestWaitsWhileUnregisteredAndRunsOnRejoining) {
  auto a = alarm("a");
  a->timeMinIs(1001);
  a->isRegisteredNotifieeIs(false);
  manager->runUntil(1005);
  EXPECT_TRUE(journal.empty());
  a->isRegisteredNotifieeIs(true);
  manager->runUntilIdle();
  EXPECT_EQ(journal, Journal{"a@1005"});
}

TEST_F(KelClockTest, RepointingMovesTheRequestToTheNewClock) {
  auto mine = Kel::allocate<Kel::Clock>(Kel::Name("mine"));
  auto a = alarm("a");
  a->timeMinIs(1001);
  a->notifierIs(mine);
  EXPECT_TRUE(manager->clock()->idle());
  EXPECT_EQ(mine->scheduled(), 1u);
  EXPECT_EQ(mine->runPass(1000.5), 0u);
  EXPECT_EQ(mine->runPass(1001), 1u);
  EXPECT_TRUE(mine->idle());
}

TEST_F(KelClockTest, PassRunFromInsideAHandlerRunsEachRequestOnce) {
  auto mine = Kel::allocate<Kel::Clock>(Kel::Name("mine"));
  auto a = alarm("a", mine);
  auto b = alarm("b", mine);
  auto c = alarm("c", mine);
  auto d = alarm("d", mine);
  auto later = alarm("later", mine);
  later->timeMinIs(now() + 5.0);
  a->action = [&](Alarm&) {
    b->timeMinIs(now());
    c->timeMinIs(now());
    EXPECT_EQ(mine->runPass(now()), 3u);
  };
  a->timeMinIs(now());
  d->timeMinIs(now());
  EXPECT_EQ(mine->runPass(now()), 1u);
  EXPECT_EQ(journal, (Journal{"a@1000", "d@1000", "b@1000", "c@1000"}));
  EXPECT_EQ(mine->scheduled(), 1u);
}

}  // namespace
