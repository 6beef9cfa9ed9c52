#include "Kel/GenericValue.h"

#include <limits>

#include "Kel/Entity.h"
#include "Kel/GenericType.h"

namespace Kel {

namespace {

// The largest value of each integer type a script's number may become.
std::optional<U64> unsignedMax(const std::string& type) {
  if (type == "U8") return std::numeric_limits<U8>::max();
  if (type == "U32") return std::numeric_limits<U32>::max();
  if (type == "U64") return std::numeric_limits<U64>::max();
  return std::nullopt;
}

bool isObjectType(const std::string& type) {
  if (type == "Kel::Entity") return true;
  const GenericType* node = typeNode(type);
  return node && node->kind() != GenericType::Kind::value;
}

bool instanceOf(const PtrInterface* object, const std::string& type) {
  if (type == "Kel::Entity") return dynamic_cast<const Entity*>(object) != nullptr;
  const GenericType* node = typeNode(type);
  return node && node->isInstance(object);
}

}  // namespace

bool GenericValue::isNumber() const {
  return kind() == Kind::unsignedInt || kind() == Kind::signedInt;
}

std::optional<GenericValue> GenericValue::convertedTo(const std::string& type) const {
  if (type == type_) return *this;
  if (isNumber()) {
    const bool negative = kind() == Kind::signedInt && signedInt() < 0;
    if (std::optional<U64> max = unsignedMax(type)) {
      U64 v = kind() == Kind::signedInt ? static_cast<U64>(signedInt()) : unsignedInt();
      if (negative || v > *max) return std::nullopt;
      return ofUnsigned(type, v);
    }
    if (type == "int") {
      std::int64_t v = kind() == Kind::signedInt ? signedInt() : 0;
      if (kind() == Kind::unsignedInt) {
        if (unsignedInt() > static_cast<U64>(std::numeric_limits<int>::max())) return std::nullopt;
        v = static_cast<std::int64_t>(unsignedInt());
      }
      if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()) {
        return std::nullopt;
      }
      return ofSigned(type, v);
    }
    if (type == "double") {
      return ofDouble(kind() == Kind::signedInt ? static_cast<double>(signedInt())
                                                : static_cast<double>(unsignedInt()));
    }
    return std::nullopt;
  }
  if (kind() == Kind::text && (type == "Kel::Name" || type == "Kel::String")) {
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
