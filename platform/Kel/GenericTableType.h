#ifndef KEL_GENERICTABLETYPE_H
#define KEL_GENERICTABLETYPE_H

#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/GenericIfImpl.h"
#include "Kel/GenericType.h"

namespace Kel {

// Wraps a C++ value as the generic value of declared type `type`. A counted object that knows its
// framework type (fwkType) is named by it, so a script sees what it really holds.
template <class X>
GenericValue genericWrap(const std::string& type, const X& v) {
  if constexpr (std::is_same_v<X, bool>) {
    return GenericValue::ofBool(v);
  } else if constexpr (std::is_enum_v<X>) {
    return GenericValue::ofUnsigned(type, static_cast<U64>(v));
  } else if constexpr (std::is_integral_v<X> && std::is_signed_v<X>) {
    return GenericValue::ofSigned(type, v);
  } else if constexpr (std::is_integral_v<X>) {
    return GenericValue::ofUnsigned(type, v);
  } else if constexpr (std::is_floating_point_v<X>) {
    return GenericValue::ofDouble(v);
  } else if constexpr (std::is_same_v<X, Name>) {
    return GenericValue::ofName(v);
  } else if constexpr (std::is_same_v<X, String>) {
    return GenericValue::ofString(v);
  } else if constexpr (IsPtr<X>::value) {
    using Object = std::remove_const_t<typename X::element_type>;
    Ptr<PtrInterface> object(const_cast<Object*>(v.ptr()));
    if constexpr (requires { v->fwkType(); }) {
      if (v) return GenericValue::ofObject(v->fwkType(), object);
    }
    return GenericValue::ofObject(type, object);
  } else {
    return GenericValue::ofValue(type, std::any(v));
  }
}

// A type node built from a table: each attribute is declared together with the handler that
// serves it, in the declared order. T is the C++ type (const for an immutable value type).
template <class T>
class GenericTableType : public GenericType {
 public:
  using Self = T;
  using Op = GenericAttributeOp;
  using Handler = std::function<GenericValue(T&, Op&)>;
  using Constructor = std::function<GenericValue(const std::vector<GenericValue>&)>;
  using Args = std::vector<GenericValue>;

  GenericTableType(std::string name, Kind kind, GenericAttribute::Args constructorArgs,
                   Constructor constructor)
      : GenericType(std::move(name), kind, std::move(constructorArgs)),
        constructor_(std::move(constructor)) {}

  GenericValue genericIfFromCtorArgs(const Args& args) const override {
    return constructor_(GenericIfImpl::unwrapConstructorArgs(*this, args));
  }

  GenericValue genericIfAttributeOp(Op& op) const override {
    return handlers_.at(op.attributeId)(self(op.self), op);
  }

  bool isInstance(const PtrInterface* object) const override {
    if constexpr (std::is_base_of_v<PtrInterface, T>) {
      return dynamic_cast<const T*>(object) != nullptr;
    } else {
      return false;
    }
  }

  // The attribute kinds most types need; `bind` takes any other handler.
  void bind(GenericAttribute attribute, Handler handler) {
    attributeIs(std::move(attribute));
    handlers_.push_back(std::move(handler));
  }

  template <class Get>
  void readable(const std::string& name, const std::string& type, Get get) {
    bind({name, type, GenericAttribute::Kind::readable},
         [type, get](T& self, Op&) { return genericWrap(type, get(self)); });
  }

  // `set` takes the new value as the declared type's C++ type V.
  template <class V, class Get, class Set>
  void settable(const std::string& name, const std::string& type, Get get, Set set) {
    bind({name, type, GenericAttribute::Kind::settable}, [type, get, set](T& self, Op& op) {
      if (op.kind != Op::Kind::set) return genericWrap(type, get(self));
      set(self, op.value.template as<V>());
      return GenericValue();
    });
  }

  // `call` gets the arguments already unwrapped to their declared types.
  template <class Call>
  void function(const std::string& name, const std::string& resultType, GenericAttribute::Args args,
                Call call) {
    bind({name, resultType, GenericAttribute::Kind::function, std::move(args)},
         [this, call](T& self, Op& op) {
           return call(self, GenericIfImpl::unwrapFunctionArgs(*this, op.attribute, op.args));
         });
  }

  // A function of no arguments and no result.
  void action(const std::string& name, void (T::*f)()) {
    function(name, "void", {}, [f](T& self, const Args&) {
      (self.*f)();
      return GenericValue();
    });
  }

  // A keyed attribute over any collection of (key, value) pairs that `members(self)` returns;
  // `set(self, key, value)` and `del(self, key)` change one member.
  template <class K, class V, class Members, class Set, class Del>
  void keyed(const std::string& name, const std::string& keyType, const std::string& valueType,
             Members members, Set set, Del del) {
    bind({name, valueType, GenericAttribute::Kind::keyed, {}, keyType},
         [=](T& self, Op& op) -> GenericValue {
           if (op.kind == Op::Kind::memberSet) {
             set(self, op.key.template as<K>(), op.value.template as<V>());
             return GenericValue();
           }
           if (op.kind == Op::Kind::memberDel) {
             del(self, op.key.template as<K>());
             return GenericValue();
           }
           const bool lookup = op.kind == Op::Kind::memberGet;
           std::optional<K> from;
           if (lookup || op.fromKey) from = op.key.template as<K>();
           for (const auto& [key, value] : members(self)) {
             if (from && !(key == *from)) continue;
             if (lookup) return genericWrap(valueType, value);
             from.reset();
             op.members.emplace_back(genericWrap(keyType, key), genericWrap(valueType, value));
           }
           return GenericValue();
         });
  }

 private:
  T& self(const GenericValue& value) const {
    if constexpr (std::is_base_of_v<PtrInterface, T>) {
      T* object = dynamic_cast<T*>(value.object().ptr());
      if (!object) GenericIfImpl::throwTypeException(name(), name(), value);
      return *object;
    } else {
      return const_cast<T&>(std::any_cast<const std::remove_const_t<T>&>(value.value()));
    }
  }

  Constructor constructor_;
  std::vector<Handler> handlers_;
};

}  // namespace Kel

#endif
