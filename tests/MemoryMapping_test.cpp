#include "MorvikLib/MemoryMapping.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Name.h"
#include "Kel/String.h"

namespace {

using MorvikLib::MemoryMapping;
using namespace std::string_literals;

constexpr U64 kMax64 = ~U64{0};
constexpr U64 kTop64 = U64{1} << 63;
constexpr U32 kTop32 = U32{1} << 31;

MemoryMapping mapping(const std::string& name, U64 vaddr, U32 size, U64 paddr, U64 version) {
  return MemoryMapping(Kel::Name(name), vaddr, size, paddr, version);
}

std::string strep(const MemoryMapping& m) {
  return MorvikLib::valueToStrep(m).stdString();
}

MemoryMapping parse(const std::string& input) {
  Kel::String s(input);
  Kel::String::IteratorConst it = s.begin();
  return MemoryMapping(it, s.end());
}

TEST(MemoryMapping, EachFieldDecidesOrderAndEqualityOnlyWhenTheEarlierOnesAreEqual) {
  const std::vector<std::pair<MemoryMapping, MemoryMapping>> ascending = {
      {mapping("a", kMax64, ~0u, kMax64, kMax64), mapping("b", 0, 0, 0, 0)},
      {mapping("ab", 9, 0, 0, 0), mapping("abc", 1, 0, 0, 0)},
      {mapping("z", 0, 0, 0, 0), mapping("\xff", 0, 0, 0, 0)},
      {mapping("n", kTop64 - 1, ~0u, 0, 0), mapping("n", kTop64, 0, 0, 0)},
      {mapping("n", 5, kTop32 - 1, kMax64, 0), mapping("n", 5, kTop32, 0, 0)},
      {mapping("n", 5, 6, 1, kMax64), mapping("n", 5, 6, kTop64, 0)},
      {mapping("n", 5, 6, 7, kTop64), mapping("n", 5, 6, 7, kMax64)}};
  for (const auto& [smaller, larger] : ascending) {
    SCOPED_TRACE(strep(smaller));
    EXPECT_TRUE(smaller < larger);
    EXPECT_FALSE(larger < smaller);
    EXPECT_FALSE(smaller == larger);
  }
  const MemoryMapping a = mapping("MorvikLocal", 1, 2, 3, 4),
                      b = mapping("MorvikLocal", 1, 2, 3, 4);
  ASSERT_NE(a.name().charPtr(), b.name().charPtr());
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a < b);
  EXPECT_TRUE(!MemoryMapping());
  EXPECT_FALSE(!mapping("x", 0, 0, 0, 0));
  EXPECT_FALSE(!mapping("", 0, 0, 0, kTop64));
}

TEST(MemoryMapping, TextFormIsExactAndRoundTripsExtremesAndAnyNameBytes) {
  const MemoryMapping m = mapping("it's\\\x01", kMax64, ~0u, kTop64, 42);
  const std::string expected =
      "Value('MorvikLib::MemoryMapping', ** {'name': 'it\\'s\\\\\\x01', "
      "'vaddr': 18446744073709551615, 'size': 4294967295, 'paddr': 9223372036854775808, "
      "'version': 42})";
  std::ostringstream out;
  out << m;
  EXPECT_EQ(out.str(), expected);
  std::string everyByte;
  for (int b = 0; b < 256; ++b) everyByte.push_back(static_cast<char>(b));
  for (const auto& value : {MemoryMapping(), m, mapping("\\'\\\\''", kMax64, 1, kMax64, kMax64),
                            mapping(everyByte, 0, kTop32, 0, kMax64)}) {
    const Kel::String s = MorvikLib::valueToStrep(value);
    SCOPED_TRACE(s.stdString());
    // Parses with the parsing constructor and refuses anything left after the value.
    EXPECT_EQ(MemoryMapping::fromStrRep(s), value);
  }
}

const std::string kGood = strep(mapping("n", 12, 34, 56, 78));

// kGood with its first `from` replaced by `to`.
std::string spoil(const std::string& from, const std::string& to) {
  return std::string(kGood).replace(kGood.find(from), from.size(), to);
}

TEST(MemoryMapping, ParserStopsRightAfterTheValueAndRejectsEverythingElse) {
  const Kel::String two(kGood + kGood + " tail");
  Kel::String::IteratorConst it = two.begin();
  EXPECT_EQ(MemoryMapping(it, two.end()), MemoryMapping(it, two.end()));
  EXPECT_EQ(std::string(it, two.end()), " tail");
  for (const std::string& tail : {" "s, "})"s, "\0"s}) {
    EXPECT_THROW(MemoryMapping::fromStrRep(Kel::String(kGood + tail)), Kel::Exception);
  }
  for (std::size_t length = 0; length < kGood.size(); ++length) {
    EXPECT_THROW(parse(kGood.substr(0, length)), Kel::Exception) << kGood.substr(0, length);
  }
  // Each literal must match exactly, blanks included.
  const std::pair<const char*, const char*> literals[] = {
      {"Value(", "value("},   {"', **", "',**"},     {"'name': ", "'name':"}, {"'n', ", "'n',  "},
      {"'vaddr'", "'Vaddr'"}, {"'size'", "'sizes'"}, {": 78}", ": 78 }"},     {"78})", "78)"}};
  for (const auto& [from, to] : literals) EXPECT_THROW(parse(spoil(from, to)), Kel::ParseException);
  // A bad field names its attribute, and only that one.
  EXPECT_EQ(parse(spoil("34", "4294967295")).size(), ~0u);
  const std::tuple<const char*, const char*, std::string> fields[] = {
      {"'n'", "n", "name"},         {"'n'", "'\\q'", "name"},
      {"12", "-1", "vaddr"},        {"12", "18446744073709551616", "vaddr"},
      {"34", "4294967296", "size"}, {"56", "+1", "paddr"},
      {"78", " 1", "version"}};
  for (const auto& [from, to, attribute] : fields) {
    try {
      parse(spoil(from, to));
      ADD_FAILURE() << "parsed " << to;
    } catch (const Kel::ParseException& e) {
      ADD_FAILURE() << "literal mismatch instead of a bad field: " << e.message();
    } catch (const Kel::Exception& e) {
      for (const char* name : {"name", "vaddr", "size", "paddr", "version"}) {
        EXPECT_EQ(e.message().find(name) != std::string::npos, name == attribute) << e.message();
      }
    }
  }
}

}  // namespace
