#ifndef MORVIK_PYTHON_ERRORS_H
#define MORVIK_PYTHON_ERRORS_H

#include <pybind11/pybind11.h>

namespace morvikpy {

// Defines morvik.Error and its subclasses and turns every framework exception into one of them,
// carrying the framework's message.
void registerErrors(pybind11::module_& m);

}  // namespace morvikpy

#endif
