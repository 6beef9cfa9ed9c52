#include "Simulator.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <optional>

#include "AnswerWatcher.h"
#include "AuditWatcher.h"
#include "Chassis.h"
#include "CopyComparison.h"
#include "CorruptionTracker.h"
#include "DefaultSchedule.h"
#include "EventLogCounter.h"
#include "FaultPlayer.h"
#include "Freshness.h"
#include "Kel/ActivityManager.h"
#include "Kel/System.h"
#include "Latency.h"
#include "Limits.h"
#include "MemoryWatcher.h"
#include "Monitor.h"
#include "MorvikLib/Library.h"
#include "Progress.h"
#include "Sampler.h"
#include "Signals.h"
#include "Workload.h"

namespace MorvikSim {

namespace {

std::string chooseVmid(const SimOptions& options) {
  if (!options.vmid.empty()) return options.vmid;
  const char* inherited = std::getenv("SIMULATION_VMID");
  if (inherited != nullptr && *inherited != '\0') return inherited;
  static std::atomic<unsigned> runs{0};
  return "morvik-sim-" + std::to_string(::getpid()) + "-" + std::to_string(runs++);
}

std::vector<std::string> featureNames(const Layout& layout) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < layout.features(); ++i) names.push_back(layout.name(i));
  return names;
}

U32 smallestChunk(const SimOptions& options) {
  const std::vector<U32> sizes = options.chunkSizesUsed();
  return *std::min_element(sizes.begin(), sizes.end());
}

std::vector<std::size_t> everyFeature(std::size_t n) {
  std::vector<std::size_t> all(n);
  for (std::size_t i = 0; i < n; ++i) all[i] = i;
  return all;
}

// Everything one run is made of, declared in the order it must be torn down backwards: the
// watchers let go of the library's entities before the chassis releases them and removes the
// shared memory.
class Session {
 public:
  Session(const SimOptions& options, const Layout& layout, const std::string& vmid, double t0)
      : options_(options),
        t0_(t0),
        chassis_(vmid, layout, options.chunkSizes.front()),
        tracker_([this](std::size_t f) { return chassis_.localBytes(f); },
                 [this](std::size_t f) { return chassis_.remoteBytes(f); }),
        freshness_(layout, smallestChunk(options)),
        monitor_(featureNames(layout), tracker_, freshness_),
        logs_(monitor_),
        progress_(!options.quiet, options.switchoverTime()) {
    Signals::regionsOwnedIs(true);
    monitor_.startIs(t0);
    watch();
  }
  ~Session() { Signals::regionsOwnedIs(false); }

  void start(const std::vector<Fault>& schedule);
  void loop();
  void settle();
  void fill(Report& report) const;

 private:
  void watch();
  void housekeeping();
  void switchover();

  const SimOptions& options_;
  double t0_;
  Chassis chassis_;
  CorruptionTracker tracker_;
  FreshnessTracker freshness_;
  Monitor monitor_;
  EventLogCounter logs_;
  Progress progress_;
  std::vector<Kel::Ptr<MemoryWatcher>> memoryWatchers_;
  std::vector<Kel::Ptr<AuditWatcher>> auditWatchers_;
  std::vector<Kel::Ptr<AnswerWatcher>> answerWatchers_;
  std::optional<Workload> workload_;
  std::optional<FaultPlayer> faults_;
  std::optional<Sampler> sampler_;
  Kel::Ptr<Timer> switchoverTimer_;
  bool stopped_ = false;
  bool interrupted_ = false;
  double switchoverAt_ = 0.0;
  CopyComparison atSwitchover_;
  CopyComparison atRest_;
  U64 passesAtStart_ = 0;
};

void Session::watch() {
  for (std::size_t f = 0; f < chassis_.features(); ++f) {
    memoryWatchers_.push_back(MemoryWatcher::create(monitor_, f, chassis_.memory(f)));
    auditWatchers_.push_back(
        AuditWatcher::create(monitor_, f, chassis_.auditRequest(f), chassis_.auditStatus(f)));
    answerWatchers_.push_back(AnswerWatcher::create(monitor_, chassis_.auditStatus(f)));
  }
}

void Session::start(const std::vector<Fault>& schedule) {
  passesAtStart_ = Kel::activityManager()->passes();
  chassis_.buildMachines();
  monitor_.resyncStarted(ResyncKind::initial, everyFeature(chassis_.features()), "all");
  chassis_.adoptAudits(options_.auditInterval);
  Kel::activityManager()->runUntilRest();
  housekeeping();

  const double end = t0_ + options_.switchoverTime();
  workload_.emplace(chassis_, monitor_, options_);
  workload_->start(t0_, end, [this] { switchover(); });
  if (options_.rate <= 0.0) {
    switchoverTimer_ = Timer::create([this] { switchover(); });
    switchoverTimer_->at(end);
  }
  faults_.emplace(chassis_, monitor_, tracker_, options_, schedule);
  faults_->start(t0_);
  const double interval = options_.sampleInterval > 0.0
                              ? options_.sampleInterval
                              : options_.switchoverTime() / limits::kMinSamples;
  sampler_.emplace(
      monitor_, tracker_, [this] { return freshness_.measure(chassis_, tracker_, monitor_.now()); },
      interval);
  sampler_->start(t0_);
}

void Session::housekeeping() {
  tracker_.checkHealed(monitor_.now());
  chassis_.adoptAudits(options_.auditInterval);
  progress_.update(monitor_);
}

// The active stops without warning: whatever its last operation left for the copier is lost.
void Session::switchover() {
  if (stopped_) return;
  stopped_ = true;
  switchoverAt_ = monitor_.now();
  tracker_.checkHealed(switchoverAt_);
  atSwitchover_ = compareCopies(chassis_, tracker_);
  monitor_.event(true, interrupted_ ? "switchover (interrupted)" : "switchover");
}

void Session::loop() {
  Kel::ActivityManager* manager = Kel::activityManager();
  while (!stopped_) {
    if (Signals::stopRequested()) {
      interrupted_ = true;
      switchover();
      break;
    }
    if (Signals::takeCorruptRequest()) faults_->corruptNow();
    if (manager->runNextPass() == 0 && manager->clock()->idle()) switchover();
    housekeeping();
  }
  progress_.finish();
}

// After the switchover the copier is let finish what was pending, so that the copies can be
// compared at rest; nothing else runs any more.
void Session::settle() {
  workload_->stop();
  faults_->stop();
  if (switchoverTimer_) switchoverTimer_->stop();
  sampler_->sampleNow();
  sampler_->stop();
  Kel::activityManager()->runUntilRest();
  tracker_.checkHealed(monitor_.now());
  atRest_ = compareCopies(chassis_, tracker_);
}

void Session::fill(Report& r) const {
  r.vmid = chassis_.vmid();
  r.interrupted = interrupted_;
  r.chassisSeconds = switchoverAt_;
  r.passes = Kel::activityManager()->passes() - passesAtStart_;
  r.totalBytes = chassis_.layout().total();
  r.chunkSizeEnd = chassis_.chunkSize();
  r.workload = monitor_.workload();
  r.bytesMirrored = monitor_.bytesMirrored();
  r.directBytes = monitor_.directBytes();
  r.chunkBytes = monitor_.chunkBytes();
  r.chunksCopied = monitor_.chunksCopiedTotal();
  r.pendingPeak = monitor_.pendingPeak();
  r.drains = monitor_.drains();
  r.resyncs = monitor_.resyncs();
  r.audit = monitor_.audit();
  const Kel::LogHandle& log = MorvikLib::checksumErrorLog();
  r.eventLogName = log.name().stdString();
  r.eventLogBurst = log.burst();
  r.eventLogInterval = log.interval();
  r.corruptions = tracker_.summary();
  r.corruptionList = tracker_.corruptions();
  r.switchoverAt = switchoverAt_;
  r.atSwitchover = atSwitchover_;
  r.atRest = atRest_;
  r.events = monitor_.events();
  r.samples = sampler_->samples();
  r.freshness = summarizeFreshness(r.samples);
}

}  // namespace

Report Simulator::run() {
  const Layout layout(options_.features, options_.chunkSizes);
  const std::vector<Fault> schedule = faultSchedule(options_, layout);
  std::optional<EnvSetting> nosync;
  if (options_.nosync) nosync.emplace("NOSYNC_MORVIK", "1");
  const bool wasVirtual = Kel::System::virtualTime();
  if (options_.realTime) {
    Kel::System::virtualTimeIs(false);
  } else {
    // From 0, so that chassis times read the same in every run of a seed.
    Kel::System::virtualTimeIs(true, 0.0);
  }
  const auto wallStart = std::chrono::steady_clock::now();

  Report report;
  report.seed = options_.seed;
  report.realTime = options_.realTime;
  report.nosync = std::getenv("NOSYNC_MORVIK") != nullptr;
  report.features = options_.features;
  report.chunkSizeStart = options_.chunkSizes.front();
  report.auditInterval = options_.auditInterval;
  report.rate = options_.rate;
  {
    const LatencyRecorder latency;
    Session session(options_, layout, chooseVmid(options_), Kel::System::currentTime());
    session.start(schedule);
    session.loop();
    session.settle();
    session.fill(report);
    report.doWrite = latency.doWrite();
  }
  report.wallSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
  if (!wasVirtual) Kel::System::virtualTimeIs(false);
  evaluateChecks(report);
  return report;
}

}  // namespace MorvikSim
