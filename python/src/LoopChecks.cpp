// A run of the activity loop fires the state machines' clocks: the copier of every memory state
// machine whose memory has copying to do, and every audit whose tick falls within the run.
#include "Checks.h"
#include "LiveObjects.h"
#include "MorvikLib/MorvikAuditSmReactors.h"
#include "MorvikLib/MorvikMemorySmReactors.h"
#include "StateMachineModel.h"

namespace morvikpy {

namespace {

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
    tick.require(!(untilIdle && audit->clockReactor()),
                 "the audit re-arms its clock on every tick, so the loop never goes idle; give "
                 "maxPasses or run until a time");
    if (firesBy(audit->clockReactor(), horizon)) checkAuditTick(tick, AuditInputs::of(*audit));
  }
}

}  // namespace morvikpy
