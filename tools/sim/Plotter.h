#ifndef MORVIK_SIM_PLOTTER_H
#define MORVIK_SIM_PLOTTER_H

#include <string>

#include "Report.h"

namespace MorvikSim {

// The path of gnuplot on PATH, or empty when it is not installed.
std::string findGnuplot();

// Draws the timeline of csvPath (written by writeTimelineCsv) into a PNG with gnuplot. Throws
// std::runtime_error when gnuplot is missing or fails.
void plotTimeline(const Report& report, const std::string& csvPath, const std::string& pngPath);

}  // namespace MorvikSim

#endif
