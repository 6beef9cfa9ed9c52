#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Dir.h"
#include "Kel/Exception.h"
#include "Kel/HashMap2018.h"
#include "Kel/Name.h"
#include "Kel/Parse.h"
#include "Kel/String.h"
#include "Kel/Types.h"
#include "support/KelLeakCheck.h"
#include "support/Refusals.h"

namespace {

using namespace std::string_literals;
using KelValues = KelTest::LeakCheckedTest;

TEST_F(KelValues, StringsShareOnePayloadOrderBytesUnsignedAndKeepEmbeddedNuls) {
  // That no payload outlives its last string, the fixture's leak check shows.
  const std::int64_t before = KelTest::totalLive();
  Kel::String a("ab");
  Kel::String shared = a;
  EXPECT_EQ(a.charPtr(), shared.charPtr());
  EXPECT_EQ(KelTest::totalLive(), before + 1);
  a += Kel::String("c\0d"s);
  EXPECT_EQ(shared.stdString(), "ab");  // appending makes a payload of its own
  EXPECT_EQ(std::string(a.begin(), a.end()), "abc\0d"s);
  EXPECT_EQ(a.charPtr()[5], '\0');
  const std::pair<std::string, std::string> ordered[] = {
      {"", "a"}, {"a", "a\0"s}, {"a\0b"s, "a\0c"s}, {"z", "\x80"}};
  for (const auto& [less, more] : ordered) {
    EXPECT_TRUE(Kel::String(less) < Kel::String(more)) << more;
    EXPECT_FALSE(Kel::String(more) < Kel::String(less)) << more;
    EXPECT_NE(Kel::String(less).hash(), Kel::String(more).hash()) << more;
  }
}

Kel::Name parseName(const std::string& text) {
  Kel::String s(text);
  Kel::String::IteratorConst it = s.begin();
  try {
    return Kel::Name(it, s.end());
  } catch (...) {
    EXPECT_EQ(it, s.begin()) << "a failed parse moved the iterator";
    throw;
  }
}

// Round trips of every byte, and where a parse stops, are checked through MemoryMapping's text.
TEST(KelName, QuotingEscapesExactlyAndParsingRefusesMalformedText) {
  EXPECT_EQ(Kel::valueToStrep(Kel::Name("a'b\\c")).stdString(), R"('a\'b\\c')");
  EXPECT_EQ(Kel::valueToStrep(Kel::Name(Kel::String("\0\n\x7f\xff~ "s))).stdString(),
            R"('\x00\x0a\x7f\xff~ ')");
  EXPECT_EQ(parseName(R"('\x4A\x4a')").string().stdString(), "JJ");
  for (const char* bad : {"", "abc", "'abc", "'abc\\'", "'\\q'", "'\\x4'", "'\\xg0'"}) {
    EXPECT_THROW(parseName(bad), Kel::RangeException) << bad;
  }
}

TEST(KelExceptions, RefusalAndErrnoTexts) {
  MorvikTest::expectRefused<Kel::RangeException>({
      {[] { Kel::throwRangeException("null ValidPtr"); }, "null ValidPtr"},
      {[] {
         Kel::rethrowFromDeserializeAttr(Kel::RangeException("unterminated quoted name"), "name");
       },
       "name: unterminated quoted name"},
  });
  for (int errnum : {0, ENOENT, EACCES, 4321, -1}) {
    EXPECT_EQ(Kel::errorString(errnum), std::string(std::strerror(errnum))) << errnum;
  }
}

TEST(KelHashMap2018, KeysHashAsHighXorLowOrderByHighThenLowHalfAndIterationMayDelete) {
  using Map = Kel::HashMap2018<U64, U8>;
  EXPECT_EQ(Map::hashOf(0x0000000100000002ull), 3u);
  EXPECT_EQ(Map::hashOf(0x80000000FFFFFFFFull), 0x7FFFFFFFu);
  const std::pair<U64, U64> ascending[] = {{0x00000000FFFFFFFFull, 0x0000000100000000ull},
                                           {0x7FFFFFFF00000000ull, 0x8000000000000000ull},
                                           {0x000000017FFFFFFFull, 0x0000000180000000ull}};
  for (const auto& [a, b] : ascending) {
    EXPECT_TRUE(Kel::keyLess2018(a, b)) << std::hex << a;
    EXPECT_FALSE(Kel::keyLess2018(b, a)) << std::hex << a;
  }
  EXPECT_FALSE(Kel::keyLess2018(5, 5));
  Map map;
  for (U64 k = 0; k < 200; ++k) map.insert(k << 32 | k, static_cast<U8>(k));
  std::set<U64> seen;
  map.forEachSafe([&](const U64& key, U8&) {
    EXPECT_TRUE(seen.insert(key).second);
    if ((key & 1) == 0) map.erase(key);
  });
  EXPECT_EQ(seen.size(), 200u);
  EXPECT_EQ(map.size(), 100u);
}

class DirWatcher : public Kel::Dir::NotifieeConst {
 public:
  void onEntity(const Kel::Name& name) override {
    seen.push_back(name.string().stdString() + (notifier()->members().count(name) ? "+" : "-"));
  }
  std::vector<std::string> seen;
};

TEST_F(KelValues, DirNotifiesOnAddReplaceAndRemoveOnlyAndHoldsMembersInNameOrder) {
  auto dir = Kel::allocate<Kel::Dir>(Kel::Name("dir"));
  auto watcher = Kel::allocate<DirWatcher>();
  watcher->notifierIs(dir);
  watcher->isRegisteredNotifieeIs(true);
  auto a = Kel::allocate<Kel::Dir>(Kel::Name("a"));
  const Kel::Name x("x"), w(std::string(40, 'w'));
  dir->entityIs(x, a);
  dir->entityIs(x, a);
  dir->entityIs(x, Kel::allocate<Kel::Dir>(Kel::Name("b")));
  dir->entityIs(w, a);
  EXPECT_EQ(dir->members().begin()->first, w);
  EXPECT_EQ(a->references(), 2u);
  dir->entityDel(Kel::Name("missing"));
  dir->entityIs(x, nullptr);
  dir->entityDel(dir->members().begin()->first);  // the member's own key, freed by the delete
  EXPECT_EQ(watcher->seen, (std::vector<std::string>{"x+", "x+", w.string().stdString() + "+", "x-",
                                                     w.string().stdString() + "-"}));
  EXPECT_EQ(dir->entities(), 0u);
  EXPECT_EQ(a->references(), 1u);
}

}  // namespace
