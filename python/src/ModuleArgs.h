#ifndef MORVIK_PYTHON_MODULEARGS_H
#define MORVIK_PYTHON_MODULEARGS_H

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

#include "Kel/GenericType.h"
#include "Kel/GenericValue.h"

namespace morvikpy {

// The arguments of a module-level function, taken the way the generic interface takes a
// function's: declared types, the framework's conversions and messages ("morvik.runUntil:
// argument 1 (double t): expected double, got None"). The last arguments may be optional.
class ModuleArgs {
 public:
  ModuleArgs(std::string function, Kel::GenericAttribute::Args declared, std::size_t required);

  // The arguments by position, keywords put in their place; an optional one left out is None.
  std::vector<pybind11::object> operator()(const pybind11::args& args,
                                           const pybind11::kwargs& kwargs) const;
  // Argument `index` as its declared type.
  Kel::GenericValue value(const std::vector<pybind11::object>& given, std::size_t index) const;
  // "morvik.watch: argument 2 (callable callback)"
  std::string argument(std::size_t index) const;

 private:
  [[noreturn]] void wrongCount(std::size_t got) const;

  std::string function_;
  Kel::GenericAttribute::Args declared_;
  std::size_t required_;
};

// Defines module function `name`, its arguments taken by a ModuleArgs: `body(args, given)`.
template <class Body>
void defineFunction(pybind11::module_& m, const char* name, Kel::GenericAttribute::Args declared,
                    std::size_t required, Body body, const char* doc) {
  auto args = std::make_shared<ModuleArgs>(name, std::move(declared), required);
  m.def(
      name,
      [args, body](const pybind11::args& a, const pybind11::kwargs& k) -> pybind11::object {
        return body(*args, (*args)(a, k));
      },
      doc);
}

}  // namespace morvikpy

#endif
