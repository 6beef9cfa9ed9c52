#ifndef MORVIK_SIM_TIMELINESCRIPT_H
#define MORVIK_SIM_TIMELINESCRIPT_H

#include <string>
#include <vector>

#include "Report.h"

namespace MorvikSim {

// One injected fault's label in the strip above the timeline's panels.
struct FaultLabel {
  double t = 0.0;
  std::string text;
  int row = 0;
  // Drawn to the left of its mark, where it would run past the right edge.
  bool leftOfMark = false;
};

// Lays the labels of the injected faults out in rows, each where its text does not run into
// another's; rows rows at most, and the faults that fit in none are counted in `unlabelled`.
std::vector<FaultLabel> layFaultLabels(const Report& report, int rows, std::size_t& unlabelled);

// The gnuplot script that draws the timeline of csvPath (written by writeTimelineCsv) into pngPath:
// the copier's pending chunks, the bytes mirrored per second, how far the standby is behind, and
// the audit's findings over chassis time, below a strip naming the injected faults.
std::string timelineScript(const Report& report, const std::string& csvPath,
                           const std::string& pngPath);

}  // namespace MorvikSim

#endif
