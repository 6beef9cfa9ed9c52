#include "Kel/GenericValue.h"

#include <utility>

#include "Kel/Entity.h"
#include "Kel/GenericType.h"

namespace Kel {

namespace {

// Whether a script's number lies in the range of integer type I.
template <class I>
bool fits(const GenericValue& number) {
  return number.kind() == GenericValue::Kind::signedInt ? std::in_range<I>(number.signedInt())
                                                        : std::in_range<I>(number.unsignedInt());
}

bool isObjectType(const std::string& type) {
  if (type == Kel::typeName<Entity>()) return true;
  const GenericType* node = typeNode(type);
  return node && node->kind() != GenericType::Kind::value;
}

bool instanceOf(const PtrInterface* object, const std::string& type) {
  if (type == Kel::typeName<Entity>()) return dynamic_cast<const Entity*>(object) != nullptr;
  const GenericType* node = typeNode(type);
  return node && node->isInstance(object);
}

}  // namespace

std::optional<GenericValue> GenericValue::convertedTo(const std::string& type) const {
  if (type == type_) return *this;
  if (isNumber()) {
    const bool isSigned = kind() == Kind::signedInt;
    const U64 bits = isSigned ? static_cast<U64>(signedInt()) : unsignedInt();
    if ((type == Kel::typeName<U8>() && fits<U8>(*this)) ||
        (type == Kel::typeName<U32>() && fits<U32>(*this)) ||
        (type == Kel::typeName<U64>() && fits<U64>(*this))) {
      return ofUnsigned(type, bits);
    }
    if (type == Kel::typeName<int>() && fits<int>(*this)) {
      return ofSigned(type, static_cast<std::int64_t>(bits));
    }
    if (type == Kel::typeName<double>()) {
      return of(isSigned ? static_cast<double>(signedInt()) : static_cast<double>(unsignedInt()));
    }
    return std::nullopt;
  }
  if (kind() == Kind::text && (type == Kel::typeName<Name>() || type == Kel::typeName<String>())) {
    return ofText(type, text());
  }
  if (isNull() && isObjectType(type)) return GenericValue();
  // An object keeps its own (more precise) type name.
  if (kind() == Kind::object && instanceOf(object().ptr(), type)) return *this;
  return std::nullopt;
}

std::string GenericValue::describe() const {
  switch (kind()) {
    case Kind::null:
      return "None";
    case Kind::boolean:
      return type_ + (boolean() ? " true" : " false");
    case Kind::unsignedInt:
      return type_ + " " + std::to_string(unsignedInt());
    case Kind::signedInt:
      return type_ + " " + std::to_string(signedInt());
    case Kind::real:
      return type_ + " " + std::to_string(real());
    case Kind::text:
      return type_ + " " + valueToStrep(Name(text())).stdString();
    default:
      return type_;
  }
}

}  // namespace Kel
