#include <cstdio>
#include <exception>
#include <iostream>

#include "Options.h"
#include "Outputs.h"
#include "Plotter.h"
#include "Signals.h"
#include "Simulator.h"
#include "UsageError.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kTrouble = 3;
constexpr int kInterrupted = 130;

void fail(const char* what) {
  std::fprintf(stderr, "morvik_sim: %s\n", what);
}

}  // namespace

int main(int argc, char** argv) {
  MorvikSim::SimOptions options;
  try {
    options = MorvikSim::parseOptions(argc, argv);
  } catch (const MorvikSim::UsageError& e) {
    std::fprintf(stderr, "morvik_sim: %s (see --help)\n", e.what());
    return kUsage;
  }
  if (options.help) {
    std::cout << MorvikSim::usageText();
    return 0;
  }
  // Better to say so now than after the run.
  if (!options.plotFile.empty() && MorvikSim::findGnuplot().empty()) {
    fail("--plot needs gnuplot, which is not installed (Debian package gnuplot-nox)");
    return kTrouble;
  }
  MorvikSim::Signals signals;
  MorvikSim::Report report;
  try {
    report = MorvikSim::Simulator(options).run();
    MorvikSim::writeOutputs(options, report, std::cout);
  } catch (const std::exception& e) {
    std::cout.flush();
    fail(e.what());
    return kTrouble;
  }
  std::cout.flush();
  if (report.interrupted) return kInterrupted;
  if (report.passed()) return 0;
  // The text report already lists the reasons on standard output; JSON keeps them inside.
  if (options.json) {
    for (const std::string& failure : report.failures) {
      std::fprintf(stderr, "morvik_sim: check failed: %s\n", failure.c_str());
    }
    if (!report.note.empty()) std::fprintf(stderr, "morvik_sim: %s\n", report.note.c_str());
  }
  return kFailed;
}
