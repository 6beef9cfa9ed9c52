#ifndef KEL_GENERICIF_H
#define KEL_GENERICIF_H

#include <string>
#include <string_view>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/GenericType.h"

namespace Kel {

// An operation the generic interface does not offer on that type or attribute: an unknown name, a
// set of a read-only attribute, a comparison the type does not define.
class OpNotSupportedException : public Exception {
 public:
  explicit OpNotSupportedException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kOpNotSupportedIdBit)) {}
};

// A generic value, or a list of them, that does not fit what an operation declares: a wrong
// argument count, a wrong argument type, a number out of the declared type's range.
class TypeException : public Exception {
 public:
  explicit TypeException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kTypeIdBit)) {}
};

// Asked for the hash of a value whose type refuses to be hashed through the generic interface.
class UnhashableException : public TypeException {
 public:
  using TypeException::TypeException;
};

// The checks and refusals every type's generic operations share. Each refusal is an exception
// whose message names the type, the attribute or function, and what was expected, so a script's
// author sees what to change without reading the library.
namespace GenericIfImpl {

// Checks the count and converts each argument to its declared type; throws TypeException.
std::vector<GenericValue> unwrapConstructorArgs(const GenericType& type,
                                                const std::vector<GenericValue>& args);
std::vector<GenericValue> unwrapFunctionArgs(const GenericType& type,
                                             const GenericAttribute& function,
                                             const std::vector<GenericValue>& args);
// One value for a declared type; `context` names where it goes ("MorvikLib::MorvikMemory.size").
GenericValue unwrapValue(const std::string& context, const std::string& declaredType,
                         const GenericValue& value);

// "<type>: <operation> is not supported"
[[noreturn]] void throwOpNotSupportedException(const std::string& typeName,
                                               const std::string& operation);
// "<type>.<attribute>: <reason>"
[[noreturn]] void throwOpNotSupportedException(const std::string& typeName,
                                               const std::string& attribute,
                                               const std::string& reason);
[[noreturn]] void throwUnhashableException(const std::string& typeName);
// "<context>: expected <expected>, got <what was given>"
[[noreturn]] void throwTypeException(const std::string& context, const std::string& expected,
                                     const GenericValue& got);

}  // namespace GenericIfImpl

// The generic (scripting) interface: objects created by type name, attributes read and set by
// name, keyed attributes looked up, set, deleted and iterated, functions called, all with generic
// values. It checks what every type shares (the type and attribute exist, the operation suits the
// attribute's kind, a value or key fits its declared type) and hands the rest to the type node.
// Every refusal is an exception (OpNotSupportedException, TypeException, RangeException for an
// unknown type name); nothing here ends the process.
namespace GenericIf {

using NotifieeConst = GenericIfNotifiee;
using Members = GenericAttributeOp::Members;

// The registered node of a type; throws RangeException when there is none.
const GenericType& type(std::string_view typeName);
GenericValue genericIfFromCtorArgs(std::string_view typeName,
                                   const std::vector<GenericValue>& args);
GenericValue fromStrRep(std::string_view typeName, const String& text);
String strRep(const GenericValue& value);

GenericValue attribute(const GenericValue& self, std::string_view name);
void attributeIs(const GenericValue& self, std::string_view name, const GenericValue& value);
// A null value when there is no member with that key.
GenericValue member(const GenericValue& self, std::string_view name, const GenericValue& key);
void memberIs(const GenericValue& self, std::string_view name, const GenericValue& key,
              const GenericValue& value);
void memberDel(const GenericValue& self, std::string_view name, const GenericValue& key);
// From the first member, or from the member with `fromKey` when given.
Members members(const GenericValue& self, std::string_view name,
                const GenericValue* fromKey = nullptr);
GenericValue call(const GenericValue& self, std::string_view name,
                  const std::vector<GenericValue>& args);

// Objects compare by identity; values by their type's operators.
bool equal(const GenericValue& a, const GenericValue& b);
bool less(const GenericValue& a, const GenericValue& b);
bool empty(const GenericValue& value);
std::size_t hash(const GenericValue& value);

// A registered notifiee on `self` forwarding every change to `watcher`; dropping the returned
// pointer (after unregistering it) ends the watch.
Ptr<EntityNotifiee> watch(const GenericValue& self, const Ptr<NotifieeConst>& watcher);

}  // namespace GenericIf

}  // namespace Kel

#endif
