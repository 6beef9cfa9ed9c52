#ifndef MORVIK_PYTHON_LOOP_H
#define MORVIK_PYTHON_LOOP_H

#include <pybind11/pybind11.h>

namespace morvikpy {

// Time and the activity loop from a script, and morvik.unchecked(). A loop runs pass by pass so
// that Ctrl-C reaches the script between passes and while it waits for real time.
void registerLoop(pybind11::module_& m);

}  // namespace morvikpy

#endif
