#include "Convert.h"

#include <string>

#include "Kel/GenericIf.h"
#include "LiveObjects.h"

namespace py = pybind11;

namespace morvikpy {

Object::Object(Kel::GenericValue v) : value(std::move(v)) {
  LiveObjects::added(this);
}

Object::~Object() {
  LiveObjects::removed(this);
}

namespace {

Kel::GenericValue fromInt(py::handle object) {
  int overflow = 0;
  long long v = PyLong_AsLongLongAndOverflow(object.ptr(), &overflow);
  if (overflow == 0) {
    if (v < 0) return Kel::GenericValue::ofSigned("int", v);
    return Kel::GenericValue::ofUnsigned("U64", static_cast<U64>(v));
  }
  if (overflow > 0) {
    unsigned long long u = PyLong_AsUnsignedLongLong(object.ptr());
    if (!PyErr_Occurred()) return Kel::GenericValue::ofUnsigned("U64", u);
    PyErr_Clear();
  }
  throw Kel::TypeException("number " + py::str(object).cast<std::string>() +
                           " is out of range for every integer type");
}

}  // namespace

Kel::GenericValue toGeneric(py::handle object) {
  if (object.is_none()) return Kel::GenericValue();
  if (py::isinstance<py::bool_>(object)) return Kel::GenericValue::of(object.cast<bool>());
  if (py::isinstance<py::int_>(object)) return fromInt(object);
  if (py::isinstance<py::float_>(object)) return Kel::GenericValue::of(object.cast<double>());
  if (py::isinstance<py::str>(object)) {
    return Kel::GenericValue::of(Kel::String(object.cast<std::string>()));
  }
  if (py::isinstance<Object>(object)) return object.cast<const Object&>().value;
  throw Kel::TypeException("a " + py::type::of(object).attr("__name__").cast<std::string>() +
                           " cannot be passed to the generic interface");
}

std::vector<Kel::GenericValue> toGeneric(const py::args& args) {
  std::vector<Kel::GenericValue> values;
  for (py::handle arg : args) values.push_back(toGeneric(arg));
  return values;
}

std::string describe(py::handle object) {
  if (py::isinstance<Object>(object)) return object.cast<const Object&>().value.describe();
  try {
    return toGeneric(object).describe();
  } catch (const Kel::TypeException&) {
    return "a " + py::type::of(object).attr("__name__").cast<std::string>();
  }
}

py::object fromGeneric(const Kel::GenericValue& value) {
  using Kind = Kel::GenericValue::Kind;
  switch (value.kind()) {
    case Kind::null:
      return py::none();
    case Kind::boolean:
      return py::bool_(value.boolean());
    case Kind::unsignedInt:
      return py::int_(value.unsignedInt());
    case Kind::signedInt:
      return py::int_(value.signedInt());
    case Kind::real:
      return py::float_(value.real());
    case Kind::text:
      return py::str(value.text().stdString());
    default:
      return py::cast(Object{value});
  }
}

}  // namespace morvikpy
