// The platform's generic machinery: the type registry, generic values and their conversions, and
// the refusals that no library type reaches.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Dir.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericTableType.h"
#include "Kel/GenericType.h"
#include "support/KelLeakCheck.h"
#include "support/Refusals.h"

namespace {

namespace GenericIf = Kel::GenericIf;
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

// Registering a type again replaces its node in place; objects compare by identity.
TEST_F(GenericIfTest, RegistryReplacesAndRemovesTypesByNameAndMakesObjectsThatRefuseMisuse) {
  EXPECT_EQ(Kel::typeNode("Test::Thing"), nullptr);
  Kel::typeNodeIs(thingType());
  const Kel::GenericType* first = Kel::typeNode("Test::Thing");
  const std::vector<std::string> names = Kel::typeNames();
  EXPECT_EQ(names.back(), "Test::Thing");
  Kel::typeNodeIs(thingType());
  EXPECT_EQ(Kel::typeNames(), names);
  EXPECT_NE(Kel::typeNode("Test::Thing"), first);
  GenericValue a = GenericIf::genericIfFromCtorArgs("Test::Thing", {text("a")});
  GenericValue b = GenericIf::genericIfFromCtorArgs("Test::Thing", {text("b")});
  EXPECT_EQ(GenericIf::call(a, "add", {u64(2), u64(40)}).unsignedInt(), 42u);
  EXPECT_TRUE(GenericIf::equal(a, a));
  EXPECT_FALSE(GenericIf::equal(a, b));
  EXPECT_FALSE(GenericIf::empty(a));
  EXPECT_TRUE(GenericIf::empty(GenericValue()));
  EXPECT_EQ(GenericIf::strRep(a), Kel::String("<Test::Thing 'a'>"));
  // Refusals that no library type reaches; the rest are checked through the library's own types.
  MorvikTest::expectRefused<Kel::TypeException>({
      {[&] {
         GenericIf::call(a, "add", {u64(1), u64(2), u64(3)});
       },
       "Test::Thing.add: expected 2 arguments (U32 a, U64 b), got 3"},
      {[&] {
         GenericIf::call(a, "add", {u64(1), GenericValue()});
       },
       "Test::Thing.add: argument 2 (U64 b): expected U64, got None"},
  });
  MorvikTest::expectRefused<Kel::OpNotSupportedException>({
      {[&] { GenericIf::call(a, "name", {}); },
       "Test::Thing.name: not a function, call is not supported"},
      {[&] { GenericIf::member(a, "name", u64(1)); },
       "Test::Thing.name: not a keyed attribute, member operations are not supported"},
      {[&] { GenericIf::watch(a, nullptr); }, "Test::Thing: watching is not supported"},
  });
  Kel::typeNodeDel("Test::Thing");
  EXPECT_EQ(Kel::typeNode("Test::Thing"), nullptr);
}

// An object converts to the types it is an instance of and keeps its own type name.
TEST_F(GenericIfTest, ConversionsFollowTheDeclaredType) {
  const GenericValue dir =
      GenericValue::ofObject("Kel::Dir", Kel::allocate<Kel::Dir>(Kel::Name("d")));
  // A value, a type, and describe() of the value converted to it, if it converts.
  const std::tuple<GenericValue, std::string, std::optional<std::string>> table[] = {
      {u64(255), "U8", "U8 255"},
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
      {dir, "Kel::Entity", "Kel::Dir"},
      {dir, "Kel::Clock", std::nullopt},
      {dir, "U64", std::nullopt},
  };
  for (const auto& [value, type, result] : table) {
    std::optional<GenericValue> converted = value.convertedTo(type);
    SCOPED_TRACE(value.describe() + " -> " + type);
    ASSERT_EQ(converted.has_value(), result.has_value());
    if (converted) {
      EXPECT_EQ(converted->describe(), *result);
    }
  }
}

}  // namespace
