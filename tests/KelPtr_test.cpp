#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "Kel/AllocTracker.h"
#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "support/KelLeakCheck.h"

namespace {

using Kel::PtrInterface;

constexpr std::uint32_t kActive = PtrInterface::kNotificationActiveBit;
constexpr std::uint32_t kZombie = PtrInterface::kZombieBit;

class Probe : public PtrInterface {
 public:
  explicit Probe(int value = 0) : value_(value) {}
  int value() const { return value_; }
  void flagIs(std::uint32_t bit, bool set) { flagBitIs(bit, set); }

  static inline int destroyed = 0;
  Kel::Ptr<Probe> next;

 protected:
  ~Probe() override { ++destroyed; }

 private:
  int value_;
};

class ProbeChild : public Probe {
 public:
  ProbeChild() : Probe(7) {}
};

class Unrelated : public PtrInterface {};

// Records what allocate() shows the object when it switches notification on.
class Recorder : public PtrInterface {
 public:
  Recorder() : trackedWhileConstructing(Kel::AllocTracker::live<Recorder>()) { constructed = true; }
  void hasNotificationActiveIs(bool active) override {
    sawConstructed = constructed;
    sawReferences = references();
    sawActive = active;
    // A pointer taken and dropped here must not dispose of the new object.
    Kel::Ptr<Recorder> self(this);
    PtrInterface::hasNotificationActiveIs(active);
  }

  std::int64_t trackedWhileConstructing;
  bool constructed = false;
  bool sawConstructed = false;
  std::uint32_t sawReferences = 0;
  bool sawActive = false;
};

class Thrower : public PtrInterface {
 public:
  Thrower() { throw std::runtime_error("no"); }
};

// Its last release copies and drops a pointer to itself, and may keep one to come back to life.
class Reviver : public PtrInterface {
 public:
  void zeroReferencesIs(bool) override {
    ++zeroCalls;
    Kel::Ptr<Reviver> copy(this);
    Kel::Ptr<Reviver> again = copy;
    if (reviveOnce) {
      reviveOnce = false;
      kept = again;
    }
  }
  static inline int zeroCalls = 0;
  static inline int destroyed = 0;
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
    Probe::destroyed = 0;
    Reviver::zeroCalls = 0;
    Reviver::destroyed = 0;
  }
  void TearDown() override { Kel::VFPtrInterface::enableThreadSafePointers = false; }
};

TEST_P(KelPtrTest, CountIsExactThroughCopiesAndMoves) {
  Kel::Ptr<Probe> p = Kel::allocate<Probe>(1);
  EXPECT_EQ(p->references(), 1u);
  {
    Kel::Ptr<Probe> copy(p);
    EXPECT_EQ(p->references(), 2u);
    Kel::Ptr<Probe> moved(std::move(copy));
    EXPECT_FALSE(copy);
    EXPECT_EQ(p->references(), 2u);
    Kel::Ptr<Probe> assigned;
    assigned = p;
    EXPECT_EQ(p->references(), 3u);
    Kel::Ptr<Probe>& alias = assigned;
    assigned = alias;
    EXPECT_EQ(p->references(), 3u);
    assigned = std::move(alias);
    EXPECT_EQ(p->references(), 3u);
    EXPECT_TRUE(assigned);
    Kel::Ptr<Probe> fromRaw;
    fromRaw = p.ptr();
    EXPECT_EQ(p->references(), 4u);
    fromRaw = nullptr;
    EXPECT_EQ(p->references(), 3u);
  }
  EXPECT_EQ(p->references(), 1u);
  EXPECT_EQ(Probe::destroyed, 0);
}

TEST_P(KelPtrTest, MoveAssignmentReleasesTheOldObjectOnce) {
  Kel::Ptr<Probe> a = Kel::allocate<Probe>(1);
  Kel::Ptr<Probe> b = Kel::allocate<Probe>(2);
  a = std::move(b);
  EXPECT_EQ(Probe::destroyed, 1);
  EXPECT_EQ(a->value(), 2);
  EXPECT_EQ(a->references(), 1u);
}

TEST_P(KelPtrTest, ConvertingCopiesAndCastsCount) {
  Kel::Ptr<ProbeChild> child = Kel::allocate<ProbeChild>();
  Kel::Ptr<Probe> base(child);
  Kel::Ptr<PtrInterface const> root = child;
  EXPECT_EQ(child->references(), 3u);
  Kel::Ptr<ProbeChild> back = Kel::ptr_cast<ProbeChild>(base);
  EXPECT_EQ(back, child);
  EXPECT_EQ(child->references(), 4u);
  EXPECT_FALSE(Kel::ptr_cast<Unrelated>(base));
  EXPECT_EQ(child->references(), 4u);
  Kel::Ptr<Probe const> readOnly = base;
  Kel::Ptr<Probe> writable = Kel::const_ptr_cast<Probe>(readOnly);
  EXPECT_EQ(child->references(), 6u);
}

TEST_P(KelPtrTest, LastReleaseDestroysExactlyOnce) {
  Kel::Ptr<Probe> p = Kel::allocate<Probe>();
  Kel::Ptr<Probe> q = p;
  EXPECT_EQ(Kel::AllocTracker::live<Probe>(), 1);
  p = nullptr;
  EXPECT_EQ(Probe::destroyed, 0);
  q = nullptr;
  EXPECT_EQ(Probe::destroyed, 1);
  EXPECT_EQ(Kel::AllocTracker::live<Probe>(), 0);
}

TEST_P(KelPtrTest, AssigningAnObjectOnlyTheOldValueKeptAliveKeepsIt) {
  Kel::Ptr<Probe> head = Kel::allocate<Probe>(1);
  head->next = Kel::allocate<Probe>(2);
  head = head->next;
  EXPECT_EQ(Probe::destroyed, 1);
  EXPECT_EQ(head->value(), 2);
  EXPECT_EQ(head->references(), 1u);
}

TEST_P(KelPtrTest, AllocateSwitchesNotificationOnAfterConstruction) {
  Kel::Ptr<Recorder> r = Kel::allocate<Recorder>();
  EXPECT_EQ(r->trackedWhileConstructing, 1);
  EXPECT_TRUE(r->sawConstructed);
  EXPECT_TRUE(r->sawActive);
  EXPECT_EQ(r->sawReferences, 1u);
  EXPECT_EQ(r->referenceWord(), kActive | 1u);
  EXPECT_EQ(Kel::AllocTracker::live<Recorder>(), 1);
  Kel::Ptr<Probe> plain = Kel::allocate<Probe>();
  EXPECT_EQ(plain->referenceWord(), kActive | 1u);
}

TEST_P(KelPtrTest, ThrowingConstructorIsUntracked) {
  auto allocatedBefore = [] {
    for (const auto& e : Kel::AllocTracker::snapshot()) {
      if (e.typeName.find("Thrower") != std::string::npos) return e.allocated;
    }
    return std::uint64_t{0};
  };
  std::uint64_t before = allocatedBefore();
  EXPECT_THROW(Kel::allocate<Thrower>(), std::runtime_error);
  EXPECT_EQ(allocatedBefore(), before + 1);
  EXPECT_EQ(Kel::AllocTracker::live<Thrower>(), 0);
}

TEST_P(KelPtrTest, ZeroReferencesHandlerCopyingAPointerDoesNotDeleteTwice) {
  Kel::Ptr<Reviver> r = Kel::allocate<Reviver>();
  r = nullptr;
  EXPECT_EQ(Reviver::zeroCalls, 1);
  EXPECT_EQ(Reviver::destroyed, 1);
}

TEST_P(KelPtrTest, ZeroReferencesHandlerKeepingAPointerRevivesTheObject) {
  Kel::Ptr<Reviver> r = Kel::allocate<Reviver>();
  Reviver::reviveOnce = true;
  r = nullptr;
  EXPECT_EQ(Reviver::destroyed, 0);
  ASSERT_TRUE(Reviver::kept);
  EXPECT_EQ(Reviver::kept->references(), 1u);
  Reviver::kept = nullptr;
  EXPECT_EQ(Reviver::zeroCalls, 2);
  EXPECT_EQ(Reviver::destroyed, 1);
}

struct WordCase {
  const char* name;
  std::uint32_t flagsOn;
  std::uint32_t flagsOff;
};

void PrintTo(const WordCase& c, std::ostream* out) {
  *out << c.name;
}

class KelReferenceWordTest : public KelTest::LeakCheckedTest,
                             public ::testing::WithParamInterface<WordCase> {
 protected:
  void SetUp() override { Probe::destroyed = 0; }
};

// Flags share the word with the count but never count as references.
TEST_P(KelReferenceWordTest, FlagsAndCountShareTheWord) {
  Kel::Ptr<Probe> p = Kel::allocate<Probe>();
  p->flagIs(GetParam().flagsOn, true);
  p->flagIs(GetParam().flagsOff, false);
  std::uint32_t flags = (kActive | GetParam().flagsOn) & ~GetParam().flagsOff;
  Kel::Ptr<Probe> q = p;
  EXPECT_EQ(p->referenceWord(), flags | 2u);
  EXPECT_EQ(p->references(), 2u);
  EXPECT_EQ(p->notificationActive(), (flags & kActive) != 0);
  EXPECT_EQ(p->zombie(), (flags & kZombie) != 0);
  q = nullptr;
  EXPECT_EQ(p->referenceWord(), flags | 1u);
  p = nullptr;
  EXPECT_EQ(Probe::destroyed, 1);
}

INSTANTIATE_TEST_SUITE_P(Kel, KelReferenceWordTest,
                         ::testing::Values(WordCase{"ActiveOnly", 0, 0},
                                           WordCase{"Inactive", 0, kActive},
                                           WordCase{"Zombie", kZombie, 0},
                                           WordCase{"InactiveZombie", kZombie, kActive}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(KelReferenceWord, CountMaskLeavesOutTheFlagBits) {
  EXPECT_EQ(PtrInterface::kCountMask, 0x5FFFFFFFu);
  EXPECT_EQ(PtrInterface::kCountMask & (kActive | kZombie), 0u);
}

INSTANTIATE_TEST_SUITE_P(Kel, KelPtrTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

TEST(KelPtrDeathTest, DereferencingANullPointerDies) {
  Kel::Ptr<Probe> none;
  EXPECT_DEATH((void)(*none).value(), "dereference of a null Kel::Ptr");
}

// Death-test patterns are regular expressions; the texts are matched literally.
std::string literally(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) out += '\\';
    out += c;
  }
  return out;
}

struct AssertCase {
  const char* name;
  std::function<void()> fire;
  std::string expected;
};

void PrintTo(const AssertCase& c, std::ostream* out) {
  *out << c.name;
}

class KelAssertDeathTest : public ::testing::TestWithParam<AssertCase> {};

TEST_P(KelAssertDeathTest, AbortsWithTheConditionText) {
  EXPECT_DEATH(GetParam().fire(), literally(GetParam().expected));
}

std::uint32_t zero() {
  return 0;
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelAssertDeathTest,
    ::testing::Values(
        AssertCase{"Condition", [] { KEL_ASSERT(zero() >= zero() + 4); },
                   "Assertion failed: zero() >= zero() + 4\n"},
        AssertCase{"GivenFunctionText",
                   [] {
                     int rval = -1;
                     KEL_ASSERT_IN(rval == 0,
                                   "int MorvikLib::doMunmap(U64, U64, MorvikLib::MemMapType)");
                   },
                   "Assertion failed: rval == 0\n  in int MorvikLib::doMunmap(U64, U64, "
                   "MorvikLib::MemMapType)\n"},
        AssertCase{"GivenConditionText",
                   [] {
                     KEL_ASSERT_TEXT(zero() > 0, "localMemory().size() >= ( byteOffset + size )",
                                     "f()");
                   },
                   "Assertion failed: localMemory().size() >= ( byteOffset + size )\n  in f()"},
        AssertCase{"NullPointer", [] { (void)Kel::Ptr<Probe>()->value(); },
                   "Kel fatal error: dereference of a null Kel::Ptr"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
