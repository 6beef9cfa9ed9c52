#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Dir.h"
#include "Kel/Exception.h"
#include "Kel/HashMap2018.h"
#include "Kel/Name.h"
#include "Kel/Parse.h"
#include "Kel/String.h"
#include "support/KelLeakCheck.h"
#include "support/KelTestEntity.h"

namespace {

using namespace std::string_literals;

std::string all256Bytes() {
  std::string bytes;
  for (int b = 0; b < 256; ++b) bytes.push_back(static_cast<char>(b));
  return bytes + "''\\\\'\\";
}

// --- String -------------------------------------------------------------------------------------

class KelStringTest : public KelTest::LeakCheckedTest {};

TEST_F(KelStringTest, CopiesShareOnePayloadAndTheLastReleasesIt) {
  std::int64_t before = Kel::AllocTracker::totalLive();
  {
    Kel::String a("payload");
    Kel::String b = a;
    Kel::String c;
    c = b;
    EXPECT_EQ(a.payloadReferences(), 3u);
    EXPECT_EQ(a.charPtr(), c.charPtr());
    EXPECT_EQ(Kel::AllocTracker::totalLive(), before + 1);
  }
  EXPECT_EQ(Kel::AllocTracker::totalLive(), before);
  Kel::String empty;
  EXPECT_EQ(empty.payloadReferences(), 0u);
  EXPECT_STREQ(empty.charPtr(), "");
  EXPECT_EQ(Kel::String(""), empty);
}

struct OrderCase {
  std::string less;
  std::string more;
};

void PrintTo(const OrderCase& c, std::ostream* out) {
  *out << ::testing::PrintToString(c.less) << " < " << ::testing::PrintToString(c.more);
}

class KelStringOrderTest : public ::testing::TestWithParam<OrderCase> {};

TEST_P(KelStringOrderTest, OrdersBytesAsUnsigned) {
  Kel::String less(GetParam().less), more(GetParam().more);
  EXPECT_TRUE(less < more);
  EXPECT_FALSE(more < less);
  EXPECT_FALSE(less == more);
  EXPECT_NE(less.hash(), more.hash());
  EXPECT_EQ(less, Kel::String(std::string(GetParam().less)));
  EXPECT_EQ(less.hash(), Kel::String(std::string(GetParam().less)).hash());
}

INSTANTIATE_TEST_SUITE_P(Kel, KelStringOrderTest,
                         ::testing::Values(OrderCase{"", "a"}, OrderCase{"a", "b"},
                                           OrderCase{"a", "ab"}, OrderCase{"a", "a\0"s},
                                           OrderCase{"a\0b"s, "a\0c"s}, OrderCase{"z", "\x80"},
                                           OrderCase{"\x7f", "\xff"}));

TEST_F(KelStringTest, EmbeddedNulsAreKeptEverywhere) {
  const std::string raw = "a\0b\0"s;
  Kel::String s(raw.data(), raw.size());
  EXPECT_EQ(s.size(), 4u);
  EXPECT_EQ(s.stdString(), raw);
  EXPECT_EQ(std::string(s.begin(), s.end()), raw);
  EXPECT_EQ(s.charPtr()[4], '\0');
  std::ostringstream out;
  out << s;
  EXPECT_EQ(out.str(), raw);
}

TEST_F(KelStringTest, AppendMakesANewPayloadAndLeavesSharersAlone) {
  Kel::String s("ab");
  Kel::String shared = s;
  s += Kel::String("c\0d"s);
  EXPECT_EQ(s.stdString(), "abc\0d"s);
  EXPECT_EQ(shared.stdString(), "ab");
  s += s;
  EXPECT_EQ(s.stdString(), "abc\0dabc\0d"s);
  Kel::String before = s;
  s += Kel::String();
  EXPECT_EQ(s.charPtr(), before.charPtr());
}

TEST_F(KelStringTest, FormatBuildsLongTextsToo) {
  EXPECT_EQ(Kel::format("%s-%d-%llx", "x", 5, 0xabcULL), Kel::String("x-5-abc"));
  std::string wide(1000, 'w');
  EXPECT_EQ(Kel::format("[%s]", wide.c_str()).stdString(), "[" + wide + "]");
  EXPECT_EQ(Kel::format("%s", ""), Kel::String());
}

// --- Name ---------------------------------------------------------------------------------------

Kel::Name parseName(const std::string& text, std::size_t* consumed = nullptr) {
  Kel::String s(text);
  Kel::String::IteratorConst it = s.begin();
  Kel::String::IteratorConst start = it;
  try {
    Kel::Name name(it, s.end());
    if (consumed) *consumed = static_cast<std::size_t>(it - start);
    return name;
  } catch (...) {
    EXPECT_EQ(it, start) << "a failed parse moved the iterator";
    throw;
  }
}

TEST(KelName, QuotingRoundTripsEveryByte) {
  Kel::Name name{Kel::String(all256Bytes())};
  Kel::String strep = Kel::valueToStrep(name);
  std::size_t consumed = 0;
  Kel::Name back = parseName(strep.stdString() + ", 'next'", &consumed);
  EXPECT_EQ(back, name);
  EXPECT_EQ(back.string().stdString(), all256Bytes());
  EXPECT_EQ(consumed, strep.size());
}

TEST(KelName, QuotedFormEscapesQuotesBackslashesAndUnprintables) {
  EXPECT_EQ(Kel::valueToStrep(Kel::Name("a'b\\c")).stdString(), R"('a\'b\\c')");
  EXPECT_EQ(Kel::valueToStrep(Kel::Name(Kel::String("\0\n\x7f\xff~ "s))).stdString(),
            R"('\x00\x0a\x7f\xff~ ')");
  EXPECT_EQ(Kel::valueToStrep(Kel::Name()).stdString(), "''");
  EXPECT_EQ(parseName(R"('\x4A\x4a')").string().stdString(), "JJ");
}

class KelMalformedNameTest : public ::testing::TestWithParam<std::string> {};

TEST_P(KelMalformedNameTest, ThrowsRangeException) {
  EXPECT_THROW(parseName(GetParam()), Kel::RangeException);
}

INSTANTIATE_TEST_SUITE_P(Kel, KelMalformedNameTest,
                         ::testing::Values("", "abc", "\"abc\"", "'abc", "'abc\\'", "'\\", "'\\q'",
                                           "'\\x4", "'\\x4'", "'\\xg0'", "'\\x0"));

TEST(KelName, ComparesAndPrintsThroughItsText) {
  EXPECT_EQ(Kel::Name("a"), Kel::Name(std::string("a")));
  EXPECT_TRUE(Kel::Name("a") < Kel::Name("b"));
  std::ostringstream out;
  out << Kel::Name("x'y");
  EXPECT_EQ(out.str(), "x'y");
}

// --- Parsing helpers ----------------------------------------------------------------------------

TEST(KelParse, NeedStringConsumesExactlyTheLiteral) {
  Kel::String text("Value('x', rest");
  Kel::String::IteratorConst it = text.begin();
  Kel::needString(it, text.end(), "Value('");
  EXPECT_EQ(*it, 'x');
  Kel::String::IteratorConst at = it;
  EXPECT_THROW(Kel::needString(it, text.end(), "y"), Kel::Exception);
  EXPECT_THROW(Kel::needString(it, text.end(), "x', rest and more"), Kel::Exception);
  EXPECT_THROW(Kel::needString(it, text.end(), "x' "), Kel::Exception);
  EXPECT_EQ(it, at);
  Kel::needString(it, text.end(), "x', rest");
  EXPECT_EQ(it, text.end());
  Kel::needString(it, text.end(), "");
}

struct NumberCase {
  std::string text;
  bool wide;
  bool ok;
  U64 value;
  std::size_t consumed;
};

void PrintTo(const NumberCase& c, std::ostream* out) {
  *out << ::testing::PrintToString(c.text) << (c.wide ? " as U64" : " as U32");
}

class KelDeserializeTest : public ::testing::TestWithParam<NumberCase> {};

TEST_P(KelDeserializeTest, ParsesWithinTheTypeOrNamesTheAttribute) {
  const NumberCase& c = GetParam();
  Kel::String text(c.text);
  Kel::String::IteratorConst it = text.begin();
  auto parse = [&]() -> U64 {
    return c.wide ? Kel::deserializeAttr<U64>(it, text.end(), "vaddr")
                  : Kel::deserializeAttr<U32>(it, text.end(), "size");
  };
  if (c.ok) {
    EXPECT_EQ(parse(), c.value);
    EXPECT_EQ(static_cast<std::size_t>(it - text.begin()), c.consumed);
    return;
  }
  try {
    parse();
    ADD_FAILURE() << "no exception for \"" << c.text << "\"";
  } catch (const Kel::RangeException& e) {
    EXPECT_NE(std::string(e.what()).find(c.wide ? "vaddr" : "size"), std::string::npos) << e.what();
  }
  EXPECT_EQ(it, text.begin());
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelDeserializeTest,
    ::testing::Values(NumberCase{"0", false, true, 0, 1},
                      NumberCase{"4294967295", false, true, 4294967295u, 10},
                      NumberCase{"0004294967295", false, true, 4294967295u, 13},
                      NumberCase{"4294967296", false, false, 0, 0},
                      NumberCase{"42949672950", false, false, 0, 0},
                      NumberCase{"12, 'x'", false, true, 12, 2}, NumberCase{"", false, false, 0, 0},
                      NumberCase{"+1", false, false, 0, 0}, NumberCase{"-1", false, false, 0, 0},
                      NumberCase{" 1", false, false, 0, 0}, NumberCase{"0x10", false, true, 0, 1},
                      NumberCase{"18446744073709551615", true, true, ~U64{0}, 20},
                      NumberCase{"18446744073709551616", true, false, 0, 0},
                      NumberCase{"-0", true, false, 0, 0}));

TEST(KelParse, SmallTypesRejectADigitAboveTheirMaximum) {
  Kel::String text("2");
  Kel::String::IteratorConst it = text.begin();
  EXPECT_THROW(Kel::deserializeAttr<bool>(it, text.end(), "flag"), Kel::RangeException);
  Kel::String one("1");
  it = one.begin();
  EXPECT_TRUE(Kel::deserializeAttr<bool>(it, one.end(), "flag"));
}

TEST(KelParse, RethrowPutsTheAttributeInFront) {
  try {
    Kel::rethrowFromDeserializeAttr(Kel::RangeException("unterminated quoted name"), "name");
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "name: unterminated quoted name");
  }
}

TEST(KelParse, ValueEndAcceptsOnlyTheEnd) {
  Kel::String text("1})");
  EXPECT_NO_THROW(Kel::strepToValueEnd(text, text.end()));
  EXPECT_THROW(Kel::strepToValueEnd(text, text.end() - 1), Kel::Exception);
}

TEST(KelParse, ThrowRangeExceptionCarriesTheText) {
  try {
    Kel::throwRangeException("null ValidPtr");
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "null ValidPtr");
  }
}

// --- Errors -------------------------------------------------------------------------------------

class KelErrorStringTest : public ::testing::TestWithParam<int> {};

TEST_P(KelErrorStringTest, MatchesTheSystemText) {
  EXPECT_EQ(Kel::errorString(GetParam()), std::string(std::strerror(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Kel, KelErrorStringTest,
                         ::testing::Values(0, ENOENT, EACCES, EINVAL, ENOMEM, 4321, -1));

TEST(KelErrnoException, KeepsErrnumAndContextWithOnlyTheErrnoBit) {
  try {
    throw Kel::ErrnoException(ENOENT, Kel::String("opening file"));
  } catch (const Kel::Exception& base) {
    EXPECT_EQ(base.ids().bits(), 1u << 29);
    EXPECT_EQ(base.message(), Kel::errorString(ENOENT));
    auto* e = dynamic_cast<const Kel::ErrnoException*>(&base);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->errnum(), ENOENT);
    EXPECT_EQ(e->context(), Kel::String("opening file"));
  }
}

// --- HashMap2018 --------------------------------------------------------------------------------

TEST(KelHashMap2018, SixtyFourBitKeysHashAsHighXorLow) {
  using Map = Kel::HashMap2018<U64, U8>;
  EXPECT_EQ(Map::hashOf(0x0000000100000002ull), 3u);
  EXPECT_EQ(Map::hashOf(0xFFFFFFFF00000000ull), 0xFFFFFFFFu);
  EXPECT_EQ(Map::hashOf(0x1234567812345678ull), 0u);
  EXPECT_EQ(Map::hashOf(0x80000000FFFFFFFFull), 0x7FFFFFFFu);
}

struct KeyOrderCase {
  U64 a;
  U64 b;
  bool less;
};

void PrintTo(const KeyOrderCase& c, std::ostream* out) {
  *out << std::hex << c.a << (c.less ? " < " : " !< ") << c.b;
}

class KelKeyLessTest : public ::testing::TestWithParam<KeyOrderCase> {};

TEST_P(KelKeyLessTest, HighHalvesFirstThenLowHalvesUnsigned) {
  EXPECT_EQ(Kel::keyLess2018(GetParam().a, GetParam().b), GetParam().less);
}

INSTANTIATE_TEST_SUITE_P(
    Kel, KelKeyLessTest,
    ::testing::Values(KeyOrderCase{1, 2, true}, KeyOrderCase{2, 1, false},
                      KeyOrderCase{5, 5, false},
                      KeyOrderCase{0x0000000100000000ull, 0x00000000FFFFFFFFull, false},
                      KeyOrderCase{0x00000000FFFFFFFFull, 0x0000000100000000ull, true},
                      KeyOrderCase{0x7FFFFFFF00000000ull, 0x8000000000000000ull, true},
                      KeyOrderCase{0x000000007FFFFFFFull, 0x0000000080000000ull, true},
                      KeyOrderCase{0x0000000180000000ull, 0x000000017FFFFFFFull, false}));

TEST(KelHashMap2018, InsertAndEraseReportWhatChanged) {
  Kel::HashMap2018<U64, U8> map;
  EXPECT_TRUE(map.insert(7, 1));
  EXPECT_FALSE(map.insert(7, 1));
  EXPECT_TRUE(map.insert(7, 2));
  ASSERT_NE(map.find(7), nullptr);
  EXPECT_EQ(*map.find(7), 2);
  EXPECT_EQ(map.find(8), nullptr);
  EXPECT_FALSE(map.erase(8));
  EXPECT_TRUE(map.erase(7));
  EXPECT_FALSE(map.erase(7));
  EXPECT_TRUE(map.empty());
}

TEST(KelHashMap2018, IterationMayDeleteTheCurrentMember) {
  Kel::HashMap2018<U64, U8> map;
  for (U64 k = 0; k < 200; ++k) map.insert(k << 32 | k, static_cast<U8>(k));
  std::set<U64> seen;
  map.forEachSafe([&](const U64& key, U8&) {
    EXPECT_TRUE(seen.insert(key).second);
    if ((key & 1) == 0) {
      EXPECT_TRUE(map.erase(key));
    }
  });
  EXPECT_EQ(seen.size(), 200u);
  EXPECT_EQ(map.size(), 100u);
  map.forEachSafe([&](const U64& key, U8&) { map.erase(key); });
  EXPECT_TRUE(map.empty());
}

// --- Dir ----------------------------------------------------------------------------------------

class DirWatcher : public Kel::Dir::NotifieeConst {
 public:
  void onEntity(const Kel::Name& name) override {
    seen.push_back(name.string().stdString());
    if (notifier()) present.push_back(notifier()->entity(name) != nullptr);
  }
  std::vector<std::string> seen;
  std::vector<bool> present;
};

class KelDirTest : public KelTest::LeakCheckedTest {
 public:
  Kel::Ptr<KelTest::Gauge> gauge(const char* name) {
    return Kel::allocate<KelTest::Gauge>(Kel::Name(name));
  }

  Kel::Ptr<Kel::Dir> dir = Kel::allocate<Kel::Dir>(Kel::Name("dir"));
  Kel::Ptr<DirWatcher> watcher = [this] {
    auto w = Kel::allocate<DirWatcher>();
    w->notifierIs(dir);
    w->isRegisteredNotifieeIs(true);
    return w;
  }();
};

TEST_F(KelDirTest, NotifiesOnAddReplaceAndRemoveOnly) {
  auto a = gauge("a");
  auto b = gauge("b");
  dir->entityIs(Kel::Name("x"), a);
  dir->entityIs(Kel::Name("x"), a);
  dir->entityIs(Kel::Name("x"), b);
  dir->entityDel(Kel::Name("missing"));
  dir->entityDel(Kel::Name("x"));
  dir->entityIs(Kel::Name("y"), a);
  dir->entityIs(Kel::Name("y"), nullptr);
  EXPECT_EQ(watcher->seen, (std::vector<std::string>{"x", "x", "x", "y", "y"}));
  EXPECT_EQ(watcher->present, (std::vector<bool>{true, true, false, true, false}));
  EXPECT_EQ(dir->entities(), 0u);
  EXPECT_EQ(a->references(), 1u);
}

TEST_F(KelDirTest, MembersAreHeldByReferenceInNameOrder) {
  dir->entityIs(Kel::Name("b"), gauge("g1"));
  dir->entityIs(Kel::Name("a"), gauge("g2"));
  EXPECT_EQ(Kel::AllocTracker::live<KelTest::Gauge>(), 2);
  ASSERT_EQ(dir->entities(), 2u);
  EXPECT_EQ(dir->members().begin()->first, Kel::Name("a"));
  EXPECT_EQ(dir->entity(Kel::Name("b"))->name(), Kel::Name("g1"));
  EXPECT_FALSE(dir->entity(Kel::Name("c")));
}

TEST_F(KelDirTest, DeletingByTheMembersOwnKeyStillReportsTheName) {
  dir->entityIs(Kel::Name(std::string(40, 'k')), gauge("g"));
  dir->entityDel(dir->members().begin()->first);
  EXPECT_EQ(watcher->seen, (std::vector<std::string>{std::string(40, 'k'), std::string(40, 'k')}));
  EXPECT_EQ(dir->entities(), 0u);
}

}  // namespace
