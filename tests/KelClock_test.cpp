#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/Clock.h"
#include "Kel/System.h"
#include "support/KelLeakCheck.h"
#include "support/Loop.h"

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
  static void SetUpTestSuite() { Kel::activityManager(); }  // created once, outside the leak check
  void SetUp() override {
    ASSERT_TRUE(manager->clock()->idle()) << "an earlier test left a clock request behind";
    Kel::System::virtualTimeIs(true, 1000.0);
  }
  void TearDown() override {
    EXPECT_TRUE(manager->clock()->idle()) << "this test left a clock request behind";
    Kel::System::virtualTimeIs(false);
  }
  Kel::Ptr<Alarm> alarm(const char* tag, Kel::Ptr<Kel::Clock> clock = nullptr) {
    Kel::Ptr<Alarm> a = Kel::allocate<Alarm>(tag, &journal);
    a->notifierIs(clock ? clock : manager->clock());
    a->isRegisteredNotifieeIs(true);
    return a;
  }
  static double now() { return Kel::System::currentTime(); }

  Journal journal;
  Kel::ActivityManager* manager = Kel::activityManager();
};

// What is due runs first, then the rest by time and then by the order of the requests, a new
// request replacing the old; a handler that re-arms for now runs again on the next pass.
TEST_F(KelClockTest, RunsByTimeThenByRequestOrderAndRearmingForNowWaitsForTheNextPass) {
  auto c = alarm("c"), a = alarm("a"), b = alarm("b"), d = alarm("d");
  auto copier = alarm("copier"), other = alarm("other");
  c->timeMinIs(1002);
  b->timeMinIs(1001);
  a->timeMinIs(1005);
  a->timeMinIs(1001);
  d->timeMinIs(1001);
  d->timeMinIs(1007);
  copier->action = [](Alarm& self) {
    if (self.runs < 4) self.timeMinIs(now());
  };
  copier->timeMinIs(now());
  other->timeMinIs(now());
  EXPECT_EQ(manager->clock()->scheduled(), 6u);
  const std::uint64_t passes = manager->passes();
  EXPECT_EQ(manager->runUntilRest(), 5u);
  EXPECT_EQ(manager->passes() - passes, 4u);
  EXPECT_EQ(now(), 1000.0);
  EXPECT_EQ(KelTest::runUntilIdle(), 4u);
  EXPECT_EQ(journal, (Journal{"copier@1000", "other@1000", "copier@1000", "copier@1000",
                              "copier@1000", "b@1001", "a@1001", "c@1002", "d@1007"}));
}

// The last request asked again for a later time stays last; it can still be moved before others
// and withdrawn, which find it by the key it was renewed with.
TEST_F(KelClockTest, TheLastRequestAskedAgainCanStillBeMovedAndWithdrawn) {
  auto x = alarm("x"), y = alarm("y");
  x->timeMinIs(1003);
  x->timeMinIs(1005);
  y->timeMinIs(1004);
  x->timeMinIs(1006);
  x->timeMinIs(1006);
  x->timeMinIs(1002);
  EXPECT_EQ(manager->clock()->scheduled(), 2u);
  EXPECT_EQ(KelTest::runUntilIdle(), 2u);
  EXPECT_EQ(journal, (Journal{"x@1002", "y@1004"}));
  x->timeMinIs(1010);
  x->timeMinIs(1011);
  x->isRegisteredNotifieeIs(false);
  EXPECT_TRUE(manager->clock()->idle());
}

TEST_F(KelClockTest, EachRunModeStopsWhereItSays) {
  EXPECT_EQ(manager->runNextPass(), 0u);
  auto tick = alarm("tick"), later = alarm("later");
  tick->action = [](Alarm& self) { self.timeMinIs(now() + 1.0); };
  tick->timeMinIs(1001);
  EXPECT_EQ(manager->runUntilRest(), 0u) << "nothing is due now";
  EXPECT_EQ(manager->runNextPass(), 1u);
  EXPECT_EQ(now(), 1001.0);
  EXPECT_EQ(KelTest::runUntil(1004.5), 3u);
  EXPECT_EQ(now(), 1004.5);
  EXPECT_EQ(KelTest::runUntilIdle(3), 3u);
  EXPECT_EQ(journal, (Journal{"tick@1001", "tick@1002", "tick@1003", "tick@1004", "tick@1005",
                              "tick@1006", "tick@1007"}));
  tick = nullptr;
  later->timeMinIs(990);  // time never moves backwards
  EXPECT_EQ(KelTest::runUntil(995), 1u);
  EXPECT_EQ(journal.back(), "later@1007");
  Kel::System::virtualTimeAdvanceTo(999);
  EXPECT_EQ(now(), 1007.0);
}

TEST_F(KelClockTest, CancelledRequestNeverRuns) {
  const std::function<void(Kel::Ptr<Alarm>&)> cancels[] = {
      [](Kel::Ptr<Alarm>& a) { a = nullptr; },
      [](Kel::Ptr<Alarm>& a) { a->isRegisteredNotifieeIs(false); },
      [](Kel::Ptr<Alarm>& a) { a->kelDoZombieReactors(true); },
      [](Kel::Ptr<Alarm>& a) { a->notifierIs(nullptr); }};
  for (const auto& cancel : cancels) {
    for (bool inEarlierHandler : {false, true}) {
      journal.clear();
      auto by = alarm("by"), victim = alarm("victim");
      by->timeMinIs(now() + 1);
      victim->timeMinIs(now() + 1);
      if (inEarlierHandler) by->action = [&](Alarm&) { cancel(victim); };
      if (!inEarlierHandler) cancel(victim);
      KelTest::runUntil(now() + 10);
      EXPECT_EQ(journal, Journal{"by@" + std::to_string(static_cast<int>(now()) - 9)});
      EXPECT_TRUE(manager->clock()->idle());
    }
  }
}

}  // namespace
