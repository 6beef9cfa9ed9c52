#ifndef MORVIK_SIM_DEFAULTSCHEDULE_H
#define MORVIK_SIM_DEFAULTSCHEDULE_H

#include <vector>

#include "Fault.h"
#include "Layout.h"
#include "SimOptions.h"

namespace MorvikSim {

// The scheduled faults of a run: the default schedule (when the options ask for it) followed by
// the explicit faults, in time order.
//
// The default schedule has every kind of fault, all within the first 70% of the run so that the
// audit has several intervals left to find the last of them:
//  - one feature's standby silent from 20% for 6.5 audit intervals (the audit gives up after
//    five unanswered ticks and resyncs);
//  - the standby's memory away from 45% for two intervals (it comes back blank: full resync);
//  - a chunk-size change at 55% and another at 65% (to the next chunk sizes of the run);
//  - `corruptions` corruptions at random offsets: first two in one audit interval of one feature
//    (one finding for the audit), then one in the silent standby's feature while it is silent,
//    one just before the standby's memory goes away and one just before the first chunk-size
//    change (each healed by the resync that follows, unless a write or the audit is quicker), and
//    the rest at random times and features.
// Everything is fixed by the seed.
std::vector<Fault> faultSchedule(const SimOptions& options, const Layout& layout);

}  // namespace MorvikSim

#endif
