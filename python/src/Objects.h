#ifndef MORVIK_PYTHON_OBJECTS_H
#define MORVIK_PYTHON_OBJECTS_H

#include <pybind11/pybind11.h>

namespace morvikpy {

// morvik.Object (attributes, functions, comparisons), morvik.Keyed (a keyed attribute as a
// mapping), morvik.Method (a bound function) and morvik.Watch (a Python callback on an entity).
void registerObjects(pybind11::module_& m);

}  // namespace morvikpy

#endif
