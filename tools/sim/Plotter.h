#ifndef MORVIK_SIM_PLOTTER_H
#define MORVIK_SIM_PLOTTER_H

#include <string>

#include "Report.h"

namespace MorvikSim {

// The path of gnuplot on PATH, or empty when it is not installed.
std::string findGnuplot();

// Draws the timeline of csvPath (written by writeTimelineCsv) into a PNG with gnuplot: the copier's
// pending chunks, the bytes mirrored per second and the audit's findings over chassis time, with
// the injected faults marked. Throws std::runtime_error when gnuplot is missing or fails.
void plotTimeline(const Report& report, const std::string& csvPath, const std::string& pngPath);

// The gnuplot script plotTimeline runs; exposed for tests.
std::string timelineScript(const Report& report, const std::string& csvPath,
                           const std::string& pngPath);

}  // namespace MorvikSim

#endif
