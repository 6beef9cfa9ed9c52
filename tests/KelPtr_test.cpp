#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Ptr.h"
#include "support/AllocCounts.h"
#include "support/KelLeakCheck.h"

namespace {

using Kel::PtrInterface;
constexpr std::uint32_t kActive = PtrInterface::kNotificationActiveBit;
constexpr std::uint32_t kZombie = PtrInterface::kZombieBit;

class Probe : public PtrInterface {
 public:
  void flagIs(std::uint32_t bit, bool set) { flagBitIs(bit, set); }
  static inline int destroyed = 0;
  Kel::Ptr<Probe> next;

 protected:
  ~Probe() override { ++destroyed; }
};

class ProbeChild : public Probe {};

// Records what allocate() shows the object when it switches notification on; may throw instead.
class PtrAllocProbe : public PtrInterface {
 public:
  explicit PtrAllocProbe(bool fail) : tracked(KelTest::live<PtrAllocProbe>()) {
    Kel::Ptr<PtrAllocProbe>{this};  // a constructor that shares itself and drops it again lives on
    if (fail) throw std::runtime_error("no");
  }
  void hasNotificationActiveIs(bool active) override {
    sawReferences = references();
    Kel::Ptr<PtrAllocProbe> self(this);  // taken and dropped here, it must not dispose of it
    PtrInterface::hasNotificationActiveIs(active);
  }
  std::int64_t tracked;
  std::uint32_t sawReferences = 0;
};

// Its last release copies and drops a pointer to itself, and may keep one to come back to life.
class Reviver : public PtrInterface {
 public:
  void zeroReferencesIs(bool) override {
    ++zeroCalls;
    Kel::Ptr<Reviver> copy(this);
    if (reviveOnce) kept = copy;
    reviveOnce = false;
  }
  static inline int zeroCalls = 0, destroyed = 0;
  static inline bool reviveOnce = false;
  static inline Kel::Ptr<Reviver> kept;

 protected:
  ~Reviver() override { ++destroyed; }
};

// Every count test runs with plain and with atomic arithmetic.
class KelPtrTest : public KelTest::LeakCheckedTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    Kel::VFPtrInterface::enableThreadSafePointers = GetParam();
    Probe::destroyed = Reviver::zeroCalls = Reviver::destroyed = 0;
  }
  void TearDown() override { Kel::VFPtrInterface::enableThreadSafePointers = false; }
};

TEST_P(KelPtrTest, CountIsExactThroughCopiesMovesCastsAndLastRelease) {
  Kel::Ptr<ProbeChild> p = Kel::allocate<ProbeChild>();
  {
    Kel::Ptr<Probe> copy(p);
    Kel::Ptr<Probe> moved(std::move(copy));
    EXPECT_FALSE(copy);
    Kel::Ptr<Probe>& alias = moved;
    moved = alias;
    moved = std::move(alias);
    Kel::Ptr<PtrInterface const> root = p;
    Kel::Ptr<Probe> writable = Kel::const_ptr_cast<Probe>(Kel::Ptr<Probe const>(moved));
    Kel::Ptr<Probe> fromRaw;
    fromRaw = Kel::Ptr<Probe>(p.ptr());
    EXPECT_EQ(p->references(), 5u);
  }
  Kel::Ptr<Probe> q = p;
  p = nullptr;
  q->flagIs(kZombie, true);  // flags share the word with the count but never count as references
  EXPECT_EQ(q->referenceWord(), kZombie | kActive | 1u);
  q = Kel::allocate<Probe>();  // move assignment releases the old object once
  EXPECT_EQ(Probe::destroyed, 1);
  q->next = Kel::allocate<Probe>();
  q = q->next;  // the new value is kept alive only by the old one
  EXPECT_EQ(Probe::destroyed, 2);
  EXPECT_EQ(q->references(), 1u);
  q = nullptr;
  EXPECT_EQ(Probe::destroyed, 3);
}

TEST_P(KelPtrTest, AllocateTracksConstructsThenSwitchesNotificationOn) {
  Kel::Ptr<PtrAllocProbe> r = Kel::allocate<PtrAllocProbe>(false);
  EXPECT_EQ(r->tracked, 1);
  EXPECT_EQ(r->sawReferences, 1u);
  EXPECT_EQ(r->referenceWord(), kActive | 1u);
  EXPECT_THROW(Kel::allocate<PtrAllocProbe>(true), std::runtime_error);
  EXPECT_EQ(KelTest::live<PtrAllocProbe>(), 1) << "a throwing construction is untracked";
}

TEST_P(KelPtrTest, ZeroReferencesHandlerMayCopyOrKeepAPointer) {
  Kel::Ptr<Reviver> r = Kel::allocate<Reviver>();
  r = nullptr;
  EXPECT_EQ(Reviver::destroyed, 1);
  r = Kel::allocate<Reviver>();
  Reviver::reviveOnce = true;
  r = nullptr;
  EXPECT_EQ(Reviver::destroyed, 1);
  ASSERT_TRUE(Reviver::kept);
  EXPECT_EQ(Reviver::kept->references(), 1u);
  Reviver::kept = nullptr;
  EXPECT_EQ(Reviver::zeroCalls, 3);
  EXPECT_EQ(Reviver::destroyed, 2);
}

INSTANTIATE_TEST_SUITE_P(Kel, KelPtrTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

TEST(KelAssertDeathTest, AbortsWithTheExactText) {
  const struct {
    std::function<void()> fire;
    std::string text;
  } cases[] = {
      {[] { KEL_ASSERT(Probe::destroyed < 0); }, "Assertion failed: Probe::destroyed < 0\n"},
      {[] { KEL_ASSERT_IN(Probe::destroyed < 0, "int MorvikLib::doMunmap(U64, U64, MT)"); },
       "Assertion failed: Probe::destroyed < 0\n  in int MorvikLib::doMunmap(U64, U64, MT)\n"},
      {[] { KEL_ASSERT_TEXT(Probe::destroyed < 0, "size() >= ( byteOffset + size )", "f()"); },
       "Assertion failed: size() >= ( byteOffset + size )\n  in f()"},
      {[] { (void)Kel::Ptr<Probe>()->next; }, "Kel fatal error: dereference of a null Kel::Ptr"},
      {[] { (void)(*Kel::Ptr<Probe>()).next; }, "Kel fatal error: dereference of a null Kel::Ptr"},
  };
  for (const auto& c : cases) EXPECT_DEATH(c.fire(), ::testing::HasSubstr(c.text));
}

}  // namespace
