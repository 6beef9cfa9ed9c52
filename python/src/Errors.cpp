#include "Errors.h"

#include <string>

#include "Kel/Exception.h"
#include "Kel/GenericIf.h"
#include "Precondition.h"

namespace py = pybind11;

namespace morvikpy {

namespace {

// Created once per interpreter and kept: the translator runs long after registration.
PyObject* newError(py::module_& m, const char* name, PyObject* bases, const char* doc) {
  std::string qualified = std::string("morvik.") + name;
  PyObject* type = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, bases, nullptr);
  if (!type) throw py::error_already_set();
  m.add_object(name, py::handle(type));
  return type;
}

PyObject* bases(PyObject* a, PyObject* b) {
  return py::make_tuple(py::handle(a), py::handle(b)).release().ptr();
}

}  // namespace

void registerErrors(py::module_& m) {
  static PyObject* error = newError(m, "Error", PyExc_Exception, "Any refusal of the framework.");
  static PyObject* opNotSupported =
      newError(m, "OpNotSupportedError", bases(error, PyExc_AttributeError),
               "No such type, attribute or function, or an operation it does not offer.");
  static PyObject* typeMismatch =
      newError(m, "TypeMismatchError", bases(error, PyExc_TypeError),
               "Wrong number or types of arguments, or a value of the wrong type.");
  static PyObject* unhashable = newError(m, "UnhashableError", bases(typeMismatch, PyExc_TypeError),
                                         "The type refuses to be hashed.");
  static PyObject* range = newError(m, "RangeError", bases(error, PyExc_ValueError),
                                    "A value out of range, or an unknown type name.");
  static PyObject* parse = newError(m, "ParseError", bases(error, PyExc_ValueError),
                                    "A text that does not follow a value's representation.");
  static PyObject* precondition =
      newError(m, "PreconditionError", bases(error, PyExc_ValueError),
               "A call the library would answer with an assertion or a fault, refused before it "
               "ran; see morvik.unchecked.");
  static PyObject* errnoError =
      newError(m, "ErrnoError", bases(error, PyExc_OSError), "A failed system call.");

  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const Kel::UnhashableException& e) {
      PyErr_SetString(unhashable, e.what());
    } catch (const Kel::TypeException& e) {
      PyErr_SetString(typeMismatch, e.what());
    } catch (const Kel::OpNotSupportedException& e) {
      PyErr_SetString(opNotSupported, e.what());
    } catch (const Kel::RangeException& e) {
      PyErr_SetString(range, e.what());
    } catch (const Kel::ParseException& e) {
      PyErr_SetString(parse, e.what());
    } catch (const Kel::ErrnoException& e) {
      std::string text = e.context().stdString() + ": " + e.what();
      PyErr_SetObject(errnoError, py::make_tuple(e.errnum(), text).ptr());
    } catch (const Kel::Exception& e) {
      PyErr_SetString(error, e.what());
    } catch (const PreconditionFailure& e) {
      PyErr_SetString(precondition, e.what());
    }
  });
}

}  // namespace morvikpy
