#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Clock.h"
#include "support/KelLeakCheck.h"
#include "support/KelTestEntity.h"
#include "support/KelTestWatcher.h"

namespace {

using KelTest::Gauge;
using KelTest::GaugeWatcher;
using Journal = GaugeWatcher::Journal;

class KelNotifieeTest : public KelTest::LeakCheckedTest {
 public:
  Kel::Ptr<GaugeWatcher> watch(const Kel::Ptr<Gauge>& g, const char* tag) {
    return GaugeWatcher::watching(g, tag, &journal);
  }
  Kel::Ptr<GaugeWatcher> idle(const char* tag) {
    return Kel::allocate<GaugeWatcher>(tag, &journal);
  }
  static bool listed(const Kel::Ptr<Gauge>& g, const Kel::Ptr<GaugeWatcher>& w) {
    return g->notifieeList()->contains(w.ptr());
  }

  Journal journal;
  Kel::Ptr<Gauge> gauge = Kel::allocate<Gauge>(Kel::Name("gauge"));
  Kel::Ptr<Gauge> other = Kel::allocate<Gauge>(Kel::Name("other"));
};

// --- Setters ------------------------------------------------------------------------------------

TEST_F(KelNotifieeTest, SetterNotifiesOnlyWhenTheValueChanges) {
  auto w = watch(gauge, "w");
  gauge->levelIs(5);
  gauge->levelIs(5);
  gauge->labelIs(Kel::String("x"));
  // An equal text in a payload of its own is the same value.
  std::string text = "x";
  gauge->labelIs(Kel::String(text));
  EXPECT_EQ(w->levelCalls(), 1);
  EXPECT_EQ(w->labelCalls(), 1);
  EXPECT_EQ(gauge->visits(), 2);
  EXPECT_EQ(gauge->level(), 5u);
}

TEST_F(KelNotifieeTest, SetterWithoutListenersStoresAndVisitsNothing) {
  auto unregistered = idle("u");
  unregistered->notifierIs(gauge);
  gauge->levelIs(9);
  EXPECT_EQ(gauge->level(), 9u);
  EXPECT_EQ(gauge->visits(), 0);
  EXPECT_EQ(unregistered->levelCalls(), 0);
}

TEST_F(KelNotifieeTest, HandlersRunInRegistrationOrderBeforeTheSetterReturns) {
  auto a = watch(gauge, "a");
  auto b = watch(gauge, "b");
  auto c = watch(gauge, "c");
  gauge->levelIs(3);
  EXPECT_EQ(journal, (Journal{"a:level=3", "b:level=3", "c:level=3"}));
}

// --- notifierIs ---------------------------------------------------------------------------------

TEST_F(KelNotifieeTest, RepointingMovesTheNotifieeBetweenLists) {
  auto w = watch(gauge, "w");
  EXPECT_EQ(gauge->references(), 2u);
  w->notifierIs(other);
  EXPECT_FALSE(listed(gauge, w));
  EXPECT_TRUE(listed(other, w));
  EXPECT_EQ(gauge->references(), 1u);
  EXPECT_EQ(other->references(), 2u);
  gauge->levelIs(1);
  other->levelIs(2);
  EXPECT_EQ(w->levelsSeen(), std::vector<U32>{2});
}

TEST_F(KelNotifieeTest, RepointingToNullOnlyRemoves) {
  auto w = watch(gauge, "w");
  w->notifierIs(nullptr);
  EXPECT_FALSE(listed(gauge, w));
  EXPECT_TRUE(w->isRegisteredNotifiee());
  EXPECT_FALSE(w->notifier());
  EXPECT_EQ(gauge->references(), 1u);
  w->notifierIs(other);
  EXPECT_TRUE(listed(other, w));
}

TEST_F(KelNotifieeTest, NotifierOfAnotherTypeBecomesNull) {
  auto w = watch(gauge, "w");
  auto clock = Kel::allocate<Kel::Clock>(Kel::Name("clock"));
  w->notifierIs(clock);
  EXPECT_FALSE(w->notifier());
  EXPECT_FALSE(listed(gauge, w));
  EXPECT_TRUE(clock->notifieeList()->empty());
  EXPECT_EQ(clock->references(), 1u);
}

TEST_F(KelNotifieeTest, RepointingToTheSameNotifierChangesNothing) {
  auto w = watch(gauge, "w");
  w->notifierIs(gauge);
  EXPECT_EQ(gauge->notifieeList()->size(), 1u);
  EXPECT_EQ(gauge->references(), 2u);
}

// --- isRegisteredNotifieeIs ---------------------------------------------------------------------

struct RegistrationCase {
  const char* name;
  std::vector<bool> calls;
  bool listedAfter;
};

void PrintTo(const RegistrationCase& c, std::ostream* out) {
  *out << c.name;
}

class KelRegistrationTest : public KelNotifieeTest,
                            public ::testing::WithParamInterface<RegistrationCase> {};

TEST_P(KelRegistrationTest, ListMembershipFollowsTheLastChange) {
  auto w = idle("w");
  w->notifierIs(gauge);
  for (bool registered : GetParam().calls) w->isRegisteredNotifieeIs(registered);
  EXPECT_EQ(listed(gauge, w), GetParam().listedAfter);
  EXPECT_EQ(gauge->notifieeList()->size(), GetParam().listedAfter ? 1u : 0u);
  EXPECT_EQ(gauge->references(), 2u);
  gauge->levelIs(1);
  EXPECT_EQ(w->levelCalls(), GetParam().listedAfter ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelRegistrationTest,
    ::testing::Values(RegistrationCase{"RegisterOnce", {true}, true},
                      RegistrationCase{"RegisterTwice", {true, true}, true},
                      RegistrationCase{"UnregisterUnregistered", {false}, false},
                      RegistrationCase{"RegisterThenUnregister", {true, false}, false},
                      RegistrationCase{"UnregisterTwice", {true, false, false}, false},
                      RegistrationCase{"Reregister", {true, false, true}, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(KelNotifieeTest, RegisteringWithoutNotifierJoinsWhenOneArrives) {
  auto w = idle("w");
  w->isRegisteredNotifieeIs(true);
  EXPECT_FALSE(w->inNotifieeList());
  w->notifierIs(gauge);
  EXPECT_TRUE(listed(gauge, w));
}

// --- Destruction, zombies, zero references ------------------------------------------------------

TEST_F(KelNotifieeTest, DestructionLeavesTheListAndReleasesTheNotifier) {
  auto w = watch(gauge, "w");
  w = nullptr;
  EXPECT_TRUE(gauge->notifieeList()->empty());
  EXPECT_EQ(gauge->references(), 1u);
  EXPECT_EQ(journal, Journal{"~w"});
  gauge->levelIs(1);
  EXPECT_EQ(gauge->visits(), 0);
}

TEST_F(KelNotifieeTest, ZombieIsDetachedAtOnceAndItsDestructorSkipsTheList) {
  auto w = watch(gauge, "w");
  auto keep = watch(gauge, "keep");
  w->kelDoZombieReactors(true);
  EXPECT_NE(w->referenceWord() & Kel::PtrInterface::kZombieBit, 0u);
  EXPECT_FALSE(listed(gauge, w));
  EXPECT_TRUE(w->isRegisteredNotifiee());
  gauge->levelIs(1);
  EXPECT_EQ(w->levelCalls(), 0);
  w = nullptr;
  EXPECT_EQ(gauge->notifieeList()->size(), 1u);
  EXPECT_EQ(gauge->references(), 2u);
}

struct ZombieCase {
  const char* name;
  bool registered;
  std::vector<bool> zombieCalls;
  bool listedAfter;
};

void PrintTo(const ZombieCase& c, std::ostream* out) {
  *out << c.name;
}

class KelZombieTest : public KelNotifieeTest, public ::testing::WithParamInterface<ZombieCase> {};

TEST_P(KelZombieTest, ZombieSwitchDetachesAndReattaches) {
  auto w = idle("w");
  w->notifierIs(gauge);
  w->isRegisteredNotifieeIs(GetParam().registered);
  for (bool zombie : GetParam().zombieCalls) w->kelDoZombieReactors(zombie);
  EXPECT_EQ(listed(gauge, w), GetParam().listedAfter);
  EXPECT_EQ(gauge->notifieeList()->size(), GetParam().listedAfter ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelZombieTest,
    ::testing::Values(ZombieCase{"ZombieDetaches", true, {true}, false},
                      ZombieCase{"ZombieTwiceStaysDetached", true, {true, true}, false},
                      ZombieCase{"ReviveReattaches", true, {true, false}, true},
                      ZombieCase{"ReviveWithoutZombieIsNothing", true, {false}, true},
                      ZombieCase{"ReviveUnregisteredStaysOut", false, {true, false}, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(KelNotifieeTest, RegisteringAZombieWaitsUntilItIsRevived) {
  auto w = idle("w");
  w->notifierIs(gauge);
  w->kelDoZombieReactors(true);
  w->isRegisteredNotifieeIs(true);
  EXPECT_FALSE(listed(gauge, w));
  w->kelDoZombieReactors(false);
  EXPECT_TRUE(listed(gauge, w));
}

TEST_F(KelNotifieeTest, ZeroReferencesTellsEveryListedNotifiee) {
  auto a = watch(gauge, "a");
  auto b = watch(gauge, "b");
  auto out = idle("out");
  out->notifierIs(gauge);
  gauge->zeroReferencesIs(false);
  EXPECT_EQ(a->zeroCalls(), 1);
  EXPECT_EQ(b->zeroCalls(), 1);
  EXPECT_EQ(out->zeroCalls(), 0);
}

TEST_F(KelNotifieeTest, NotifieesAreBornNotificationActiveAndUnattached) {
  auto w = idle("w");
  EXPECT_EQ(w->referenceWord(), Kel::PtrInterface::kNotificationActiveBit | 1u);
  EXPECT_FALSE(w->notifier());
  EXPECT_FALSE(w->isRegisteredNotifiee());
}

// --- Changing the list during a visit -----------------------------------------------------------

// Four slots; w0..w2 watch the gauge in that order, w3 starts empty. One handler runs the case's
// action during the first change (level 1); a second change (level 2) then shows who still
// listens.
class KelVisitTest;

struct VisitCase {
  const char* name;
  int actor;
  std::function<void(KelVisitTest&)> action;
  std::array<int, 4> levelCalls;
  std::array<bool, 4> destroyed;
};

void PrintTo(const VisitCase& c, std::ostream* out) {
  *out << c.name;
}

class KelVisitTest : public KelNotifieeTest, public ::testing::WithParamInterface<VisitCase> {
 public:
  int levelCallsOf(const std::string& tag) const {
    return static_cast<int>(std::count_if(journal.begin(), journal.end(), [&](const auto& line) {
      return line.rfind(tag + ":level", 0) == 0;
    }));
  }
  bool destroyed(const std::string& tag) const {
    return std::find(journal.begin(), journal.end(), "~" + tag) != journal.end();
  }

  std::array<Kel::Ptr<GaugeWatcher>, 4> w{watch(gauge, "w0"), watch(gauge, "w1"),
                                          watch(gauge, "w2"), nullptr};
};

TEST_P(KelVisitTest, VisitSurvivesTheChange) {
  const VisitCase& c = GetParam();
  w[c.actor]->onNextLevel([this, &c] { c.action(*this); });
  gauge->levelIs(1);
  gauge->levelIs(2);
  std::array<int, 4> calls{};
  for (int i = 0; i < 4; ++i) {
    std::string tag = "w" + std::to_string(i);
    calls[i] = levelCallsOf(tag);
    EXPECT_EQ(destroyed(tag), c.destroyed[i]) << tag;
  }
  EXPECT_EQ(calls, c.levelCalls);
  EXPECT_FALSE(gauge->notifieeList()->visiting());
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelVisitTest,
    ::testing::Values(
        VisitCase{"RegisterNewHearsOnlyLaterChanges",
                  0,
                  [](KelVisitTest& t) { t.w[3] = t.watch(t.gauge, "w3"); },
                  {2, 2, 2, 1},
                  {}},
        VisitCase{"UnregisterLater",
                  0,
                  [](KelVisitTest& t) { t.w[2]->isRegisteredNotifieeIs(false); },
                  {2, 2, 0, 0},
                  {}},
        VisitCase{"UnregisterEarlier",
                  2,
                  [](KelVisitTest& t) { t.w[0]->isRegisteredNotifieeIs(false); },
                  {1, 2, 2, 0},
                  {}},
        VisitCase{"UnregisterSelf",
                  1,
                  [](KelVisitTest& t) { t.w[1]->isRegisteredNotifieeIs(false); },
                  {2, 1, 2, 0},
                  {}},
        VisitCase{"DestroySelf",
                  1,
                  [](KelVisitTest& t) { t.w[1] = nullptr; },
                  {2, 1, 2, 0},
                  {false, true, false, false}},
        VisitCase{"DestroyLater",
                  0,
                  [](KelVisitTest& t) { t.w[2] = nullptr; },
                  {2, 2, 0, 0},
                  {false, false, true, false}},
        VisitCase{"DestroyEarlier",
                  2,
                  [](KelVisitTest& t) { t.w[0] = nullptr; },
                  {1, 2, 2, 0},
                  {true, false, false, false}},
        VisitCase{"DestroyBothOthers",
                  1,
                  [](KelVisitTest& t) {
                    t.w[0] = nullptr;
                    t.w[2] = nullptr;
                  },
                  {1, 2, 0, 0},
                  {true, false, true, false}},
        VisitCase{"RepointLaterElsewhere",
                  0,
                  [](KelVisitTest& t) { t.w[2]->notifierIs(t.other); },
                  {2, 2, 0, 0},
                  {}},
        VisitCase{"ReregisterLaterMovesItBehind",
                  0,
                  [](KelVisitTest& t) {
                    t.w[2]->isRegisteredNotifieeIs(false);
                    t.w[2]->isRegisteredNotifieeIs(true);
                  },
                  {2, 2, 1, 0},
                  {}},
        VisitCase{"ZombieLater",
                  0,
                  [](KelVisitTest& t) { t.w[2]->kelDoZombieReactors(true); },
                  {2, 2, 0, 0},
                  {}},
        // The nested change reaches everyone, then the outer visit goes on.
        VisitCase{"NestedSet", 0, [](KelVisitTest& t) { t.gauge->levelIs(7); }, {3, 3, 3, 0}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(KelNotifieeTest, NestedSetDeliversTheNewestValueToTheRestOfTheOuterVisit) {
  auto a = watch(gauge, "a");
  auto b = watch(gauge, "b");
  a->onNextLevel([this] { gauge->levelIs(7); });
  gauge->levelIs(1);
  EXPECT_EQ(journal, (Journal{"a:level=1", "a:level=7", "b:level=7", "b:level=7"}));
}

TEST_F(KelNotifieeTest, HandlerThatThrowsLeavesTheListUsable) {
  auto a = watch(gauge, "a");
  auto b = watch(gauge, "b");
  auto c = watch(gauge, "c");
  a->onNextLevel([] { throw std::runtime_error("handler failed"); });
  EXPECT_THROW(gauge->levelIs(1), std::runtime_error);
  EXPECT_FALSE(gauge->notifieeList()->visiting());
  b = nullptr;
  EXPECT_EQ(gauge->notifieeList()->size(), 2u);
  gauge->levelIs(2);
  EXPECT_EQ(c->levelsSeen(), std::vector<U32>{2});
}

TEST_F(KelNotifieeTest, EntityOutlivesAVisitThatDropsItsLastReference) {
  auto w = watch(gauge, "w");
  Gauge* raw = gauge.ptr();
  gauge = nullptr;
  // The watcher's reference is the last one; letting go of it mid-visit must not free the list
  // the visit stands on.
  w->onNextLevel([&w] { w->notifierIs(nullptr); });
  raw->levelIs(1);
  // Only the fixture's other gauge is left.
  EXPECT_EQ(Kel::AllocTracker::live<Gauge>(), 1);
  EXPECT_EQ(w->levelCalls(), 1);
  w = nullptr;
}

}  // namespace
