#ifndef KEL_GENERICIF_H
#define KEL_GENERICIF_H

#include <string>
#include <string_view>
#include <vector>

#include "Kel/GenericType.h"
#include "Kel/GenericValue.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"

namespace Kel {

// The generic (scripting) interface: objects created by type name, attributes read and set by
// name, keyed attributes looked up, set, deleted and iterated, functions called, all with generic
// values. It checks what every type shares (the type and attribute exist, the operation suits the
// attribute's kind, a value or key fits its declared type) and hands the rest to the type node.
// Every refusal is an exception (OpNotSupportedException, TypeException, RangeException for an
// unknown type name); nothing here ends the process.
class GenericIf {
 public:
  using NotifieeConst = GenericIfNotifiee;
  using Members = GenericAttributeOp::Members;

  // The registered node of a type; throws RangeException when there is none.
  static const GenericType& type(std::string_view typeName);
  static GenericValue genericIfFromCtorArgs(std::string_view typeName,
                                            const std::vector<GenericValue>& args);
  static GenericValue fromStrRep(std::string_view typeName, const String& text);
  static String strRep(const GenericValue& value);

  static GenericValue attribute(const GenericValue& self, std::string_view name);
  static void attributeIs(const GenericValue& self, std::string_view name,
                          const GenericValue& value);
  // A null value when there is no member with that key.
  static GenericValue member(const GenericValue& self, std::string_view name,
                             const GenericValue& key);
  static void memberIs(const GenericValue& self, std::string_view name, const GenericValue& key,
                       const GenericValue& value);
  static void memberDel(const GenericValue& self, std::string_view name, const GenericValue& key);
  // From the first member, or from the member with `fromKey` when given.
  static Members members(const GenericValue& self, std::string_view name,
                         const GenericValue* fromKey = nullptr);
  static GenericValue call(const GenericValue& self, std::string_view name,
                           const std::vector<GenericValue>& args);

  // Objects compare by identity; values by their type's operators.
  static bool equal(const GenericValue& a, const GenericValue& b);
  static bool less(const GenericValue& a, const GenericValue& b);
  static bool empty(const GenericValue& value);
  static std::size_t hash(const GenericValue& value);

  // A registered notifiee on `self` forwarding every change to `watcher`; dropping the returned
  // pointer (after unregistering it) ends the watch.
  static Ptr<EntityNotifiee> watch(const GenericValue& self, const Ptr<NotifieeConst>& watcher);

 private:
  static const GenericType& typeOf(const GenericValue& self, std::string_view operation);
  // The operation on attribute `name` of `self`, refused unless it suits the attribute's kind,
  // with `key` and `value` (when given) converted to their declared types.
  static GenericAttributeOp opFor(GenericAttributeOp::Kind kind, const GenericValue& self,
                                  std::string_view name, const GenericValue* key = nullptr,
                                  const GenericValue* value = nullptr);
  static GenericValue run(GenericAttributeOp& op);
};

}  // namespace Kel

#endif
