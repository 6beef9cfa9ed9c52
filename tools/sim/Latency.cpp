#include "Latency.h"

#include <chrono>
#include <cstdint>

#include "Tralux/MsgDesc.h"
#include "Tralux/Tsc.h"

namespace MorvikSim {

namespace {

// The recorder the block timers reach; a plain function has no object of its own.
CycleFigures* recording = nullptr;

void recordDoWrite(const Tralux::MsgDesc& desc, std::uint64_t cycles) noexcept {
  if (recording != nullptr && desc.text() == "doWrite") recording->record(cycles);
}

// Counter ticks per nanosecond, measured against steady_clock once, over a span long enough to
// swamp the cost of the clock reads and short enough not to be noticed.
double cyclesPerNanosecond() {
  static const double rate = [] {
    using Clock = std::chrono::steady_clock;
    const auto startTime = Clock::now();
    const std::uint64_t startCycles = Tralux::readTsc();
    auto now = startTime;
    while (now - startTime < std::chrono::milliseconds(2)) now = Clock::now();
    const double cycles = static_cast<double>(Tralux::readTsc() - startCycles);
    const double rate = cycles / std::chrono::duration<double, std::nano>(now - startTime).count();
    // A counter that stood still or ran backwards would make every figure meaningless; treat it
    // as a nanosecond clock instead of dividing by nonsense.
    return rate > 0.0 ? rate : 1.0;
  }();
  return rate;
}

}  // namespace

LatencyRecorder::LatencyRecorder() {
  recording = &cycles_;
  Tralux::MsgDesc::recorderIs(&recordDoWrite);
}

LatencyRecorder::~LatencyRecorder() {
  Tralux::MsgDesc::recorderIs(nullptr);
  recording = nullptr;
}

LatencyFigures LatencyRecorder::doWrite() const {
  LatencyFigures figures;
  if (cycles_.count() == 0) return figures;
  const double perNs = cyclesPerNanosecond();
  const auto ns = [perNs](std::uint64_t cycles) { return static_cast<double>(cycles) / perNs; };
  figures.count = cycles_.count();
  figures.meanNs = ns(cycles_.totalCycles()) / static_cast<double>(cycles_.count());
  figures.minNs = ns(cycles_.minCycles());
  figures.p50Ns = ns(cycles_.percentileCycles(50.0));
  figures.p99Ns = ns(cycles_.percentileCycles(99.0));
  figures.maxNs = ns(cycles_.maxCycles());
  return figures;
}

}  // namespace MorvikSim
