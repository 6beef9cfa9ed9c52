#ifndef KEL_GENERICTABLETYPE_H
#define KEL_GENERICTABLETYPE_H

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/GenericIf.h"

namespace Kel {

// The parameters and result of what a table binds: a function, a lambda, or a member function
// (whose object is not a parameter).
template <class F>
struct Signature : Signature<decltype(&F::operator())> {};
template <class R, class... A>
struct Signature<R (*)(A...)> {
  using Result = R;
  using Params = std::tuple<std::remove_cvref_t<A>...>;
};
template <class R, class C, class... A>
struct Signature<R (C::*)(A...)> : Signature<R (*)(A...)> {};
template <class R, class C, class... A>
struct Signature<R (C::*)(A...) const> : Signature<R (*)(A...)> {};

// A type node built from a table: each attribute is declared together with the handler that
// serves it, in the declared order. Declared types come from the C++ signatures (typeName), so a
// declaration cannot disagree with the code behind it. T is the C++ type (const for an immutable
// value type).
template <class T>
class GenericTableType : public GenericType {
 public:
  using Op = GenericAttributeOp;
  using Args = std::vector<GenericValue>;

  // A counted object is an entity unless said otherwise; anything else is a value.
  static constexpr Kind kKind = std::is_base_of_v<PtrInterface, T> ? Kind::entity : Kind::value;

  // `make` builds the object from the constructor's arguments: its parameters declare them and
  // `argNames` names them. Every type's first attribute is its name.
  template <class Make, std::size_t N>
  GenericTableType(Make make, const char* const (&argNames)[N], Kind kind = kKind)
      : GenericType(typeName<T>(), kind, declared<Make>(argNames)),
        construct_([make](const Args& args) { return call(make, args); }) {
    readable("name", &T::name);
  }
  template <class Make, std::size_t N>
  static std::unique_ptr<GenericTableType> create(Make make, const char* const (&argNames)[N],
                                                  Kind kind = kKind) {
    return std::make_unique<GenericTableType>(make, argNames, kind);
  }
  // A type whose objects its constructor makes from arguments of types A.
  template <class... A, std::size_t N>
  static std::unique_ptr<GenericTableType> made(const char* const (&argNames)[N]) {
    return create([](A... args) { return allocate<T>(args...); }, argNames);
  }

  GenericValue genericIfFromCtorArgs(const Args& args) const override {
    return construct_(GenericIfImpl::unwrapConstructorArgs(*this, args));
  }

  GenericValue genericIfAttributeOp(Op& op) const override {
    return handlers_.at(op.attributeId)(self(op.self), op);
  }

  bool isInstance(const PtrInterface* object) const override {
    return dynamic_cast<const T*>(object) != nullptr;
  }

  // `get` is a member function or a callable taking the object.
  template <class Get>
  void readable(std::string name, Get get) {
    bind({std::move(name), typeName<Result<Get>>(), GenericAttribute::Kind::readable},
         [get](T& self, Op&) { return GenericValue::of(std::invoke(get, self)); });
  }

  // `set` takes the object and a value of the type `get` returns (see KEL_GENERIC_SETTABLE).
  template <class Get, class Set>
  void settable(std::string name, Get get, Set set) {
    bind({std::move(name), typeName<Result<Get>>(), GenericAttribute::Kind::settable},
         [get, set](T& self, Op& op) {
           if (op.kind != Op::Kind::set) return GenericValue::of(std::invoke(get, self));
           std::invoke(set, self, op.value.as<Result<Get>>());
           return GenericValue();
         });
  }

  // A member function; its parameters declare the arguments and `argNames` names them.
  template <class F, std::size_t N>
  void function(std::string name, F f, const char* const (&argNames)[N]) {
    bindFunction(std::move(name), f, declared<F>(argNames));
  }
  template <class F>
  void function(std::string name, F f) {
    static_assert(std::tuple_size_v<typename Signature<F>::Params> == 0, "name the arguments");
    bindFunction(std::move(name), f, {});
  }

  // A keyed attribute over any collection of (key, value) pairs that `members(self)` returns;
  // `set(self, key, value)` and `del(self, key)` change one member.
  template <class K, class V, class Members, class Set, class Del>
  void keyed(std::string name, Members members, Set set, Del del) {
    bind({std::move(name), typeName<V>(), GenericAttribute::Kind::keyed, {}, typeName<K>()},
         [=](T& self, Op& op) -> GenericValue {
           if (op.kind == Op::Kind::memberSet) set(self, op.key.as<K>(), op.value.as<V>());
           if (op.kind == Op::Kind::memberDel) del(self, op.key.as<K>());
           const bool lookup = op.kind == Op::Kind::memberGet;
           if (!lookup && op.kind != Op::Kind::members) return GenericValue();
           std::optional<K> from;
           if (!op.key.isNull()) from = op.key.as<K>();
           for (const auto& [key, value] : members(self)) {
             if (from && !(key == *from)) continue;
             if (lookup) return GenericValue::of<V>(value);
             from.reset();
             op.members.emplace_back(GenericValue::of<K>(key), GenericValue::of<V>(value));
           }
           return GenericValue();
         });
  }

 private:
  using Handler = std::function<GenericValue(T&, Op&)>;
  template <class Get>
  using Result = std::remove_cvref_t<std::invoke_result_t<Get, T&>>;

  template <class F, std::size_t N>
  static GenericAttribute::Args declared(const char* const (&names)[N]) {
    using Params = typename Signature<F>::Params;
    static_assert(N == std::tuple_size_v<Params>, "one name for each argument");
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      return GenericAttribute::Args{{typeName<std::tuple_element_t<I, Params>>(), names[I]}...};
    }
    (std::make_index_sequence<N>{});
  }

  // Calls `f` on `object` (none for a free function) with the arguments, already unwrapped to the
  // declared types, and wraps its result.
  template <class F, class... Object>
  static GenericValue call(const F& f, const Args& args, Object&... object) {
    using Params = typename Signature<F>::Params;
    auto run = [&]<std::size_t... I>(std::index_sequence<I...>) {
      return std::invoke(f, object..., args[I].as<std::tuple_element_t<I, Params>>()...);
    };
    auto all = std::make_index_sequence<std::tuple_size_v<Params>>{};
    if constexpr (std::is_void_v<typename Signature<F>::Result>) {
      run(all);
      return GenericValue();
    } else {
      return GenericValue::of(run(all));
    }
  }

  template <class F>
  void bindFunction(std::string name, F f, GenericAttribute::Args args) {
    bind({std::move(name), typeName<typename Signature<F>::Result>(),
          GenericAttribute::Kind::function, std::move(args)},
         [this, f](T& self, Op& op) {
           return call(f, GenericIfImpl::unwrapFunctionArgs(*this, op.attribute, op.args), self);
         });
  }

  void bind(GenericAttribute attribute, Handler handler) {
    attributeIs(std::move(attribute));
    handlers_.push_back(std::move(handler));
  }

  T& self(const GenericValue& value) const {
    if constexpr (std::is_base_of_v<PtrInterface, T>) {
      T* object = dynamic_cast<T*>(value.object().ptr());
      if (!object) GenericIfImpl::throwTypeException(name(), name(), value);
      return *object;
    } else {
      return const_cast<T&>(std::any_cast<const std::remove_const_t<T>&>(value.value()));
    }
  }

  std::function<GenericValue(const Args&)> construct_;
  std::vector<Handler> handlers_;
};

}  // namespace Kel

// A settable attribute under the framework's naming rule: `attr` is read by attr() and set by
// attrIs(value).
#define KEL_GENERIC_SETTABLE(table, attr)                                  \
  (table).settable(                                                        \
      #attr, [](auto& object) -> decltype(auto) { return object.attr(); }, \
      [](auto& object, const auto& value) { object.attr##Is(value); })

// A keyed attribute under the same rule: its members are attr(), a member is set by
// attrIs(key, value) and deleted by attrDel(key).
#define KEL_GENERIC_KEYED(table, attr, K, V)                                           \
  (table).keyed<K, V>(                                                                 \
      #attr, [](auto& object) -> const auto& { return object.attr(); },                \
      [](auto& object, const K& key, const V& value) { object.attr##Is(key, value); }, \
      [](auto& object, const K& key) { object.attr##Del(key); })

#endif
