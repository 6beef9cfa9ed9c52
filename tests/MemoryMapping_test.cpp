#include "MorvikLib/MemoryMapping.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Name.h"
#include "Kel/String.h"

namespace {

using MorvikLib::MemoryMapping;
using testing::HasSubstr;
using testing::Not;

constexpr U64 kMax64 = std::numeric_limits<U64>::max();
constexpr U32 kMax32 = std::numeric_limits<U32>::max();
constexpr U64 kTop64 = U64{1} << 63;
constexpr U32 kTop32 = U32{1} << 31;

MemoryMapping mapping(const std::string& name, U64 vaddr, U32 size, U64 paddr, U64 version) {
  return MemoryMapping(Kel::Name(name), vaddr, size, paddr, version);
}

std::string strep(const MemoryMapping& m) {
  return MorvikLib::valueToStrep(m).stdString();
}

// The text of a full value with every field given as text, so a table can spoil one of them.
std::string text(const std::string& name, const std::string& vaddr, const std::string& size,
                 const std::string& paddr, const std::string& version) {
  return "Value('MorvikLib::MemoryMapping', ** {'name': " + name + ", 'vaddr': " + vaddr +
         ", 'size': " + size + ", 'paddr': " + paddr + ", 'version': " + version + "})";
}

MemoryMapping parse(const std::string& input) {
  Kel::String s(input);
  Kel::String::IteratorConst it = s.begin();
  return MemoryMapping(it, s.end());
}

struct OrderCase {
  const char* what;
  MemoryMapping smaller;
  MemoryMapping larger;
};

TEST(MemoryMappingOrder, EachFieldDecidesOnlyWhenTheEarlierOnesAreEqual) {
  const std::vector<OrderCase> cases = {
      {"name beats every address", mapping("a", kMax64, kMax32, kMax64, kMax64),
       mapping("b", 0, 0, 0, 0)},
      {"empty name first", mapping("", kMax64, 0, 0, 0), mapping("a", 0, 0, 0, 0)},
      {"prefix first", mapping("ab", 9, 0, 0, 0), mapping("abc", 1, 0, 0, 0)},
      {"name bytes unsigned", mapping("z", 0, 0, 0, 0), mapping("\xff", 0, 0, 0, 0)},
      {"vaddr before size", mapping("n", 1, kMax32, 0, 0), mapping("n", 2, 0, 0, 0)},
      {"vaddr unsigned", mapping("n", kTop64 - 1, 0, 0, 0), mapping("n", kTop64, 0, 0, 0)},
      {"size before paddr", mapping("n", 5, 1, kMax64, 0), mapping("n", 5, 2, 0, 0)},
      {"size unsigned", mapping("n", 5, kTop32 - 1, 0, 0), mapping("n", 5, kTop32, 0, 0)},
      {"paddr before version", mapping("n", 5, 6, 1, kMax64), mapping("n", 5, 6, 2, 0)},
      {"paddr unsigned", mapping("n", 5, 6, 1, 0), mapping("n", 5, 6, kTop64, 0)},
      {"version last", mapping("n", 5, 6, 7, 1), mapping("n", 5, 6, 7, 2)},
      {"version unsigned", mapping("n", 5, 6, 7, kTop64), mapping("n", 5, 6, 7, kMax64)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_TRUE(c.smaller < c.larger);
    EXPECT_FALSE(c.larger < c.smaller);
    EXPECT_FALSE(c.smaller == c.larger);
    EXPECT_TRUE(c.smaller != c.larger);
  }
}

TEST(MemoryMappingOrder, EqualValuesAreNotLess) {
  MemoryMapping a = mapping("n", kMax64, kMax32, kMax64, kMax64);
  MemoryMapping b = mapping("n", kMax64, kMax32, kMax64, kMax64);
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_FALSE(MemoryMapping() < MemoryMapping());
}

TEST(MemoryMappingEquality, NamesCompareByTextNotByPayload) {
  MemoryMapping a = mapping("MorvikLocal", 1, 2, 3, 4);
  MemoryMapping b = mapping("MorvikLocal", 1, 2, 3, 4);
  ASSERT_NE(a.name().charPtr(), b.name().charPtr());
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
}

TEST(MemoryMappingEquality, AnyOneFieldMakesADifference) {
  const MemoryMapping base = mapping("n", 1, 2, 3, 4);
  const std::vector<MemoryMapping> others = {
      mapping("m", 1, 2, 3, 4),          mapping("n", 1 + kTop64, 2, 3, 4),
      mapping("n", 1, 2 + kTop32, 3, 4), mapping("n", 1, 2, 3 + kTop64, 4),
      mapping("n", 1, 2, 3, 4 + kTop64),
  };
  for (const auto& other : others) {
    SCOPED_TRACE(strep(other));
    EXPECT_FALSE(base == other);
    EXPECT_TRUE(base != other);
  }
}

TEST(MemoryMappingEmpty, OnlyTheDefaultValueIsEmpty) {
  EXPECT_TRUE(!MemoryMapping());
  EXPECT_TRUE(!mapping("", 0, 0, 0, 0));
  const std::vector<MemoryMapping> notEmpty = {
      mapping("x", 0, 0, 0, 0), mapping("", 1, 0, 0, 0), mapping("", 0, 1, 0, 0),
      mapping("", 0, 0, 1, 0),  mapping("", 0, 0, 0, 1), mapping("", 0, 0, 0, kTop64),
  };
  for (const auto& m : notEmpty) {
    SCOPED_TRACE(strep(m));
    EXPECT_FALSE(!m);
  }
}

TEST(MemoryMappingCopy, SharesTheNamePayloadAndDropsItOnReassignment) {
  MemoryMapping a = mapping("shared", 1, 2, 3, 4);
  ASSERT_EQ(a.name().string().payloadReferences(), 1u);
  MemoryMapping b = a;
  EXPECT_EQ(a.name().charPtr(), b.name().charPtr());
  EXPECT_EQ(a.name().string().payloadReferences(), 2u);
  b = MemoryMapping();
  EXPECT_EQ(a.name().string().payloadReferences(), 1u);
  MemoryMapping& alias = a;
  a = alias;
  EXPECT_EQ(a.name().string().payloadReferences(), 1u);
  EXPECT_EQ(a, mapping("shared", 1, 2, 3, 4));
}

TEST(MemoryMappingStrep, DefaultValue) {
  EXPECT_EQ(strep(MemoryMapping()),
            "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'size': 0, "
            "'paddr': 0, 'version': 0})");
}

TEST(MemoryMappingStrep, FullValueWithEscapedName) {
  MemoryMapping m = mapping("it's\\\x01", kMax64, kMax32, kTop64, 42);
  const std::string expected =
      "Value('MorvikLib::MemoryMapping', ** {'name': 'it\\'s\\\\\\x01', "
      "'vaddr': 18446744073709551615, 'size': 4294967295, 'paddr': 9223372036854775808, "
      "'version': 42})";
  EXPECT_EQ(strep(m), expected);
  std::ostringstream out;
  out << m;
  EXPECT_EQ(out.str(), expected);
}

TEST(MemoryMappingStrep, RoundTripsExtremesAndAnyNameBytes) {
  std::string everyByte;
  for (int b = 0; b < 256; ++b) everyByte.push_back(static_cast<char>(b));
  const std::vector<MemoryMapping> values = {
      MemoryMapping(),
      mapping("MorvikRemote", kMax64, kMax32, kMax64, kMax64),
      mapping("'", kTop64, kTop32, kTop64, kTop64),
      mapping("\\'\\\\''", 1, 1, 1, 1),
      mapping(std::string("a\0b", 3), 0x7fffffffffffffffULL, 4096, 0xc0000000, 0),
      mapping(everyByte, 0, 0, 0, kMax64),
  };
  for (const auto& m : values) {
    const Kel::String s = MorvikLib::valueToStrep(m);
    SCOPED_TRACE(s.stdString());
    Kel::String::IteratorConst it = s.begin();
    MemoryMapping parsed(it, s.end());
    EXPECT_EQ(it, s.end());
    EXPECT_EQ(parsed, m);
    EXPECT_EQ(parsed.name().string().size(), m.name().string().size());
    EXPECT_EQ(MemoryMapping::fromStrRep(s), m);
  }
}

TEST(MemoryMappingParse, StopsRightAfterTheValue) {
  const MemoryMapping first = mapping("first", 1, 2, 3, 4);
  const MemoryMapping second = mapping("second", 5, 6, 7, 8);
  const Kel::String s(strep(first) + strep(second) + " tail");
  Kel::String::IteratorConst it = s.begin();
  EXPECT_EQ(MemoryMapping(it, s.end()), first);
  EXPECT_EQ(MemoryMapping(it, s.end()), second);
  EXPECT_EQ(std::string(it, s.end()), " tail");
}

TEST(MemoryMappingParse, FromStrRepRefusesTrailingText) {
  const std::string good = strep(mapping("n", 1, 2, 3, 4));
  for (const std::string& tail : std::vector<std::string>{" ", "x", "})", std::string(1, '\0')}) {
    SCOPED_TRACE(tail);
    EXPECT_THROW(MemoryMapping::fromStrRep(Kel::String(good + tail)), Kel::Exception);
  }
}

TEST(MemoryMappingParse, EveryTruncationFails) {
  const std::string good = strep(mapping("n", 12, 34, 56, 78));
  for (std::size_t length = 0; length < good.size(); ++length) {
    SCOPED_TRACE(good.substr(0, length));
    EXPECT_THROW(parse(good.substr(0, length)), Kel::Exception);
    EXPECT_THROW(MemoryMapping::fromStrRep(Kel::String(good.substr(0, length))), Kel::Exception);
  }
}

TEST(MemoryMappingParse, EachLiteralMustMatchExactly) {
  const std::vector<std::string> bad = {
      "value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', **{'name': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value(\"MorvikLib::MemoryMapping\", ** {'name': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name':'', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'nam': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '',  'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr':0, 'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0,'size': 0, 'paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'paddr': 0, 'size': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'size': 0, 'Paddr': 0, "
      "'version': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'versions': 0})",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0} )",
      "Value('MorvikLib::MemoryMapping', ** {'name': '', 'vaddr': 0, 'size': 0, 'paddr': 0, "
      "'version': 0)",
      " " + strep(MemoryMapping()),
      "",
  };
  for (const auto& input : bad) {
    SCOPED_TRACE(input);
    EXPECT_THROW(parse(input), Kel::ParseException);
    EXPECT_THROW(MemoryMapping::fromStrRep(Kel::String(input)), Kel::ParseException);
  }
}

struct BadField {
  std::string input;
  const char* attribute;
};

TEST(MemoryMappingParse, BadFieldsNameTheirAttribute) {
  const std::string ok = "0";
  const std::string name = "'n'";
  const std::vector<BadField> cases = {
      {text("n", ok, ok, ok, ok), "name"},
      {text("\"n\"", ok, ok, ok, ok), "name"},
      {"Value('MorvikLib::MemoryMapping', ** {'name': 'unterminated", "name"},
      {text("'\\q'", ok, ok, ok, ok), "name"},
      {text("'\\x4'", ok, ok, ok, ok), "name"},
      {text(name, "-1", ok, ok, ok), "vaddr"},
      {text(name, "", ok, ok, ok), "vaddr"},
      {text(name, "18446744073709551616", ok, ok, ok), "vaddr"},
      {text(name, ok, "4294967296", ok, ok), "size"},
      {text(name, ok, "18446744073709551615", ok, ok), "size"},
      {text(name, ok, "x", ok, ok), "size"},
      {text(name, ok, ok, "99999999999999999999", ok), "paddr"},
      {text(name, ok, ok, "+1", ok), "paddr"},
      {text(name, ok, ok, ok, "18446744073709551616"), "version"},
      {text(name, ok, ok, ok, " 1"), "version"},
  };
  const std::vector<std::string> attributes = {"name", "vaddr", "size", "paddr", "version"};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.input);
    try {
      parse(c.input);
      ADD_FAILURE() << "parsed";
    } catch (const Kel::ParseException& e) {
      ADD_FAILURE() << "literal mismatch instead of a bad field: " << e.message();
    } catch (const Kel::Exception& e) {
      EXPECT_THAT(e.message(), HasSubstr(c.attribute));
      for (const auto& other : attributes) {
        if (other != c.attribute) {
          EXPECT_THAT(e.message(), Not(HasSubstr(other)));
        }
      }
    }
  }
}

TEST(MemoryMappingParse, SizeBoundaryIsThirtyTwoBits) {
  const std::string name = "'n'";
  EXPECT_EQ(parse(text(name, "0", "4294967295", "0", "0")).size(), kMax32);
  EXPECT_THROW(parse(text(name, "0", "4294967296", "0", "0")), Kel::Exception);
  EXPECT_EQ(parse(text(name, "18446744073709551615", "0", "0", "0")).vaddr(), kMax64);
  EXPECT_EQ(parse(text(name, "0", "0", "0", "18446744073709551615")).version(), kMax64);
}

}  // namespace
