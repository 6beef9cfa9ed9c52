#include "Loop.h"

#include <cmath>
#include <ctime>
#include <limits>
#include <string>

#include "Checks.h"
#include "Convert.h"
#include "Kel/ActivityManager.h"
#include "Kel/Exception.h"
#include "Kel/GenericValue.h"
#include "Kel/System.h"
#include "ModuleArgs.h"
#include "Precondition.h"

namespace py = pybind11;

namespace morvikpy {

namespace {

using Given = std::vector<py::object>;
using Kel::System;

constexpr double kForever = std::numeric_limits<double>::infinity();
// Longest real-time sleep between two looks for Ctrl-C.
constexpr double kSleepSlice = 0.05;

const Kel::Clock& clock() {
  return *Kel::activityManager()->clock();
}

void interruptible() {
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

// Virtual time jumps; real time is waited for in slices.
void advanceTo(double t) {
  if (System::virtualTime()) return System::virtualTimeAdvanceTo(t);
  for (double now = System::currentTime(); now < t; now = System::currentTime()) {
    const double wait = std::min(t - now, kSleepSlice);
    timespec ts{static_cast<time_t>(wait), static_cast<long>((wait - std::floor(wait)) * 1e9)};
    nanosleep(&ts, nullptr);
    interruptible();
  }
}

std::size_t nextPass() {
  if (clock().idle()) return 0;
  advanceTo(clock().nextTime());
  return Kel::activityManager()->runPass();
}

double finiteTime(const ModuleArgs& args, const Given& given, std::size_t i) {
  const double t = args.value(given, i).real();
  if (!std::isfinite(t)) {
    throw Kel::RangeException(args.argument(i) + ": expected a finite time, got " + decimal(t));
  }
  return t;
}

U64 passLimit(const ModuleArgs& args, const Given& given) {
  return given[0].is_none() ? std::numeric_limits<U64>::max() : args.value(given, 0).unsignedInt();
}

// Holds the checks off while it is entered; nests.
class Unchecked {
 public:
  void enter() {
    saved_.push_back(checksOn());
    checksOnIs(false);
  }
  void exit() {
    if (saved_.empty()) return;
    checksOnIs(saved_.back());
    saved_.pop_back();
  }

 private:
  std::vector<bool> saved_;
};

void registerTime(py::module_& m) {
  defineFunction(
      m, "virtualTimeIs", {{"bool", "on"}, {"double", "start"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        const bool on = a.value(g, 0).boolean();
        if (g[1].is_none()) {
          System::virtualTimeIs(on);
        } else {
          System::virtualTimeIs(on, finiteTime(a, g, 1));
        }
        return py::object(py::none());
      },
      "virtualTimeIs(on, start=None): switches virtual time on (optionally starting at `start` "
      "seconds) or off.");
  defineFunction(
      m, "virtualTime", {}, 0,
      [](const ModuleArgs&, const Given&) { return py::cast(System::virtualTime()); },
      "Whether virtual time is on.");
  defineFunction(
      m, "currentTime", {}, 0,
      [](const ModuleArgs&, const Given&) { return py::cast(System::currentTime()); },
      "The framework's time in seconds.");
  defineFunction(
      m, "activityClock", {}, 0,
      [](const ModuleArgs&, const Given&) {
        return py::cast(Object{Kel::GenericValue::of(Kel::activityManager()->clock())});
      },
      "The activity loop's clock.");
}

void registerPasses(py::module_& m) {
  defineFunction(
      m, "runPass", {}, 0,
      [](const ModuleArgs&, const Given&) {
        checkLoop("morvik.runPass", System::currentTime(), false);
        return py::cast(Kel::activityManager()->runPass());
      },
      "One pass at the current time; returns how many handlers ran.");
  defineFunction(
      m, "runNextPass", {}, 0,
      [](const ModuleArgs&, const Given&) {
        if (!clock().idle()) checkLoop("morvik.runNextPass", clock().nextTime(), false);
        return py::cast(nextPass());
      },
      "Moves to the next requested time and runs one pass there; 0 when nothing is requested.");
  defineFunction(
      m, "runUntil", {{"double", "t"}}, 1,
      [](const ModuleArgs& a, const Given& g) {
        const double t = finiteTime(a, g, 0);
        checkLoop("morvik.runUntil", t, false);
        std::size_t ran = 0;
        while (!clock().idle() && clock().nextTime() <= t) {
          ran += nextPass();
          interruptible();
        }
        advanceTo(t);
        return py::cast(ran);
      },
      "runUntil(t): runs every pass due up to time t, then leaves the time at t.");
  defineFunction(
      m, "runUntilIdle", {{"U64", "maxPasses"}}, 0,
      [](const ModuleArgs& a, const Given& g) {
        const U64 limit = passLimit(a, g);
        checkLoop("morvik.runUntilIdle", kForever, g[0].is_none());
        std::size_t ran = 0;
        for (U64 pass = 0; pass < limit && !clock().idle(); ++pass) {
          ran += nextPass();
          interruptible();
        }
        return py::cast(ran);
      },
      "runUntilIdle(maxPasses=None): runs passes until nothing is requested any more.");
  defineFunction(
      m, "runUntilRest", {{"U64", "maxPasses"}}, 0,
      [](const ModuleArgs& a, const Given& g) {
        const U64 limit = passLimit(a, g);
        checkLoop("morvik.runUntilRest", System::currentTime(), false);
        std::size_t ran = 0;
        for (U64 pass = 0; pass < limit; ++pass) {
          if (clock().idle() || clock().nextTime() > System::currentTime()) break;
          ran += Kel::activityManager()->runPass();
          interruptible();
        }
        return py::cast(ran);
      },
      "runUntilRest(maxPasses=None): runs passes at the current time until nothing more is due "
      "now (the copier coming to rest, say); time does not move.");
}

}  // namespace

void registerLoop(py::module_& m) {
  registerTime(m);
  registerPasses(m);
  py::class_<Unchecked>(m, "Unchecked", "See morvik.unchecked().")
      .def("__enter__", [](Unchecked& u) { u.enter(); })
      .def("__exit__", [](Unchecked& u, const py::args&) { u.exit(); });
  defineFunction(
      m, "unchecked", {}, 0, [](const ModuleArgs&, const Given&) { return py::cast(Unchecked()); },
      "`with morvik.unchecked():` runs its block without the checks: a call then reaches the "
      "library as from C++, and a broken precondition ends the process with the library's "
      "assertion.");
}

}  // namespace morvikpy
