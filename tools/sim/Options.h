#ifndef MORVIK_SIM_OPTIONS_H
#define MORVIK_SIM_OPTIONS_H

#include <string>

#include "SimOptions.h"

namespace MorvikSim {

// The command line. parseOptions throws UsageError on the first bad option or value; it also
// checks the values against each other (features against chunk sizes, faults against the run),
// so that a run that starts is a run that makes sense.
SimOptions parseOptions(int argc, const char* const* argv);

// What --help prints.
std::string usageText();

// The checks parseOptions makes after reading every option; exposed for callers that build
// options themselves. Throws UsageError.
void validateOptions(const SimOptions& options);

}  // namespace MorvikSim

#endif
