#include "Report.h"
#include "Tralux/CallSites.h"
#include "Tralux/MsgDesc.h"
#include "Tralux/Tsc.h"

namespace MorvikSim {

LatencyFigures doWriteLatency() {
  LatencyFigures figures;
  const Tralux::MsgDesc* site = Tralux::findCallSite("doWrite");
  if (site == nullptr || site->count() == 0) return figures;
  const double perNs = Tralux::cyclesPerNanosecond();
  const auto ns = [perNs](std::uint64_t cycles) { return static_cast<double>(cycles) / perNs; };
  figures.count = site->count();
  figures.meanNs = ns(site->totalCycles()) / static_cast<double>(site->count());
  figures.minNs = ns(site->minCycles());
  figures.p50Ns = ns(site->percentileCycles(50.0));
  figures.p99Ns = ns(site->percentileCycles(99.0));
  figures.maxNs = ns(site->maxCycles());
  return figures;
}

}  // namespace MorvikSim
