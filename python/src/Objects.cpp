#include "Objects.h"

#include <string>
#include <utility>

#include "Convert.h"
#include "Kel/Allocate.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericTypeRegistry.h"

namespace py = pybind11;

namespace morvikpy {

namespace {

using Kel::GenericIf;
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
  void del(py::handle key) const {
    get(key);
    GenericIf::memberDel(self, name, toGeneric(key));
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
};

// A function of one object; calling it calls the function through the generic interface.
struct Method {
  GenericValue self;
  std::string name;
};

// Forwards a watched entity's changes to a Python callback as (attribute name, key or None).
class Watcher : public Kel::GenericIfNotifiee {
 public:
  Watcher(const Kel::GenericType& type, py::function callback)
      : type_(type), callback_(std::move(callback)) {}
  void onRawAttribute(U32 id) override { callback_(name(id), py::none()); }
  void onRawAttribute(U32 id, const GenericValue& key) override {
    callback_(name(id), fromGeneric(key));
  }

 private:
  std::string name(U32 id) const { return type_.attributes().at(id).name(); }

  const Kel::GenericType& type_;
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
  if (attr && attr->kind() == Kel::GenericAttribute::Kind::keyed) {
    return py::cast(Keyed{o.value, name});
  }
  if (attr && attr->kind() == Kel::GenericAttribute::Kind::function) {
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

bool less(const Object& a, const Object& b) {
  return GenericIf::less(a.value, b.value);
}

py::list attributeNames(const Object& o) {
  py::list names;
  if (const Kel::GenericType* type = Kel::typeNode(o.value.typeName())) {
    for (const auto& attr : type->attributes()) names.append(attr.name());
  }
  return names;
}

void registerObject(py::module_& m) {
  py::class_<Object>(m, "Object", "A framework object or value reached by type name.")
      .def("__getattr__", &attribute)
      .def("__setattr__",
           [](const Object& o, const std::string& name, py::handle value) {
             GenericIf::attributeIs(o.value, name, toGeneric(value));
           })
      .def("__eq__", &equal)
      .def("__ne__",
           [](const Object& a, py::handle b) -> py::object {
             py::object eq = equal(a, b);
             if (eq.is(py::reinterpret_borrow<py::object>(Py_NotImplemented))) return eq;
             return py::bool_(!eq.cast<bool>());
           })
      .def("__lt__", &less)
      .def("__gt__", [](const Object& a, const Object& b) { return less(b, a); })
      .def("__le__", [](const Object& a, const Object& b) { return !less(b, a); })
      .def("__ge__", [](const Object& a, const Object& b) { return !less(a, b); })
      .def("__hash__", [](const Object& o) { return GenericIf::hash(o.value); })
      .def("__bool__", [](const Object& o) { return !GenericIf::empty(o.value); })
      .def("__repr__", [](const Object& o) { return GenericIf::strRep(o.value).stdString(); })
      .def("__dir__", &attributeNames);
}

void registerKeyed(py::module_& m) {
  py::class_<Keyed>(m, "Keyed", "A keyed attribute, used like a dict.")
      .def("__getitem__", &Keyed::get)
      .def("__setitem__",
           [](const Keyed& k, py::handle key, py::handle value) {
             GenericIf::memberIs(k.self, k.name, toGeneric(key), toGeneric(value));
           })
      .def("__delitem__", &Keyed::del)
      .def("__contains__",
           [](const Keyed& k, py::handle key) {
             return !GenericIf::member(k.self, k.name, toGeneric(key)).isNull();
           })
      .def("__iter__", [](const Keyed& k) { return py::iter(k.keys()); })
      .def("__len__", [](const Keyed& k) { return GenericIf::members(k.self, k.name).size(); })
      .def("keys", &Keyed::keys)
      .def("items", &Keyed::items, py::arg("start") = py::none(),
           "(key, value) pairs, from the first member or from the member with key `start`.")
      .def(
          "get",
          [](const Keyed& k, py::handle key, py::object otherwise) {
            GenericValue member = GenericIf::member(k.self, k.name, toGeneric(key));
            return member.isNull() ? otherwise : fromGeneric(member);
          },
          py::arg("key"), py::arg("default") = py::none())
      .def("__repr__", [](const Keyed& k) { return "<keyed attribute " + k.name + ">"; });
}

void registerMethod(py::module_& m) {
  py::class_<Method>(m, "Method", "A function of a framework object.")
      .def("__call__",
           [](const Method& f, const py::args& args) {
             return fromGeneric(GenericIf::call(f.self, f.name, toGeneric(args)));
           })
      .def("__repr__", [](const Method& f) { return "<function " + f.name + ">"; });
}

void registerWatch(py::module_& m) {
  py::class_<Watch>(m, "Watch", "A callback on an entity's changes; see morvik.watch.")
      .def("cancel", &Watch::cancel)
      .def_property_readonly("active", &Watch::active)
      .def(
          "__enter__", [](Watch& w) -> Watch& { return w; }, py::return_value_policy::reference)
      .def("__exit__", [](Watch& w, py::args) { w.cancel(); });
  m.def(
      "watch",
      [](const Object& o, py::function callback) {
        const Kel::GenericType& type = GenericIf::type(o.value.typeName());
        auto watcher = Kel::allocate<Watcher>(type, std::move(callback));
        return std::make_unique<Watch>(GenericIf::watch(o.value, watcher));
      },
      py::arg("object"), py::arg("callback"),
      "Calls callback(attributeName, key) after every change of the entity; key is None except "
      "for keyed attributes.");
}

}  // namespace

void registerObjects(py::module_& m) {
  registerObject(m);
  registerKeyed(m);
  registerMethod(m);
  registerWatch(m);
}

}  // namespace morvikpy
