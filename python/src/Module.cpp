// The `morvik` module: creates the library's objects and the shared records by type name and
// reaches them through the framework's generic interface; runs the activity loop; creates the DMA
// regions a simulated chassis needs.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <limits>
#include <string>

#include "Convert.h"
#include "Errors.h"
#include "Kel/ActivityManager.h"
#include "Kel/Exception.h"
#include "Kel/GenericIf.h"
#include "Kel/GenericTableType.h"
#include "Kel/GenericTypeRegistry.h"
#include "Kel/System.h"
#include "Objects.h"
#include "ostra/OstraReclaim.h"
#include "ostra/ostra.h"

namespace py = pybind11;

namespace morvikpy {

namespace {

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

const char* kindName(Kel::GenericAttribute::Kind kind) {
  static const char* const kNames[] = {"readable", "settable", "keyed", "function"};
  return kNames[static_cast<int>(kind)];
}

py::list argList(const Kel::GenericAttribute::Args& args) {
  py::list list;
  for (const auto& arg : args) list.append(py::make_tuple(arg.type, arg.name));
  return list;
}

void registerGeneric(py::module_& m) {
  m.def(
      "new",
      [](const std::string& typeName, const py::args& args) {
        return fromGeneric(Kel::GenericIf::genericIfFromCtorArgs(typeName, toGeneric(args)));
      },
      py::arg("typeName"), "Creates an object of a registered type from constructor arguments.");
  m.def(
      "fromStrRep",
      [](const std::string& typeName, const std::string& text) {
        return fromGeneric(Kel::GenericIf::fromStrRep(typeName, Kel::String(text)));
      },
      "Parses a value from its text form, e.g. MorvikLib::MemoryMapping.");
  m.def("typeNames", [] { return Kel::GenericTypeRegistry::instance().typeNames(); });
  m.def("typeName", [](const Object& o) { return o.value.typeName(); });
  m.def(
      "attributes",
      [](const std::string& typeName) {
        py::list list;
        for (const auto& a : Kel::GenericIf::type(typeName).attributes()) {
          list.append(py::make_tuple(a.name(), a.type(), kindName(a.kind()), argList(a.args()),
                                     a.keyType()));
        }
        return list;
      },
      "(name, type, kind, [(argType, argName)], keyType) for each attribute, in declared order.");
  m.def("constructorArgs", [](const std::string& typeName) {
    return argList(Kel::GenericIf::type(typeName).constructorArgs());
  });
  m.def(
      "bytePtr",
      [](std::uint64_t address) {
        return Object{Kel::GenericValue::ofBytePtr(reinterpret_cast<Kel::BytePtr>(address))};
      },
      "A Kel::BytePtr for the plain data functions (the _py forms take the address itself).");
}

void registerLoop(py::module_& m) {
  m.def(
      "virtualTimeIs",
      [](bool on, py::object start) {
        if (start.is_none()) {
          Kel::System::virtualTimeIs(on);
        } else {
          Kel::System::virtualTimeIs(on, start.cast<double>());
        }
      },
      py::arg("on"), py::arg("start") = py::none(),
      "Switches virtual time on (optionally starting at `start` seconds) or off.");
  m.def("virtualTime", &Kel::System::virtualTime);
  m.def("currentTime", &Kel::System::currentTime);
  m.def("activityClock",
        [] { return Object{Kel::genericWrap("Kel::Clock", Kel::activityManager()->clock())}; });
  m.def("runPass", [] { return Kel::activityManager()->runPass(); });
  m.def("runNextPass", [] { return Kel::activityManager()->runNextPass(); });
  m.def(
      "runUntil", [](double t) { return Kel::activityManager()->runUntil(t); }, py::arg("t"));
  m.def(
      "runUntilIdle", [](std::uint64_t n) { return Kel::activityManager()->runUntilIdle(n); },
      py::arg("maxPasses") = kNoLimit);
  m.def(
      "runUntilRest", [](std::uint64_t n) { return Kel::activityManager()->runUntilRest(n); },
      py::arg("maxPasses") = kNoLimit);
}

void registerDma(py::module_& m) {
  m.def(
      "dmaRegionAlloc",
      [](const std::string& name, std::uint32_t length, const std::string& owner) {
        ostra::reclaimRegion(name.c_str());
        std::uint64_t paddr = ostra_alloc_func(name.c_str(), length, owner.c_str());
        if (!paddr) throw Kel::RangeException("cannot create DMA region '" + name + "'");
        return paddr;
      },
      py::arg("name"), py::arg("length"), py::arg("owner") = "morvik",
      "Creates (or finds) a DMA region of the simulated machine named by SIMULATION_VMID and "
      "returns its physical address.");
  m.def(
      "dmaRegionFree", [](const std::string& name) { return ostra_free(name.c_str()) == 0; },
      py::arg("name"));
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
