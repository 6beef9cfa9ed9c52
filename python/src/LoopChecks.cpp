// A run of the activity loop fires the state machines' clocks: the copier of every memory state
// machine whose memory has copying to do, and every audit whose tick falls within the run.
#include <limits>

#include "Checks.h"
#include "LiveObjects.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "MorvikLib/MorvikMemorySmReactors.h"
#include "StateMachineModel.h"

namespace morvikpy {

namespace {

constexpr double kForever = std::numeric_limits<double>::infinity();

template <class Reactor>
bool firesBy(const Kel::Ptr<Reactor>& reactor, double horizon) {
  return reactor && reactor->timeRequested() && reactor->timeMin() <= horizon;
}

}  // namespace

void checkLoop(const std::string& call, double horizon, bool untilIdle) {
  if (!checksOn()) return;
  const Check check(call);
  for (const auto& sm : LiveObjects::memoryStateMachines()) {
    const Kel::Ptr<MorvikLib::MorvikMemory> memory = sm->morvikMemory();
    if (!memory || !(memory->remoteCopyPending() || firesBy(sm->wrClockReactor(), horizon))) {
      continue;
    }
    checkCopier(check.within("state machine '" + sm->name().string().stdString() + "'"),
                MemoryView::of(*memory));
  }
  for (const auto& audit : LiveObjects::auditStateMachines()) {
    const Check tick =
        check.within("audit '" + audit->name().string().stdString() + "', its clock tick");
    // Every tick asks for the next one: such a loop never goes idle.
    tick.require(!(untilIdle && firesBy(audit->clockReactor(), kForever)),
                 "the audit re-arms its clock on every tick, so the loop never goes idle; give "
                 "maxPasses or run until a time");
    if (!firesBy(audit->clockReactor(), horizon)) continue;
    const double first = audit->clockReactor()->timeMin();
    const double span = (horizon - first) / audit->auditInterval();
    const U64 ticks = span >= 1e18 ? ~U64{0} : 1 + static_cast<U64>(span);
    checkAuditTicks(tick, AuditInputs::of(*audit), ticks);
  }
}

}  // namespace morvikpy
