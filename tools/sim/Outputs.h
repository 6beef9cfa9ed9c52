#ifndef MORVIK_SIM_OUTPUTS_H
#define MORVIK_SIM_OUTPUTS_H

#include <ostream>

#include "Report.h"
#include "SimOptions.h"

namespace MorvikSim {

// Writes the report to `out` (text or JSON) and the files the options ask for (timeline CSV,
// plot). Throws std::runtime_error when a file cannot be written.
void writeOutputs(const SimOptions& options, const Report& report, std::ostream& out);

}  // namespace MorvikSim

#endif
