#ifndef MORVIK_PYTHON_CONVERT_H
#define MORVIK_PYTHON_CONVERT_H

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include "Kel/GenericValue.h"

namespace morvikpy {

// A framework object or value as Python holds it: everything the generic interface hands out that
// is not a plain number, flag or text. Each one is known to LiveObjects while it exists.
struct Object {
  explicit Object(Kel::GenericValue v);
  Object(const Object& other) : Object(other.value) {}
  Object& operator=(const Object& other) = default;
  ~Object();

  Kel::GenericValue value;
};

// Python -> generic: None, bool, int, float, str and Object. A number keeps no declared width
// here; the generic interface converts it to what the operation declares, checking the range.
Kel::GenericValue toGeneric(pybind11::handle object);
std::vector<Kel::GenericValue> toGeneric(const pybind11::args& args);
// How a refusal shows a Python value it was given: "U64 5", "None", "a list".
std::string describe(pybind11::handle object);
// Generic -> Python: plain numbers, flags and text become Python's own; the rest an Object.
pybind11::object fromGeneric(const Kel::GenericValue& value);

}  // namespace morvikpy

#endif
