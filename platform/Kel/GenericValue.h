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

  static GenericValue ofBool(bool v) {
    return GenericValue("bool", Payload(std::in_place_index<1>, v));
  }
  static GenericValue ofUnsigned(const std::string& type, U64 v) {
    return GenericValue(type, Payload(std::in_place_index<2>, v));
  }
  static GenericValue ofSigned(const std::string& type, std::int64_t v) {
    return GenericValue(type, Payload(std::in_place_index<3>, v));
  }
  static GenericValue ofDouble(double v) {
    return GenericValue("double", Payload(std::in_place_index<4>, v));
  }
  static GenericValue ofText(const std::string& type, const String& v) {
    return GenericValue(type, Payload(std::in_place_index<5>, v));
  }
  static GenericValue ofName(const Name& v) { return ofText("Kel::Name", v.string()); }
  static GenericValue ofString(const String& v) { return ofText("Kel::String", v); }
  static GenericValue ofBytePtr(BytePtr v) {
    return GenericValue("Kel::BytePtr", Payload(std::in_place_index<6>, v));
  }
  // A null object is the null value, whatever type it was declared with.
  static GenericValue ofObject(const std::string& type, const Ptr<PtrInterface>& v) {
    if (!v) return GenericValue();
    return GenericValue(type, Payload(std::in_place_index<7>, v));
  }
  static GenericValue ofValue(const std::string& type, std::any v) {
    return GenericValue(type, Payload(std::in_place_index<8>, std::move(v)));
  }
  // A C++ value as its generic type (typeName). A counted object that knows its framework type
  // (fwkType) is named by it, so a script sees what it really holds.
  template <class X>
  static GenericValue of(const X& v);

  const std::string& typeName() const { return type_; }
  Kind kind() const { return static_cast<Kind>(payload_.index()); }
  bool isNull() const { return kind() == Kind::null; }
  bool isNumber() const;

  bool boolean() const { return std::get<1>(payload_); }
  U64 unsignedInt() const { return std::get<2>(payload_); }
  std::int64_t signedInt() const { return std::get<3>(payload_); }
  double real() const { return std::get<4>(payload_); }
  const String& text() const { return std::get<5>(payload_); }
  BytePtr bytePtr() const { return std::get<6>(payload_); }
  Ptr<PtrInterface> object() const {
    return kind() == Kind::object ? std::get<7>(payload_) : nullptr;
  }
  const std::any& value() const { return std::get<8>(payload_); }

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
  using Payload = std::variant<std::monostate, bool, U64, std::int64_t, double, String, BytePtr,
                               Ptr<PtrInterface>, std::any>;

  GenericValue(std::string type, Payload payload)
      : type_(std::move(type)), payload_(std::move(payload)) {}

  std::string type_ = "None";
  Payload payload_;
};

template <class X>
GenericValue GenericValue::of(const X& v) {
  const char* type = Kel::typeName<X>();
  if constexpr (std::is_same_v<X, bool>) {
    return ofBool(v);
  } else if constexpr (std::is_integral_v<X> && std::is_signed_v<X>) {
    return ofSigned(type, v);
  } else if constexpr (std::is_integral_v<X>) {
    return ofUnsigned(type, v);
  } else if constexpr (std::is_floating_point_v<X>) {
    return ofDouble(v);
  } else if constexpr (std::is_same_v<X, Name>) {
    return ofName(v);
  } else if constexpr (std::is_same_v<X, String>) {
    return ofString(v);
  } else if constexpr (IsPtr<X>::value) {
    using Object = std::remove_const_t<typename X::element_type>;
    Ptr<PtrInterface> object(const_cast<Object*>(v.ptr()));
    if constexpr (requires { v->fwkType(); }) {
      if (v) return ofObject(v->fwkType(), object);
    }
    return ofObject(type, object);
  } else {
    return ofValue(type, std::any(v));
  }
}

template <class T>
T GenericValue::as() const {
  if constexpr (std::is_same_v<T, bool>) {
    return boolean();
  } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
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
