// The platform's generic machinery: the type registry, generic values and their conversions, and
// the shared unwrapping and refusal functions.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Dir.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericTableType.h"
#include "Kel/GenericType.h"
#include "support/KelLeakCheck.h"
#include "support/Refusals.h"

namespace {

using Kel::GenericAttribute;
namespace GenericIf = Kel::GenericIf;
namespace GenericIfImpl = Kel::GenericIfImpl;
using Kel::GenericValue;

GenericValue u64(U64 v) {
  return GenericValue::ofUnsigned("U64", v);
}

GenericValue text(const char* v) {
  return GenericValue::of(Kel::String(v));
}

// A small entity type of the test's own, with one function.
class Thing final : public Kel::EntityOf<Thing> {
 public:
  using NotifieeConst = Kel::EntityNotifiee;
  explicit Thing(const Kel::Name& name) : name_(name) {}
  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }
  const char* fwkType() const override { return "Test::Thing"; }
  U64 add(U32 a, U64 b) const { return a + b; }

 private:
  Kel::Name name_;
  mutable Kel::NotifieeList notifiees_;
};

constexpr const char* genericTypeName(std::type_identity<Thing>) {
  return "Test::Thing";
}

std::unique_ptr<Kel::GenericTableType<Thing>> thingType() {
  auto t = Kel::GenericTableType<Thing>::made<Kel::Name>({"name"});
  t->function("add", &Thing::add, {"a", "b"});
  return t;
}

class GenericIfTest : public KelTest::LeakCheckedTest {
 protected:
  ~GenericIfTest() override { Kel::typeNodeDel("Test::Thing"); }
};

TEST_F(GenericIfTest, RegistryFindsReplacesAndRemovesByName) {
  EXPECT_EQ(Kel::typeNode("Test::Thing"), nullptr);
  Kel::typeNodeIs(thingType());
  const Kel::GenericType* first = Kel::typeNode("Test::Thing");
  ASSERT_NE(first, nullptr);
  std::vector<std::string> names = Kel::typeNames();
  EXPECT_EQ(names.back(), "Test::Thing");
  Kel::typeNodeIs(thingType());
  EXPECT_EQ(Kel::typeNames().size(), names.size());
  EXPECT_NE(Kel::typeNode("Test::Thing"), first);
  Kel::typeNodeDel("Test::Thing");
  EXPECT_EQ(Kel::typeNode("Test::Thing"), nullptr);
  EXPECT_THROW(GenericIf::type("Test::Thing"), Kel::RangeException);
}

TEST_F(GenericIfTest, ObjectsAreCreatedCalledAndComparedByIdentity) {
  Kel::typeNodeIs(thingType());
  GenericValue a = GenericIf::genericIfFromCtorArgs("Test::Thing", {text("a")});
  GenericValue b = GenericIf::genericIfFromCtorArgs("Test::Thing", {text("b")});
  EXPECT_EQ(GenericIf::attribute(a, "name").text(), Kel::String("a"));
  EXPECT_EQ(GenericIf::call(a, "add", {u64(2), u64(40)}).unsignedInt(), 42u);
  EXPECT_TRUE(GenericIf::equal(a, a));
  EXPECT_FALSE(GenericIf::equal(a, b));
  EXPECT_FALSE(GenericIf::empty(a));
  EXPECT_TRUE(GenericIf::empty(GenericValue()));
  EXPECT_EQ(GenericIf::strRep(a), Kel::String("<Test::Thing 'a'>"));
}

struct Conversion {
  GenericValue value;
  std::string type;
  std::optional<std::string> result;  // describe() of the converted value
};

TEST_F(GenericIfTest, ConversionsFollowTheDeclaredType) {
  const std::vector<Conversion> table = {
      {u64(255), "U8", "U8 255"},
      {u64(256), "U8", std::nullopt},
      {u64(4294967295u), "U32", "U32 4294967295"},
      {u64(4294967296u), "U32", std::nullopt},
      {u64(~U64{0}), "U64", "U64 18446744073709551615"},
      {GenericValue::ofSigned("int", -1), "U64", std::nullopt},
      {GenericValue::ofSigned("int", -5), "int", "int -5"},
      {u64(2147483648u), "int", std::nullopt},
      {u64(3), "double", "double 3.000000"},
      {GenericValue::of(1.5), "U32", std::nullopt},
      {GenericValue::of(true), "U32", std::nullopt},
      {u64(1), "bool", std::nullopt},
      {text("x"), "Kel::Name", "Kel::Name 'x'"},
      {GenericValue::of(Kel::Name("y")), "Kel::String", "Kel::String 'y'"},
      {text("x"), "U32", std::nullopt},
      {u64(7), "Kel::BytePtr", std::nullopt},
      {GenericValue(), "Kel::Dir", "None"},
      {GenericValue(), "U32", std::nullopt},
      {GenericValue(), "Test::Unknown", std::nullopt},
  };
  for (const Conversion& c : table) {
    std::optional<GenericValue> converted = c.value.convertedTo(c.type);
    SCOPED_TRACE(c.value.describe() + " -> " + c.type);
    ASSERT_EQ(converted.has_value(), c.result.has_value());
    if (converted) {
      EXPECT_EQ(converted->describe(), *c.result);
    }
  }
}

TEST_F(GenericIfTest, ObjectsConvertToTheTypesTheyAreInstancesOf) {
  GenericValue dir = GenericValue::ofObject("Kel::Dir", Kel::allocate<Kel::Dir>(Kel::Name("d")));
  EXPECT_TRUE(dir.convertedTo("Kel::Dir").has_value());
  EXPECT_TRUE(dir.convertedTo("Kel::Entity").has_value());
  EXPECT_FALSE(dir.convertedTo("Kel::Clock").has_value());
  EXPECT_FALSE(dir.convertedTo("U64").has_value());
}

TEST_F(GenericIfTest, UnwrapRefusesWrongCountsAndTypesWithTheirPlace) {
  auto type = thingType();
  const GenericAttribute& add = *type->attribute("add");
  auto unwrap = [&](std::vector<GenericValue> args) {
    return [&, args] { GenericIfImpl::unwrapFunctionArgs(*type, add, args); };
  };
  MorvikTest::expectRefused<Kel::TypeException>({
      {unwrap({}), "Test::Thing.add: expected 2 arguments (U32 a, U64 b), got 0"},
      {unwrap({u64(1), u64(2), u64(3)}),
       "Test::Thing.add: expected 2 arguments (U32 a, U64 b), got 3"},
      {unwrap({u64(1ull << 32), u64(2)}),
       "Test::Thing.add: argument 1 (U32 a): expected U32, got U64 4294967296 (out of range)"},
      {unwrap({u64(1), text("2")}),
       "Test::Thing.add: argument 2 (U64 b): expected U64, got Kel::String '2'"},
      {unwrap({u64(1), GenericValue()}),
       "Test::Thing.add: argument 2 (U64 b): expected U64, got None"},
      {[&] { GenericIfImpl::unwrapConstructorArgs(*type, {}); },
       "Test::Thing constructor: expected 1 argument (Kel::Name name), got 0"},
  });
}

TEST_F(GenericIfTest, RefusalFunctionsThrowTheirTypesAndMessages) {
  MorvikTest::expectRefused<Kel::OpNotSupportedException>({
      {[] { GenericIfImpl::throwOpNotSupportedException("T", "ordering"); },
       "T: ordering is not supported"},
      {[] { GenericIfImpl::throwOpNotSupportedException("T", "a", "no such attribute"); },
       "T.a: no such attribute"},
  });
  MorvikTest::expectRefused<Kel::TypeException>({
      {[] { GenericIfImpl::throwTypeException("T.a", "Kel::Dir", u64(5)); },
       "T.a: expected Kel::Dir, got U64 5"},
  });
  EXPECT_THROW(GenericIfImpl::throwUnhashableException("T"), Kel::UnhashableException);
  // Scripts tell the kinds apart by their id bits.
  try {
    GenericIfImpl::throwOpNotSupportedException("T", "ordering");
  } catch (const Kel::Exception& e) {
    EXPECT_TRUE(e.ids().test(Kel::Exception::kOpNotSupportedIdBit));
  }
  try {
    GenericIfImpl::throwTypeException("T.a", "Kel::Dir", u64(5));
  } catch (const Kel::Exception& e) {
    EXPECT_TRUE(e.ids().test(Kel::Exception::kTypeIdBit));
  }
}

TEST_F(GenericIfTest, AttributeKindsRefuseOperationsThatDoNotSuitThem) {
  Kel::typeNodeIs(thingType());
  GenericValue a = GenericIf::genericIfFromCtorArgs("Test::Thing", {text("a")});
  const MorvikTest::Refusals table = {
      {[&] { GenericIf::attributeIs(a, "name", text("b")); },
       "Test::Thing.name: read-only attribute, set is not supported"},
      {[&] { GenericIf::attribute(a, "add"); }, "Test::Thing.add: a function, call it instead"},
      {[&] { GenericIf::call(a, "name", {}); },
       "Test::Thing.name: not a function, call is not supported"},
      {[&] { GenericIf::member(a, "name", u64(1)); },
       "Test::Thing.name: not a keyed attribute, member operations are not supported"},
      {[&] { GenericIf::attribute(a, "size"); }, "Test::Thing.size: no such attribute"},
      {[&] { GenericIf::less(a, a); }, "Test::Thing: ordering is not supported"},
      {[&] { GenericIf::watch(a, nullptr); }, "Test::Thing: watching is not supported"},
  };
  MorvikTest::expectRefused<Kel::OpNotSupportedException>(table);
}

}  // namespace
