#ifndef MORVIK_SIM_REPORTTEXT_H
#define MORVIK_SIM_REPORTTEXT_H

#include <ostream>

#include "Report.h"

namespace MorvikSim {

// The final report for people: a few aligned sections, the checks last.
void writeTextReport(std::ostream& out, const Report& report);

}  // namespace MorvikSim

#endif
