#ifndef MORVIK_SIM_TIMELINECSV_H
#define MORVIK_SIM_TIMELINECSV_H

#include <ostream>

#include "Report.h"

namespace MorvikSim {

// The timeline, one row per sample: time, pending chunks (now and the period's peak), bytes
// mirrored (in total and per second over the period), operations, audit cycles, repairs and
// mismatches, corruptions outstanding, and the events of the period ("; "-separated, quoted).
void writeTimelineCsv(std::ostream& out, const Report& report);

}  // namespace MorvikSim

#endif
