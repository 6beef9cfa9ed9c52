#ifndef KEL_GENERICVALUE_H
#define KEL_GENERICVALUE_H

#include <any>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>

#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kel/String.h"
#include "Kel/Types.h"

namespace Kel {

class Clock;
class Dir;
class Entity;

// Names type T in the generic interface by its own C++ spelling ("U32", "Kel::Dir"), in T's
// namespace, where typeName finds it: declared types then follow from C++ signatures.
#define KEL_GENERIC_TYPE_NAME(T)                                 \
  constexpr const char* genericTypeName(std::type_identity<T>) { \
    return #T;                                                   \
  }

KEL_GENERIC_TYPE_NAME(void);
KEL_GENERIC_TYPE_NAME(bool);
KEL_GENERIC_TYPE_NAME(U8);
KEL_GENERIC_TYPE_NAME(U32);
KEL_GENERIC_TYPE_NAME(U64);
KEL_GENERIC_TYPE_NAME(int);
KEL_GENERIC_TYPE_NAME(double);
KEL_GENERIC_TYPE_NAME(Kel::BytePtr);
KEL_GENERIC_TYPE_NAME(Kel::Name);
KEL_GENERIC_TYPE_NAME(Kel::String);
KEL_GENERIC_TYPE_NAME(Kel::Entity);
KEL_GENERIC_TYPE_NAME(Kel::Dir);
KEL_GENERIC_TYPE_NAME(Kel::Clock);

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {};

// A counted pointer is declared by the type it points to.
template <class T>
constexpr const char* typeName() {
  using V = std::remove_cvref_t<T>;
  if constexpr (IsPtr<V>::value) {
    return typeName<typename V::element_type>();
  } else {
    return genericTypeName(std::type_identity<V>{});
  }
}

// One value as the generic interface passes it around: a type name ("U32", "Kel::Name",
// "MorvikLib::MemoryMapping", ...) and a payload. Numbers of every width share one payload, so a
// script's number can become whichever integer type an operation declares (convertedTo checks the
// range); counted objects are held by Ptr, value types by copy. The null value ("None") stands for
// a null pointer of any type.
class GenericValue {
 public:
  enum class Kind { null, boolean, unsignedInt, signedInt, real, text, bytePtr, object, value };

  GenericValue() = default;

  // A C++ value as its generic type (typeName). A counted object that knows its framework type
  // (fwkType) is named by it, so a script sees what it really holds.
  template <class X>
  static GenericValue of(const X& v);
  // A number, a text or an object as the declared type `type`.
  static GenericValue ofUnsigned(const std::string& type, U64 v) { return {type, v}; }
  static GenericValue ofSigned(const std::string& type, std::int64_t v) { return {type, v}; }
  static GenericValue ofText(const std::string& type, const String& v) { return {type, v}; }
  // A null object is the null value, whatever type it was declared with.
  static GenericValue ofObject(const std::string& type, const Ptr<PtrInterface>& v) {
    return v ? GenericValue(type, v) : GenericValue();
  }

  const std::string& typeName() const { return type_; }
  Kind kind() const { return static_cast<Kind>(payload_.index()); }
  bool isNull() const { return kind() == Kind::null; }
  bool isNumber() const { return kind() == Kind::unsignedInt || kind() == Kind::signedInt; }

  bool boolean() const { return std::get<bool>(payload_); }
  U64 unsignedInt() const { return std::get<U64>(payload_); }
  std::int64_t signedInt() const { return std::get<std::int64_t>(payload_); }
  double real() const { return std::get<double>(payload_); }
  const String& text() const { return std::get<String>(payload_); }
  BytePtr bytePtr() const { return std::get<BytePtr>(payload_); }
  // Null for any other kind of value.
  Ptr<PtrInterface> object() const {
    return kind() == Kind::object ? std::get<Ptr<PtrInterface>>(payload_) : nullptr;
  }
  const std::any& value() const { return std::get<std::any>(payload_); }

  // The payload as the C++ type an operation takes. Call it on a value that went through
  // convertedTo (or the unwrap functions) for the declared type.
  template <class T>
  T as() const;

  // This value as declared type `type`, or nothing when it does not fit. Numbers convert between
  // the integer types when in range and to "double"; "Kel::Name" and "Kel::String" convert into
  // each other; an object converts to any registered type it is an instance of; null converts to
  // every object type.
  std::optional<GenericValue> convertedTo(const std::string& type) const;

  // "U32 5", "Kel::Name 'mem'", "None": how refusals show what they were given.
  std::string describe() const;

 private:
  template <class P>
  GenericValue(std::string type, P payload)
      : type_(std::move(type)), payload_(std::in_place_type<P>, std::move(payload)) {}

  std::string type_ = "None";
  std::variant<std::monostate, bool, U64, std::int64_t, double, String, BytePtr, Ptr<PtrInterface>,
               std::any>
      payload_;
};

template <class X>
GenericValue GenericValue::of(const X& v) {
  const char* type = Kel::typeName<X>();
  if constexpr (std::is_same_v<X, bool> || std::is_same_v<X, double> ||
                std::is_same_v<X, BytePtr>) {
    return {type, v};
  } else if constexpr (std::is_integral_v<X> && std::is_signed_v<X>) {
    return ofSigned(type, v);
  } else if constexpr (std::is_integral_v<X>) {
    return ofUnsigned(type, v);
  } else if constexpr (std::is_same_v<X, Name>) {
    return ofText(type, v.string());
  } else if constexpr (std::is_same_v<X, String>) {
    return ofText(type, v);
  } else if constexpr (IsPtr<X>::value) {
    using Object = std::remove_const_t<typename X::element_type>;
    Ptr<PtrInterface> object(const_cast<Object*>(v.ptr()));
    if constexpr (requires { v->fwkType(); }) {
      if (v) return ofObject(v->fwkType(), object);
    }
    return ofObject(type, object);
  } else {
    return {type, std::any(v)};
  }
}

template <class T>
T GenericValue::as() const {
  if constexpr (std::is_same_v<T, bool>) {
    return boolean();
  } else if constexpr (std::is_integral_v<T>) {
    if (kind() == Kind::signedInt) return static_cast<T>(signedInt());
    return static_cast<T>(unsignedInt());
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(real());
  } else if constexpr (std::is_same_v<T, Name>) {
    return Name(text());
  } else if constexpr (std::is_same_v<T, String>) {
    return text();
  } else if constexpr (std::is_same_v<T, BytePtr>) {
    return bytePtr();
  } else if constexpr (IsPtr<T>::value) {
    using Object = std::remove_const_t<typename T::element_type>;
    return T(dynamic_cast<Object*>(object().ptr()));
  } else {
    return std::any_cast<const T&>(value());
  }
}

}  // namespace Kel

#endif
