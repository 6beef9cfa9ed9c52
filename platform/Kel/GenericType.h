#ifndef KEL_GENERICTYPE_H
#define KEL_GENERICTYPE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/GenericAttribute.h"
#include "Kel/GenericAttributeOp.h"
#include "Kel/GenericValue.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"

namespace Kel {

class GenericIfNotifiee;

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
  virtual bool isInstance(const PtrInterface* object) const;
  virtual GenericValue genericIfFromStrRep(const String& text) const;
  virtual String genericIfStrRep(const GenericValue& value) const;
  // Comparisons of two values of this type; `b` is ignored for empty.
  virtual bool genericIfTypeOp(TypeOp op, const GenericValue& a, const GenericValue& b) const;
  virtual std::size_t genericIfHash(const GenericValue& value) const;
  // A notifiee on `self` that forwards every change to `watcher`.
  virtual Ptr<EntityNotifiee> genericIfNotifiee(const GenericValue& self,
                                                const Ptr<GenericIfNotifiee>& watcher) const;

 protected:
  void attributeIs(GenericAttribute attribute) { attributes_.push_back(std::move(attribute)); }

 private:
  std::string name_;
  Kind kind_;
  GenericAttribute::Args constructorArgs_;
  std::vector<GenericAttribute> attributes_;
};

}  // namespace Kel

#endif
