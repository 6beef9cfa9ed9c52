#include "Objects.h"

#include <string>
#include <utility>
#include <vector>

#include "Checks.h"
#include "Convert.h"
#include "Kel/Allocate.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericType.h"
#include "ModuleArgs.h"

namespace py = pybind11;

namespace morvikpy {

namespace {

namespace GenericIf = Kel::GenericIf;
using Kel::GenericValue;

// A keyed attribute of one object, read and changed like a dict.
struct Keyed {
  GenericValue self;
  std::string name;

  py::object get(py::handle key) const {
    GenericValue member = GenericIf::member(self, name, toGeneric(key));
    if (member.isNull()) throw py::key_error(py::repr(key).cast<std::string>());
    return fromGeneric(member);
  }
  void set(py::handle key, py::handle value) const {
    const GenericValue k = toGeneric(key), v = toGeneric(value);
    After after = checkMemberChange(self, name, k, &v);
    GenericIf::memberIs(self, name, k, v);
    if (after) after();
  }
  void del(py::handle key) const {
    get(key);
    const GenericValue k = toGeneric(key);
    After after = checkMemberChange(self, name, k, nullptr);
    GenericIf::memberDel(self, name, k);
    if (after) after();
  }
  py::list items(py::handle from) const {
    GenericValue fromKey = toGeneric(from);
    py::list result;
    for (const auto& [k, v] : GenericIf::members(self, name, from.is_none() ? nullptr : &fromKey)) {
      result.append(py::make_tuple(fromGeneric(k), fromGeneric(v)));
    }
    return result;
  }
  py::list keys() const {
    py::list result;
    for (const auto& member : GenericIf::members(self, name))
      result.append(fromGeneric(member.first));
    return result;
  }
  py::list values() const {
    py::list result;
    for (const auto& member : GenericIf::members(self, name))
      result.append(fromGeneric(member.second));
    return result;
  }
};

// A function of one object; calling it calls the function through the generic interface.
struct Method {
  GenericValue self;
  std::string name;
};

// Forwards a watched entity's changes to a Python callback as (attribute name, key or None). The
// names are copied when the watch begins: registering the type again destroys its old node, and a
// notification then costs an index.
class Watcher : public Kel::GenericIfNotifiee {
 public:
  Watcher(const Kel::GenericType& type, py::function callback) : callback_(std::move(callback)) {
    for (const auto& attr : type.attributes()) names_.push_back(py::str(attr.name));
  }
  void onRawAttribute(U32 id) override { callback_(names_.at(id), py::none()); }
  void onRawAttribute(U32 id, const GenericValue& key) override {
    callback_(names_.at(id), fromGeneric(key));
  }

 private:
  std::vector<py::str> names_;
  py::function callback_;
};

// One watch; it ends with cancel(), at the end of a with block, or when collected.
class Watch {
 public:
  explicit Watch(Kel::Ptr<Kel::EntityNotifiee> notifiee) : notifiee_(std::move(notifiee)) {}
  ~Watch() { cancel(); }
  void cancel() {
    if (!notifiee_) return;
    notifiee_->isRegisteredNotifieeIs(false);
    notifiee_ = nullptr;
  }
  bool active() const { return static_cast<bool>(notifiee_); }

 private:
  Kel::Ptr<Kel::EntityNotifiee> notifiee_;
};

py::object attribute(const Object& o, const std::string& name) {
  const Kel::GenericType* type = Kel::typeNode(o.value.typeName());
  const Kel::GenericAttribute* attr = type ? type->attribute(name) : nullptr;
  if (attr && attr->kind == Kel::GenericAttribute::Kind::keyed) {
    return py::cast(Keyed{o.value, name});
  }
  if (attr && attr->kind == Kel::GenericAttribute::Kind::function) {
    return py::cast(Method{o.value, name});
  }
  return fromGeneric(GenericIf::attribute(o.value, name));
}

// Values of different types are simply unequal; a comparison never fails for that.
py::object equal(const Object& a, py::handle b) {
  if (!py::isinstance<Object>(b)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
  const GenericValue& other = b.cast<const Object&>().value;
  if (a.value.typeName() != other.typeName() && a.value.kind() == GenericValue::Kind::value) {
    return py::bool_(false);
  }
  return py::bool_(GenericIf::equal(a.value, other));
}

// The other side of an ordering; a plain Python value is refused in the framework's words.
GenericValue other(const Object& a, py::handle b) {
  if (py::isinstance<Object>(b)) return b.cast<const Object&>().value;
  return Kel::GenericIfImpl::unwrapValue(a.value.typeName() + " ordering", a.value.typeName(),
                                         toGeneric(b));
}

bool less(const Object& a, py::handle b) {
  return GenericIf::less(a.value, other(a, b));
}

bool greater(const Object& a, py::handle b) {
  return GenericIf::less(other(a, b), a.value);
}

// The module's classes are handed out, never made by a script.
template <class T>
void madeElsewhere(py::class_<T>& cls, const char* how) {
  const std::string text =
      "morvik." + cls.attr("__name__").template cast<std::string>() + ": " + how;
  cls.def(py::init([text](const py::args&, const py::kwargs&) -> std::unique_ptr<T> {
    throw Kel::OpNotSupportedException(text);
  }));
}

py::list attributeNames(const Object& o) {
  py::list names;
  if (const Kel::GenericType* type = Kel::typeNode(o.value.typeName())) {
    for (const auto& attr : type->attributes()) names.append(attr.name);
  }
  return names;
}

void registerObject(py::module_& m) {
  py::class_<Object> cls(m, "Object", "A framework object or value reached by type name.");
  madeElsewhere(cls, "objects are made by morvik.new or read from attributes");
  cls.def("__getattr__", &attribute)
      .def("__setattr__",
           [](const Object& o, const std::string& name, py::handle value) {
             const GenericValue v = toGeneric(value);
             After after = checkSet(o.value, name, v);
             GenericIf::attributeIs(o.value, name, v);
             if (after) after();
           })
      .def("__eq__", &equal)
      .def("__ne__",
           [](const Object& a, py::handle b) -> py::object {
             py::object eq = equal(a, b);
             if (eq.is(py::reinterpret_borrow<py::object>(Py_NotImplemented))) return eq;
             return py::bool_(!eq.cast<bool>());
           })
      .def("__lt__", &less)
      .def("__gt__", &greater)
      .def("__le__", [](const Object& a, py::handle b) { return !greater(a, b); })
      .def("__ge__", [](const Object& a, py::handle b) { return !less(a, b); })
      .def("__hash__", [](const Object& o) { return GenericIf::hash(o.value); })
      .def("__bool__", [](const Object& o) { return !GenericIf::empty(o.value); })
      .def("__repr__", [](const Object& o) { return GenericIf::strRep(o.value).stdString(); })
      .def("__dir__", &attributeNames);
}

void registerKeyed(py::module_& m) {
  py::class_<Keyed> cls(m, "Keyed", "A keyed attribute: a mapping from its keys to its members.");
  madeElsewhere(cls, "read a keyed attribute of an object instead");
  cls.def("__getitem__", &Keyed::get)
      .def("__setitem__", &Keyed::set)
      .def("__delitem__", &Keyed::del)
      .def("__contains__",
           [](const Keyed& k, py::handle key) {
             return !GenericIf::member(k.self, k.name, toGeneric(key)).isNull();
           })
      .def("__iter__", [](const Keyed& k) { return py::iter(k.keys()); })
      .def("__len__", [](const Keyed& k) { return GenericIf::members(k.self, k.name).size(); })
      .def("keys", &Keyed::keys)
      .def("values", &Keyed::values)
      .def(
          "items",
          [](const Keyed& k, const py::args& args, const py::kwargs& kwargs) {
            static const ModuleArgs parse("Keyed.items", {{"key", "start"}}, 0);
            return k.items(parse(args, kwargs)[0]);
          },
          "items(start=None): (key, value) pairs, from the first member or from the member with "
          "key `start`.")
      .def(
          "get",
          [](const Keyed& k, const py::args& args, const py::kwargs& kwargs) {
            static const ModuleArgs parse("Keyed.get", {{"key", "key"}, {"object", "default"}}, 1);
            const std::vector<py::object> given = parse(args, kwargs);
            GenericValue member = GenericIf::member(k.self, k.name, toGeneric(given[0]));
            return member.isNull() ? given[1] : fromGeneric(member);
          },
          "get(key, default=None): the member with that key, or `default`.")
      .def("__repr__", [](const Keyed& k) { return "<keyed attribute " + k.name + ">"; });
}

void registerMethod(py::module_& m) {
  py::class_<Method> cls(m, "Method", "A function of a framework object.");
  madeElsewhere(cls, "read a function of an object instead");
  cls.def("__call__",
          [](const Method& f, const py::args& args, const py::kwargs& kwargs) {
            if (!kwargs.empty()) {
              throw Kel::TypeException(f.self.typeName() + "." + f.name +
                                       ": arguments are given by position only");
            }
            const std::vector<GenericValue> values = toGeneric(args);
            After after = checkCall(f.self, f.name, values);
            py::object result = fromGeneric(GenericIf::call(f.self, f.name, values));
            if (after) after();
            return result;
          })
      .def("__repr__", [](const Method& f) { return "<function " + f.name + ">"; });
}

void registerWatch(py::module_& m) {
  py::class_<Watch> cls(m, "Watch", "A callback on an entity's changes; see morvik.watch.");
  madeElsewhere(cls, "watches are made by morvik.watch");
  cls.def("cancel", &Watch::cancel)
      .def_property_readonly("active", &Watch::active)
      .def(
          "__enter__", [](Watch& w) -> Watch& { return w; }, py::return_value_policy::reference)
      .def("__exit__", [](Watch& w, py::args) { w.cancel(); });
  defineFunction(
      m, "watch", {{"morvik.Object", "object"}, {"callable", "callback"}}, 2,
      [](const ModuleArgs& a, const std::vector<py::object>& g) {
        if (!py::isinstance<Object>(g[0])) {
          throw Kel::TypeException(a.argument(0) + ": expected a framework object, got " +
                                   describe(g[0]));
        }
        if (!PyCallable_Check(g[1].ptr())) {
          throw Kel::TypeException(a.argument(1) + ": expected a callable, got " + describe(g[1]));
        }
        const GenericValue& watched = g[0].cast<const Object&>().value;
        const Kel::GenericType& type = GenericIf::type(watched.typeName());
        auto watcher = Kel::allocate<Watcher>(type, g[1].cast<py::function>());
        return py::cast(std::make_unique<Watch>(GenericIf::watch(watched, watcher)));
      },
      "watch(object, callback): calls callback(attributeName, key) after every change of the "
      "entity; key is None except for keyed attributes.");
}

}  // namespace

void registerObjects(py::module_& m) {
  registerObject(m);
  registerKeyed(m);
  registerMethod(m);
  registerWatch(m);
}

}  // namespace morvikpy
