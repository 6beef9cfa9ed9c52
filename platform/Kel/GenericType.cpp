#include "Kel/GenericType.h"

#include "Kel/Entity.h"
#include "Kel/GenericIfImpl.h"

namespace Kel {

GenericType::GenericType(std::string name, Kind kind, GenericAttribute::Args constructorArgs)
    : name_(std::move(name)), kind_(kind), constructorArgs_(std::move(constructorArgs)) {}

const GenericAttribute* GenericType::attribute(std::string_view name) const {
  U32 id = attributeId(name);
  return id < attributes_.size() ? &attributes_[id] : nullptr;
}

U32 GenericType::attributeId(std::string_view name) const {
  U32 id = 0;
  for (const GenericAttribute& a : attributes_) {
    if (a.name() == name) break;
    ++id;
  }
  return id;
}

bool GenericType::isInstance(const PtrInterface*) const {
  return false;
}

GenericValue GenericType::genericIfFromStrRep(const String&) const {
  GenericIfImpl::throwOpNotSupportedException(name_, "construction from a string representation");
}

String GenericType::genericIfStrRep(const GenericValue& value) const {
  if (kind_ == Kind::entity) {
    if (auto* entity = dynamic_cast<const Entity*>(value.object().ptr())) {
      return String("<" + name_ + " " + valueToStrep(entity->name()).stdString() + ">");
    }
  }
  return String("<" + name_ + ">");
}

bool GenericType::genericIfTypeOp(TypeOp op, const GenericValue&, const GenericValue&) const {
  static const char* const kNames[] = {"equality", "ordering", "emptiness test"};
  GenericIfImpl::throwOpNotSupportedException(name_, kNames[static_cast<int>(op)]);
}

std::size_t GenericType::genericIfHash(const GenericValue&) const {
  GenericIfImpl::throwOpNotSupportedException(name_, "hash");
}

Ptr<EntityNotifiee> GenericType::genericIfNotifiee(const GenericValue&,
                                                   const Ptr<GenericIfNotifiee>&) const {
  GenericIfImpl::throwOpNotSupportedException(name_, "watching");
}

}  // namespace Kel
