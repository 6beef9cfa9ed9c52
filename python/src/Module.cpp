// The `morvik` module: creates the library's objects and the shared records by type name and
// reaches them through the framework's generic interface; runs the activity loop; creates the DMA
// regions a simulated chassis needs. Every module-level function takes its arguments the
// framework's way (ModuleArgs), so a wrong one is refused in the same words as a wrong argument
// of a library function.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>

#include "Checks.h"
#include "Convert.h"
#include "Errors.h"
#include "Kel/ActivityManager.h"
#include "Kel/Exception.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericTableType.h"
#include "Kel/GenericType.h"
#include "Loop.h"
#include "ModuleArgs.h"
#include "Objects.h"
#include "SimRegions.h"
#include "ostra/OstraReclaim.h"
#include "ostra/ostra.h"

namespace py = pybind11;

namespace morvikpy {

namespace {

using Given = std::vector<py::object>;
using Kel::GenericValue;

const char* kindName(Kel::GenericAttribute::Kind kind) {
  static const char* const kNames[] = {"readable", "settable", "keyed", "function"};
  return kNames[static_cast<int>(kind)];
}

py::list argList(const Kel::GenericAttribute::Args& args) {
  py::list list;
  for (const auto& arg : args) list.append(py::make_tuple(arg.type, arg.name));
  return list;
}

// A registered type by the name a script gave to `function`; an empty name is named as such.
const Kel::GenericType& typeNamed(const std::string& function, const std::string& name) {
  if (name.empty()) {
    throw Kel::RangeException("morvik." + function +
                              ": the type name is empty; morvik.typeNames() lists the "
                              "registered types");
  }
  return Kel::GenericIf::type(name);
}

std::string text(const ModuleArgs& args, const Given& given, std::size_t i) {
  return args.value(given, i).text().stdString();
}

// Any framework object or value, as an argument that is not converted to a declared type.
const Object& objectArgument(const ModuleArgs& args, const Given& given, std::size_t i) {
  if (!py::isinstance<Object>(given[i])) {
    throw Kel::TypeException(args.argument(i) + ": expected a framework object, got " +
                             describe(given[i]));
  }
  return given[i].cast<const Object&>();
}

py::object construct(const py::args& args, const py::kwargs& kwargs) {
  if (!kwargs.empty()) {
    throw Kel::TypeException("morvik.new: constructor arguments are given by position only");
  }
  if (args.empty()) {
    throw Kel::TypeException(
        "morvik.new: expected a type name and the constructor's arguments, "
        "got nothing");
  }
  const GenericValue name =
      Kel::GenericIfImpl::unwrapValue("morvik.new: argument 1 (Kel::String typeName)",
                                      "Kel::String", toGeneric(py::handle(args[0])));
  const std::string typeName = name.text().stdString();
  typeNamed("new", typeName);
  std::vector<GenericValue> ctorArgs;
  for (std::size_t i = 1; i < args.size(); ++i) ctorArgs.push_back(toGeneric(py::handle(args[i])));
  After after = checkConstruction(typeName, ctorArgs);
  py::object made = fromGeneric(Kel::GenericIf::genericIfFromCtorArgs(typeName, ctorArgs));
  if (after) after();
  return made;
}

void registerGeneric(py::module_& m) {
  m.def("new", &construct,
        "new(typeName, *args): creates an object of a registered type from constructor "
        "arguments.");
  defineFunction(
      m, "fromStrRep", {{"Kel::String", "typeName"}, {"Kel::String", "text"}}, 2,
      [](const ModuleArgs& a, const Given& g) {
        return fromGeneric(Kel::GenericIf::fromStrRep(typeNamed("fromStrRep", text(a, g, 0)).name(),
                                                      Kel::String(text(a, g, 1))));
      },
      "Parses a value from its text form, e.g. MorvikLib::MemoryMapping.");
  defineFunction(
      m, "typeNames", {}, 0,
      [](const ModuleArgs&, const Given&) { return py::cast(Kel::typeNames()); },
      "The registered type names.");
  defineFunction(
      m, "typeName", {{"morvik.Object", "object"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        return py::cast(objectArgument(a, g, 0).value.typeName());
      },
      "The type name of a framework object or value.");
  defineFunction(
      m, "attributes", {{"Kel::String", "typeName"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        py::list list;
        for (const auto& attr : typeNamed("attributes", text(a, g, 0)).attributes()) {
          list.append(py::make_tuple(attr.name, attr.type, kindName(attr.kind), argList(attr.args),
                                     attr.keyType));
        }
        return py::object(list);
      },
      "(name, type, kind, [(argType, argName)], keyType) for each attribute, in declared order.");
  defineFunction(
      m, "constructorArgs", {{"Kel::String", "typeName"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        return py::object(argList(typeNamed("constructorArgs", text(a, g, 0)).constructorArgs()));
      },
      "[(argType, argName)] of a type's constructor.");
  defineFunction(
      m, "bytePtr", {{"U64", "address"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        const U64 address = a.value(g, 0).unsignedInt();
        return py::cast(Object{GenericValue::of(reinterpret_cast<Kel::BytePtr>(address))});
      },
      "A Kel::BytePtr for the plain data functions (the _py forms take the address itself).");
}

// Why ostra_alloc_func would return 0, told before it is called.
void checkDmaRegionAlloc(const std::string& name, U32 length) {
  const std::string call = "morvik.dmaRegionAlloc: ";
  if (name.empty()) throw Kel::RangeException(call + "a region needs a non-empty name");
  if (length == 0) throw Kel::RangeException(call + "a region of 0 bytes cannot be created");
  // A region left by a killed process is debris, not an existing region to check against.
  ostra::reclaimRegion(name.c_str());
  const DmaRegion region = dmaRegion(name.c_str());
  if (!region.exists || (region.usable && region.length >= length)) return;
  throw Kel::RangeException(
      call + "region '" + name + "' " +
      (region.usable ? "already exists with only " + std::to_string(region.length) + " bytes"
                     : std::string("exists but is unusable")) +
      " on this machine; morvik.dmaRegionFree('" + name + "') removes it");
}

void registerDma(py::module_& m) {
  defineFunction(
      m, "dmaRegionAlloc", {{"Kel::String", "name"}, {"U32", "length"}, {"Kel::String", "owner"}},
      2,
      [](const ModuleArgs& a, const Given& g) {
        const std::string name = text(a, g, 0);
        const U32 length = static_cast<U32>(a.value(g, 1).unsignedInt());
        const std::string owner = g[2].is_none() ? "morvik" : text(a, g, 2);
        checkDmaRegionAlloc(name, length);
        std::uint64_t paddr = ostra_alloc_func(name.c_str(), length, owner.c_str());
        if (!paddr) {
          throw Kel::RangeException(
              "morvik.dmaRegionAlloc: the system refused to create DMA "
              "region '" +
              name + "'");
        }
        return py::cast(paddr);
      },
      "dmaRegionAlloc(name, length, owner='morvik'): creates (or finds) a DMA region of the "
      "simulated machine named by SIMULATION_VMID and returns its physical address.");
  defineFunction(
      m, "dmaRegionFree", {{"Kel::String", "name"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        return py::cast(ostra_free(text(a, g, 0).c_str()) == 0);
      },
      "Removes a DMA region of the simulated machine; False when there was none.");
}

}  // namespace

}  // namespace morvikpy

PYBIND11_MODULE(morvik, m) {
  m.doc() = "MorvikLib and its platform through the framework's generic interface.";
  morvikpy::registerErrors(m);
  morvikpy::registerObjects(m);
  morvikpy::registerGeneric(m);
  morvikpy::registerLoop(m);
  morvikpy::registerDma(m);
}
