#include "Checks.h"

#include "Kel/GenericIf.h"
#include "Kel/GenericType.h"
#include "MorvikLib/TypeNames.h"

namespace morvikpy {

namespace {

namespace GenericIfImpl = Kel::GenericIfImpl;
using Kel::GenericValue;

const std::map<std::string, TypeChecks>& registry() {
  static const std::map<std::string, TypeChecks> checks = [] {
    std::map<std::string, TypeChecks> all = recordChecks();
    all.emplace(MorvikLib::kMorvikMemoryTypeName, memoryChecks());
    all.emplace(MorvikLib::kMorvikMemorySmTypeName, memoryStateMachineChecks());
    all.emplace(MorvikLib::kMorvikAuditSmTypeName, auditStateMachineChecks());
    return all;
  }();
  return checks;
}

const TypeChecks* checksOf(const std::string& typeName) {
  if (!checksOn()) return nullptr;
  auto found = registry().find(typeName);
  return found == registry().end() ? nullptr : &found->second;
}

template <class Table>
auto lookup(const Table& table, const std::string& name) -> const typename Table::mapped_type* {
  auto found = table.find(name);
  return found == table.end() ? nullptr : &found->second;
}

// The attribute when it exists and is of `kind`; otherwise the generic interface will refuse the
// operation itself, in its own words.
const Kel::GenericAttribute* attributeOf(const GenericValue& self, const std::string& name,
                                         Kel::GenericAttribute::Kind kind) {
  const Kel::GenericType* type = Kel::typeNode(self.typeName());
  const Kel::GenericAttribute* attr = type ? type->attribute(name) : nullptr;
  return attr && attr->kind == kind ? attr : nullptr;
}

}  // namespace

After checkConstruction(const std::string& typeName, const Args& args) {
  const TypeChecks* checks = checksOf(typeName);
  if (!checks || !checks->construct) return {};
  const Kel::GenericType& type = Kel::GenericIf::type(typeName);
  return checks->construct(Check(typeName + " constructor"),
                           GenericIfImpl::unwrapConstructorArgs(type, args));
}

After checkCall(const GenericValue& self, const std::string& name, const Args& args) {
  const TypeChecks* checks = checksOf(self.typeName());
  const TypeChecks::Call* call = checks ? lookup(checks->calls, name) : nullptr;
  const auto* attr = attributeOf(self, name, Kel::GenericAttribute::Kind::function);
  if (!call || !attr) return {};
  const Args unwrapped =
      GenericIfImpl::unwrapFunctionArgs(Kel::GenericIf::type(self.typeName()), *attr, args);
  return (*call)(Check(self.typeName() + "." + name), self, unwrapped);
}

After checkSet(const GenericValue& self, const std::string& name, const GenericValue& value) {
  const TypeChecks* checks = checksOf(self.typeName());
  const TypeChecks::Set* set = checks ? lookup(checks->sets, name) : nullptr;
  const auto* attr = attributeOf(self, name, Kel::GenericAttribute::Kind::settable);
  if (!set || !attr) return {};
  const std::string context = self.typeName() + "." + name;
  return (*set)(Check(context), self, GenericIfImpl::unwrapValue(context, attr->type, value));
}

After checkMemberChange(const GenericValue& self, const std::string& name, const GenericValue& key,
                        const GenericValue* value) {
  const TypeChecks* checks = checksOf(self.typeName());
  const TypeChecks::Member* member = checks ? lookup(checks->members, name) : nullptr;
  const auto* attr = attributeOf(self, name, Kel::GenericAttribute::Kind::keyed);
  if (!member || !attr) return {};
  const std::string context = self.typeName() + "." + name;
  const GenericValue k = GenericIfImpl::unwrapValue(context + " key", attr->keyType, key);
  if (!value) return (*member)(Check(context), self, k, nullptr);
  const GenericValue v = GenericIfImpl::unwrapValue(context, attr->type, *value);
  return (*member)(Check(context), self, k, &v);
}

}  // namespace morvikpy
