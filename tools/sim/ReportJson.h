#ifndef MORVIK_SIM_REPORTJSON_H
#define MORVIK_SIM_REPORTJSON_H

#include <ostream>

#include "Report.h"

namespace MorvikSim {

// The final report as one JSON object: the same figures as the text report, plus the resyncs,
// corruptions and events one by one. Seconds are chassis seconds from the start of the run
// unless a name says wall.
void writeJsonReport(std::ostream& out, const Report& report);

}  // namespace MorvikSim

#endif
