#include "FaultPlayer.h"

#include <cstdio>

#include "Chassis.h"
#include "CorruptionTracker.h"
#include "Kel/System.h"
#include "Monitor.h"

namespace MorvikSim {

namespace {

constexpr U64 kStream = 0x696e6a656374ULL;
// How long a corruption waits when the standby has no memory to corrupt.
constexpr double kRetryDelay = 1.0;

std::string where(const std::string& feature, U32 offset) {
  char text[32];
  std::snprintf(text, sizeof text, "+0x%x", offset);
  return feature + text;
}

std::vector<std::size_t> everyFeature(std::size_t n) {
  std::vector<std::size_t> all(n);
  for (std::size_t i = 0; i < n; ++i) all[i] = i;
  return all;
}

}  // namespace

FaultPlayer::FaultPlayer(Chassis& chassis, Monitor& monitor, CorruptionTracker& tracker,
                         const SimOptions& options, const std::vector<Fault>& schedule)
    : chassis_(chassis),
      monitor_(monitor),
      tracker_(tracker),
      options_(options),
      schedule_(schedule),
      rng_(options.seed ^ kStream) {}

FaultPlayer::~FaultPlayer() {
  stop();
}

void FaultPlayer::start(double t0) {
  timer_ = Timer::create([this] { fire(); });
  for (const Fault& fault : schedule_) {
    Step step = Step::corrupt;
    if (fault.kind == Fault::Kind::silent) step = Step::silentStart;
    if (fault.kind == Fault::Kind::away) step = Step::awayStart;
    if (fault.kind == Fault::Kind::chunk) step = Step::chunk;
    queue(t0 + fault.at, step, fault);
  }
}

void FaultPlayer::stop() {
  if (timer_) timer_->stop();
  timer_ = nullptr;
  queue_.clear();
}

void FaultPlayer::queue(double at, Step step, const Fault& fault) {
  queue_.emplace(at, Action{step, fault});
  if (timer_) timer_->at(queue_.begin()->first);
}

void FaultPlayer::fire() {
  const double now = Kel::System::currentTime();
  while (!queue_.empty() && queue_.begin()->first <= now) {
    const Action action = queue_.begin()->second;
    queue_.erase(queue_.begin());
    apply(action, now);
  }
  if (!queue_.empty() && timer_) timer_->at(queue_.begin()->first);
}

void FaultPlayer::apply(const Action& action, double now) {
  switch (action.step) {
    case Step::corrupt:
      return corrupt(action.fault, now);
    case Step::silentStart:
      return silent(action.fault, true, now);
    case Step::silentEnd:
      return silent(action.fault, false, now);
    case Step::awayStart:
      return away(action.fault, now);
    case Step::awayEnd:
      return back();
    case Step::chunk:
      return chunk(action.fault);
  }
}

std::size_t FaultPlayer::featureOf(const Fault& fault) {
  if (fault.feature.empty()) return rng_.below(chassis_.features());
  return chassis_.layout().find(fault.feature);
}

void FaultPlayer::corruptNow() {
  Fault fault;
  fault.kind = Fault::Kind::corrupt;
  corrupt(fault, Kel::System::currentTime());
}

void FaultPlayer::corrupt(const Fault& fault, double now) {
  if (!chassis_.standbyPresent()) {
    queue(now + kRetryDelay, Step::corrupt, fault);
    return;
  }
  const std::size_t f = featureOf(fault);
  const U32 offset =
      fault.offset ? *fault.offset : static_cast<U32>(rng_.below(chassis_.layout().size(f)));
  // Always a different value, so every corruption is a real one.
  const U8 value = static_cast<U8>(chassis_.localBytes(f)[offset] ^ (1 + rng_.below(255)));
  chassis_.corrupt(f, offset, value);
  tracker_.injected(f, offset, monitor_.now());
  monitor_.event(true, "corrupt " + where(chassis_.layout().name(f), offset));
}

void FaultPlayer::silent(const Fault& fault, bool on, double now) {
  const std::size_t f = featureOf(fault);
  const std::string& name = chassis_.layout().name(f);
  chassis_.responder(f).modeIs(on ? MorvikAgents::StandbyResponder::Mode::silent
                                  : MorvikAgents::StandbyResponder::Mode::answer);
  monitor_.event(true, (on ? "standby silent " : "standby answers ") + name);
  if (!on) return;
  Fault end = fault;
  end.feature = name;
  queue(now + (fault.duration > 0 ? fault.duration : 6.5 * options_.auditInterval), Step::silentEnd,
        end);
}

void FaultPlayer::away(const Fault& fault, double now) {
  if (!chassis_.standbyPresent()) return;
  chassis_.standbyAway(fault.nullRecord);
  // Its corruptions went with it: only the resync after it comes back can put the bytes right,
  // whatever the features write meanwhile.
  monitor_.standbyLost();
  monitor_.event(true, "standby memory away");
  queue(now + (fault.duration > 0 ? fault.duration : 2.0 * options_.auditInterval), Step::awayEnd,
        fault);
}

void FaultPlayer::back() {
  chassis_.standbyBack();
  monitor_.resyncStarted(ResyncKind::standbyReturn, everyFeature(chassis_.features()), "all");
  monitor_.event(true, "standby memory back");
}

void FaultPlayer::chunk(const Fault& fault) {
  U32 size = fault.chunkSize;
  if (size == 0) size = options_.chunkSizes[nextChunk_++ % options_.chunkSizes.size()];
  if (size == chassis_.chunkSize()) {
    monitor_.event(true, "chunk size unchanged " + std::to_string(size));
    return;
  }
  chassis_.chunkSizeIs(size);
  monitor_.resyncStarted(ResyncKind::chunkChange, everyFeature(chassis_.features()), "all");
  monitor_.event(true, "chunk size " + std::to_string(size));
}

}  // namespace MorvikSim
