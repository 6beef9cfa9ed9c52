#include "Outputs.h"

#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "Plotter.h"
#include "ReportJson.h"
#include "ReportText.h"
#include "TimelineCsv.h"

namespace MorvikSim {

namespace {

void writeCsvFile(const Report& report, const std::string& path) {
  std::ofstream file(path);
  if (!file) throw std::runtime_error("cannot write " + path);
  writeTimelineCsv(file, report);
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

// The plot reads the CSV; without --csv it gets a temporary one.
void writePlot(const SimOptions& options, const Report& report) {
  if (!options.csvFile.empty()) return plotTimeline(report, options.csvFile, options.plotFile);
  char csvPath[] = "/tmp/morvik_sim_timeline_XXXXXX";
  const int fd = ::mkstemp(csvPath);
  if (fd < 0) throw std::runtime_error("cannot create a temporary file for the timeline");
  ::close(fd);
  try {
    writeCsvFile(report, csvPath);
    plotTimeline(report, csvPath, options.plotFile);
  } catch (...) {
    ::unlink(csvPath);
    throw;
  }
  ::unlink(csvPath);
}

}  // namespace

void writeOutputs(const SimOptions& options, const Report& report, std::ostream& out) {
  if (options.json) {
    writeJsonReport(out, report);
  } else {
    writeTextReport(out, report);
  }
  if (!options.csvFile.empty()) writeCsvFile(report, options.csvFile);
  if (!options.plotFile.empty()) writePlot(options, report);
  if (options.json) return;
  if (!options.csvFile.empty()) out << "Timeline: " << options.csvFile << "\n";
  if (!options.plotFile.empty()) out << "Plot: " << options.plotFile << "\n";
}

}  // namespace MorvikSim
