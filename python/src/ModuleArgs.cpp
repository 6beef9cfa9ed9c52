#include "ModuleArgs.h"

#include "Convert.h"
#include "Kel/GenericIf.h"

namespace py = pybind11;

namespace morvikpy {

ModuleArgs::ModuleArgs(std::string function, Kel::GenericAttribute::Args declared,
                       std::size_t required)
    : function_("morvik." + std::move(function)),
      declared_(std::move(declared)),
      required_(required) {}

std::string ModuleArgs::argument(std::size_t index) const {
  const Kel::GenericAttribute::Arg& arg = declared_[index];
  return function_ + ": argument " + std::to_string(index + 1) + " (" + arg.type + " " + arg.name +
         ")";
}

void ModuleArgs::wrongCount(std::size_t got) const {
  const std::string expected = required_ == declared_.size() ? std::to_string(required_)
                                                             : std::to_string(required_) + " to " +
                                                                   std::to_string(declared_.size());
  throw Kel::TypeException(function_ + ": expected " + expected +
                           (declared_.size() == 1 ? " argument (" : " arguments (") +
                           Kel::GenericAttribute::argList(declared_) + "), got " +
                           std::to_string(got));
}

std::vector<py::object> ModuleArgs::operator()(const py::args& args,
                                               const py::kwargs& kwargs) const {
  if (args.size() > declared_.size()) wrongCount(args.size() + kwargs.size());
  std::vector<py::object> given(declared_.size());
  std::vector<bool> present(declared_.size(), false);
  for (std::size_t i = 0; i < args.size(); ++i) {
    given[i] = py::reinterpret_borrow<py::object>(args[i]);
    present[i] = true;
  }
  for (const auto& [key, value] : kwargs) {
    const std::string name = py::str(key);
    std::size_t i = 0;
    while (i < declared_.size() && declared_[i].name != name) ++i;
    if (i == declared_.size())
      throw Kel::TypeException(function_ + ": no argument is named '" + name + "'");
    if (present[i]) throw Kel::TypeException(function_ + ": argument '" + name + "' given twice");
    given[i] = py::reinterpret_borrow<py::object>(value);
    present[i] = true;
  }
  for (std::size_t i = 0; i < declared_.size(); ++i) {
    if (!present[i] && i < required_) wrongCount(args.size() + kwargs.size());
    if (!present[i]) given[i] = py::none();
  }
  return given;
}

Kel::GenericValue ModuleArgs::value(const std::vector<py::object>& given, std::size_t index) const {
  Kel::GenericValue value;
  try {
    value = toGeneric(given[index]);
  } catch (const Kel::TypeException& e) {
    throw Kel::TypeException(argument(index) + ": " + e.what());
  }
  return Kel::GenericIfImpl::unwrapValue(argument(index), declared_[index].type, value);
}

}  // namespace morvikpy
