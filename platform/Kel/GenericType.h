#ifndef KEL_GENERICTYPE_H
#define KEL_GENERICTYPE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/GenericValue.h"

namespace Kel {

// What the generic interface says about one attribute of a type: its name, its declared type (the
// value type of a keyed attribute, the result type of a function, "void" for none), what can be
// done with it, and a function's arguments in their declared order.
struct GenericAttribute {
  enum class Kind { readable, settable, keyed, function };
  struct Arg {
    std::string type;
    std::string name;
  };
  using Args = std::vector<Arg>;

  // "U32 addr, U64 data, U32 size": how refusals show what was expected.
  static std::string argList(const Args& args);

  std::string name;
  std::string type;
  Kind kind;
  Args args = {};
  std::string keyType = {};
};

// One operation on one attribute of one object, as GenericIf hands it to the type's
// genericIfAttributeOp. GenericIf has already checked that the attribute exists and that the
// operation suits its kind, and converted `value` and `key` to the declared types; function
// arguments are left to the type, which unwraps them (GenericIfImpl::unwrapFunctionArgs).
struct GenericAttributeOp {
  enum class Kind { get, set, memberGet, memberSet, memberDel, members, call };
  using Members = std::vector<std::pair<GenericValue, GenericValue>>;

  Kind kind;
  GenericValue self;
  const GenericAttribute& attribute;
  U32 attributeId;
  // set: the new value; memberSet: the member's new value.
  GenericValue value = {};
  // memberGet, memberSet, memberDel; members: the member to start from, null for the first.
  GenericValue key = {};
  // call: the arguments as given.
  std::vector<GenericValue> args = {};
  // members: filled by the type, each member as (key, value), in the attribute's own order.
  Members members = {};
};

// A generic watcher (GenericIf::NotifieeConst): told of every change of a watched object by the
// attribute's identifier (its position in the type node's attributes), with the key for a keyed
// attribute. A type's generic notifiee holds the watcher and forwards its handlers here.
class GenericIfNotifiee : public PtrInterface {
 public:
  virtual void onRawAttribute(U32 attributeId) = 0;
  virtual void onRawAttribute(U32 attributeId, const GenericValue& key) = 0;
};

// A type node of the generic interface: the type's name, its attributes in declared order (an
// attribute's identifier is its position), its constructor arguments, and the operations behind
// them. A library derives one per type it offers and registers it with typeNodeIs. Every operation
// a type does not override is refused with the unsupported-operation exception.
class GenericType {
 public:
  enum class Kind { value, entity, refCounted };
  enum class TypeOp { equal, less, empty };

  GenericType(std::string name, Kind kind, GenericAttribute::Args constructorArgs);
  virtual ~GenericType() = default;
  GenericType(const GenericType&) = delete;
  GenericType& operator=(const GenericType&) = delete;

  const std::string& name() const { return name_; }
  Kind kind() const { return kind_; }
  const GenericAttribute::Args& constructorArgs() const { return constructorArgs_; }
  const std::vector<GenericAttribute>& attributes() const { return attributes_; }
  // Null when the type has no attribute of that name.
  const GenericAttribute* attribute(std::string_view name) const;
  // The attribute's identifier; attributes().size() when there is none.
  U32 attributeId(std::string_view name) const;

  virtual GenericValue genericIfFromCtorArgs(const std::vector<GenericValue>& args) const = 0;
  virtual GenericValue genericIfAttributeOp(GenericAttributeOp& op) const = 0;
  // Whether a counted object is of this type (or derived from it).
  virtual bool isInstance(const PtrInterface* object) const = 0;
  // "<Test::Thing 'a'>" for an entity, "<MorvikLib::MorvikAuditSm>" for another object.
  virtual String genericIfStrRep(const GenericValue& value) const;
  virtual GenericValue genericIfFromStrRep(const String&) const {
    refuse("construction from a string representation");
  }
  // Comparisons of two values of this type; `b` is ignored for empty.
  virtual bool genericIfTypeOp(TypeOp op, const GenericValue&, const GenericValue&) const {
    refuse(op == TypeOp::equal ? "equality" : op == TypeOp::less ? "ordering" : "emptiness test");
  }
  virtual std::size_t genericIfHash(const GenericValue&) const { refuse("hash"); }
  // A notifiee on `self` that forwards every change to `watcher`.
  virtual Ptr<EntityNotifiee> genericIfNotifiee(const GenericValue&,
                                                const Ptr<GenericIfNotifiee>&) const {
    refuse("watching");
  }

 protected:
  void attributeIs(GenericAttribute attribute) { attributes_.push_back(std::move(attribute)); }

 private:
  // "<type>: <operation> is not supported"
  [[noreturn]] void refuse(const char* operation) const;

  std::string name_;
  Kind kind_;
  GenericAttribute::Args constructorArgs_;
  std::vector<GenericAttribute> attributes_;
};

// The process's type registry: the generic interface finds every type by its name here. A library
// registers its types when it is loaded and removes them when it is unloaded. Registering a name
// again replaces the earlier node and destroys it. Used from the activity thread only.
void typeNodeIs(std::unique_ptr<GenericType> node);
void typeNodeDel(std::string_view name);
// Null when no type of that name is registered.
const GenericType* typeNode(std::string_view name);
// Registered names, in registration order.
std::vector<std::string> typeNames();

}  // namespace Kel

#endif
