#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Clock.h"
#include "Kel/Entity.h"
#include "Kel/EntityNotifiee.h"
#include "Kel/Types.h"
#include "support/KelLeakCheck.h"

namespace {

using Journal = std::vector<std::string>;

// An entity whose setter follows the framework's rule, as the library's own do.
class Gauge final : public Kel::EntityOf<Gauge> {
 public:
  struct NotifieeConst : Kel::NotifieeConstOf<Gauge> {
    virtual void onLevel() {}
  };
  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return Kel::Name("gauge"); }
  void nameIsFromBackup(const Kel::Name&) override {}
  const char* fwkType() const override { return "Gauge"; }
  U32 level() const { return level_; }
  void levelIs(U32 value) { attributeIs(level_, value, &NotifieeConst::onLevel); }

 private:
  U32 level_ = 0;
  mutable Kel::NotifieeList notifiees_;
};

// Journals every handler call ("w1:level=7", "w1:zero", "~w1") and runs an optional action once,
// from inside the next onLevel, so tests can change the list while it is being visited.
class GaugeWatcher : public Gauge::NotifieeConst {
 public:
  GaugeWatcher(std::string tag, Journal* journal) : tag_(std::move(tag)), journal_(journal) {}
  void onNextLevel(std::function<void()> action) { action_ = std::move(action); }
  void onLevel() override {
    journal_->push_back(tag_ + ":level=" + std::to_string(notifier() ? notifier()->level() : 0));
    std::function<void()> action = std::move(action_);
    action_ = nullptr;
    if (action) action();
  }
  void onZeroReferences() override { journal_->push_back(tag_ + ":zero"); }

 protected:
  ~GaugeWatcher() override { journal_->push_back("~" + tag_); }

 private:
  std::string tag_;
  Journal* journal_;
  std::function<void()> action_;
};

class KelNotifieeTest : public KelTest::LeakCheckedTest {
 public:
  Kel::Ptr<GaugeWatcher> watch(const char* tag) {
    auto w = idle(tag);
    w->notifierIs(gauge);
    w->isRegisteredNotifieeIs(true);
    return w;
  }
  Kel::Ptr<GaugeWatcher> idle(const char* tag) {
    return Kel::allocate<GaugeWatcher>(tag, &journal);
  }
  static bool listed(const Kel::Ptr<Gauge>& g, const Kel::Ptr<GaugeWatcher>& w) {
    return g->notifieeList()->contains(w.ptr());
  }

  Journal journal;
  Kel::Ptr<Gauge> gauge = Kel::allocate<Gauge>();
  Kel::Ptr<Gauge> other = Kel::allocate<Gauge>();
};

TEST_F(KelNotifieeTest, RepointingMovesTheNotifieeAndItsReference) {
  auto w = idle("w");
  w->isRegisteredNotifieeIs(true);
  EXPECT_FALSE(w->inNotifieeList());
  w->notifierIs(gauge);  // registered before it had a notifier: joins now
  EXPECT_TRUE(listed(gauge, w));
  w->notifierIs(gauge);
  EXPECT_EQ(gauge->references(), 2u);
  w->notifierIs(other);
  EXPECT_TRUE(gauge->notifieeList()->empty());
  EXPECT_TRUE(listed(other, w));
  EXPECT_EQ(gauge->references(), 1u);
  EXPECT_EQ(other->references(), 2u);
  w->notifierIs(nullptr);
  EXPECT_TRUE(other->notifieeList()->empty());
  EXPECT_EQ(other->references(), 1u);
  auto clock = Kel::allocate<Kel::Clock>(Kel::Name("clock"));
  w->notifierIs(clock);  // a notifier of another type converts to null
  EXPECT_EQ(clock->references(), 1u);
  gauge->levelIs(3);  // nobody left to tell
  EXPECT_EQ(gauge->level(), 3u);
  EXPECT_TRUE(journal.empty());
}

// R/U register and unregister, Z/z turn zombie and back; a zombie stays out of the list.
TEST_F(KelNotifieeTest, ListMembershipFollowsRegistrationAndZombieChanges) {
  const std::pair<const char*, bool> cases[] = {
      {"R", true},   {"RR", true},  {"U", false},   {"RU", false}, {"RUU", false},
      {"RUR", true}, {"RZ", false}, {"RZZ", false}, {"RZz", true}, {"Rz", true},
      {"Zz", false}, {"ZR", false}, {"ZRz", true}};
  for (const auto& [ops, listedAfter] : cases) {
    SCOPED_TRACE(ops);
    auto w = idle("w");
    w->notifierIs(gauge);
    for (const char* op = ops; *op; ++op) {
      if (*op == 'R' || *op == 'U') w->isRegisteredNotifieeIs(*op == 'R');
      if (*op == 'Z' || *op == 'z') w->kelDoZombieReactors(*op == 'Z');
    }
    EXPECT_EQ(listed(gauge, w), listedAfter);
    EXPECT_EQ(gauge->notifieeList()->size(), listedAfter ? 1u : 0u);
    EXPECT_EQ(gauge->references(), 2u);
  }
}

// w0..w2 watch the gauge in that order, w3 starts empty. One handler runs the case's action during
// the first change (level 1); a second change (level 2) then shows who still listens. The outcome
// gives each watcher's onLevel calls, with "~" when it was destroyed.
TEST_F(KelNotifieeTest, VisitSurvivesChangesToTheListItIsVisiting) {
  using W = std::vector<Kel::Ptr<GaugeWatcher>>;
  const struct {
    const char* name;
    int actor;
    std::function<void(W&)> action;
    const char* outcome;
  } cases[] = {
      {"RegisterNew", 0, [this](W& w) { w[3] = watch("w3"); }, "2 2 2 1"},
      {"UnregisterLater", 0, [](W& w) { w[2]->isRegisteredNotifieeIs(false); }, "2 2 0 0"},
      {"UnregisterEarlier", 2, [](W& w) { w[0]->isRegisteredNotifieeIs(false); }, "1 2 2 0"},
      {"UnregisterSelf", 1, [](W& w) { w[1]->isRegisteredNotifieeIs(false); }, "2 1 2 0"},
      {"DestroySelf", 1, [](W& w) { w[1] = nullptr; }, "2 1~ 2 0"},
      {"DestroyLater", 0, [](W& w) { w[2] = nullptr; }, "2 2 0~ 0"},
      {"DestroyEarlier", 2, [](W& w) { w[0] = nullptr; }, "1~ 2 2 0"},
      {"DestroyBothOthers", 1, [](W& w) { w[0] = w[2] = nullptr; }, "1~ 2 0~ 0"},
      {"RepointLater", 0, [this](W& w) { w[2]->notifierIs(other); }, "2 2 0 0"},
      {"ZombieLater", 0, [](W& w) { w[2]->kelDoZombieReactors(true); }, "2 2 0 0"},
      {"NestedSet", 0, [this](W&) { gauge->levelIs(7); }, "3 3 3 0"},
      {"ReregisterLaterMovesItBehind", 0,
       [](W& w) {
         w[2]->isRegisteredNotifieeIs(false);
         w[2]->isRegisteredNotifieeIs(true);
       },
       "2 2 1 0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    journal.clear();
    gauge->levelIs(0);
    W w{watch("w0"), watch("w1"), watch("w2"), nullptr};
    w[c.actor]->onNextLevel([&] { c.action(w); });
    gauge->levelIs(1);
    gauge->levelIs(2);
    std::string outcome;
    for (const std::string tag : {"w0", "w1", "w2", "w3"}) {
      outcome += std::to_string(std::count_if(journal.begin(), journal.end(), [&](auto& line) {
        return line.rfind(tag + ":level", 0) == 0;
      }));
      if (std::count(journal.begin(), journal.end(), "~" + tag)) outcome += "~";
      outcome += tag == "w3" ? "" : " ";
    }
    EXPECT_EQ(outcome, c.outcome);
  }
}

// Only the listed notifiees hear the entity, its last reference gone included, and a handler that
// throws leaves the list as it was.
TEST_F(KelNotifieeTest, ListedNotifieesHearEveryChangeEvenAfterAHandlerThrew) {
  auto a = watch("a");
  auto b = watch("b");
  auto out = idle("out");
  out->notifierIs(gauge);
  auto c = watch("c");
  a->onNextLevel([] { throw std::runtime_error("handler failed"); });
  EXPECT_THROW(gauge->levelIs(1), std::runtime_error);
  b = nullptr;
  EXPECT_EQ(gauge->notifieeList()->size(), 2u);
  journal.clear();
  gauge->levelIs(2);
  gauge->zeroReferencesIs(false);
  EXPECT_EQ(journal, (Journal{"a:level=2", "c:level=2", "a:zero", "c:zero"}));
}

TEST_F(KelNotifieeTest, EntityOutlivesAVisitThatDropsItsLastReference) {
  auto w = watch("w");
  Gauge* raw = gauge.ptr();
  gauge = nullptr;
  // The watcher holds the last reference; letting go of it mid-visit must not free the list the
  // visit stands on.
  w->onNextLevel([&w] { w->notifierIs(nullptr); });
  raw->levelIs(1);
  EXPECT_EQ(KelTest::live<Gauge>(), 1);  // only the fixture's other gauge is left
  EXPECT_EQ(journal, Journal{"w:level=1"});
}

}  // namespace
