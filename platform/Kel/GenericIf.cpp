#include "Kel/GenericIf.h"

#include <functional>

#include "Kel/Exception.h"

namespace Kel::GenericIf {

namespace {

using OpKind = GenericAttributeOp::Kind;
using AttrKind = GenericAttribute::Kind;

// Why an operation does not suit an attribute, in the script author's terms; null when it suits.
const char* refusal(OpKind op, AttrKind attr) {
  const bool member = op != OpKind::get && op != OpKind::set && op != OpKind::call;
  if (attr == AttrKind::function) {
    return op == OpKind::call ? nullptr : "a function, call it instead";
  }
  if (attr == AttrKind::keyed) {
    return member ? nullptr : "a keyed attribute, look up, set or delete a member by key instead";
  }
  if (op == OpKind::set && attr != AttrKind::settable) {
    return "read-only attribute, set is not supported";
  }
  if (op == OpKind::call) return "not a function, call is not supported";
  return member ? "not a keyed attribute, member operations are not supported" : nullptr;
}

const GenericType& typeOf(const GenericValue& self, std::string_view operation) {
  const GenericType* node = typeNode(self.typeName());
  if (!node) {
    GenericIfImpl::throwOpNotSupportedException(self.typeName(), std::string(operation));
  }
  return *node;
}

// The operation on attribute `name` of `self`, refused unless it suits the attribute's kind,
// with `key` and `value` (when given) converted to their declared types.
GenericAttributeOp opFor(OpKind kind, const GenericValue& self, std::string_view name,
                         const GenericValue* key = nullptr, const GenericValue* value = nullptr) {
  const GenericType& node = typeOf(self, "attribute " + std::string(name));
  const U32 id = node.attributeId(name);
  const GenericAttribute* attr = node.attribute(name);
  const char* why = attr ? refusal(kind, attr->kind) : "no such attribute";
  if (why) GenericIfImpl::throwOpNotSupportedException(node.name(), std::string(name), why);
  GenericAttributeOp op{kind, self, *attr, id};
  const std::string context = self.typeName() + "." + attr->name;
  if (key) op.key = GenericIfImpl::unwrapValue(context + " key", attr->keyType, *key);
  if (value) op.value = GenericIfImpl::unwrapValue(context, attr->type, *value);
  return op;
}

GenericValue run(GenericAttributeOp& op) {
  return typeOf(op.self, "").genericIfAttributeOp(op);
}

// Compares `a` with `b` converted to a's type, by a's type's operator.
bool typeOp(GenericType::TypeOp op, const char* what, const GenericValue& a,
            const GenericValue& b) {
  const GenericType& node = typeOf(a, what);
  GenericValue other = GenericIfImpl::unwrapValue(node.name() + " " + what, node.name(), b);
  return node.genericIfTypeOp(op, a, other);
}

}  // namespace

const GenericType& type(std::string_view typeName) {
  const GenericType* node = typeNode(typeName);
  if (!node) throw RangeException(std::string(typeName) + ": no such type is registered");
  return *node;
}

GenericValue genericIfFromCtorArgs(std::string_view typeName,
                                   const std::vector<GenericValue>& args) {
  return type(typeName).genericIfFromCtorArgs(args);
}

GenericValue fromStrRep(std::string_view typeName, const String& text) {
  return type(typeName).genericIfFromStrRep(text);
}

String strRep(const GenericValue& value) {
  if (value.kind() == GenericValue::Kind::object || value.kind() == GenericValue::Kind::value) {
    if (const GenericType* node = typeNode(value.typeName())) return node->genericIfStrRep(value);
  }
  return String(value.describe());
}

GenericValue attribute(const GenericValue& self, std::string_view name) {
  GenericAttributeOp op = opFor(OpKind::get, self, name);
  return run(op);
}

void attributeIs(const GenericValue& self, std::string_view name, const GenericValue& value) {
  GenericAttributeOp op = opFor(OpKind::set, self, name, nullptr, &value);
  run(op);
}

GenericValue member(const GenericValue& self, std::string_view name, const GenericValue& key) {
  GenericAttributeOp op = opFor(OpKind::memberGet, self, name, &key);
  return run(op);
}

void memberIs(const GenericValue& self, std::string_view name, const GenericValue& key,
              const GenericValue& value) {
  GenericAttributeOp op = opFor(OpKind::memberSet, self, name, &key, &value);
  run(op);
}

void memberDel(const GenericValue& self, std::string_view name, const GenericValue& key) {
  GenericAttributeOp op = opFor(OpKind::memberDel, self, name, &key);
  run(op);
}

Members members(const GenericValue& self, std::string_view name, const GenericValue* fromKey) {
  GenericAttributeOp op = opFor(OpKind::members, self, name, fromKey);
  run(op);
  return std::move(op.members);
}

GenericValue call(const GenericValue& self, std::string_view name,
                  const std::vector<GenericValue>& args) {
  GenericAttributeOp op = opFor(OpKind::call, self, name);
  op.args = args;
  return run(op);
}

bool equal(const GenericValue& a, const GenericValue& b) {
  using Kind = GenericValue::Kind;
  if (a.isNull() || a.kind() == Kind::object) {
    return (b.isNull() || b.kind() == Kind::object) && a.object() == b.object();
  }
  if (a.kind() == Kind::value) return typeOp(GenericType::TypeOp::equal, "equality", a, b);
  std::optional<GenericValue> other = b.convertedTo(a.typeName());
  return other && other->describe() == a.describe();
}

bool less(const GenericValue& a, const GenericValue& b) {
  return typeOp(GenericType::TypeOp::less, "ordering", a, b);
}

bool empty(const GenericValue& value) {
  if (value.isNull()) return true;
  if (value.kind() == GenericValue::Kind::object) return false;
  return typeOf(value, "emptiness test").genericIfTypeOp(GenericType::TypeOp::empty, value, value);
}

std::size_t hash(const GenericValue& value) {
  if (value.isNull()) return 0;
  if (value.kind() == GenericValue::Kind::object) {
    return std::hash<const void*>()(value.object().ptr());
  }
  if (value.kind() == GenericValue::Kind::value) return typeOf(value, "hash").genericIfHash(value);
  return std::hash<std::string>()(value.describe());
}

Ptr<EntityNotifiee> watch(const GenericValue& self, const Ptr<NotifieeConst>& watcher) {
  if (self.isNull()) GenericIfImpl::throwOpNotSupportedException("None", "watching");
  return typeOf(self, "watching").genericIfNotifiee(self, watcher);
}

}  // namespace Kel::GenericIf
