#include "Signals.h"

#include <csignal>
#include <initializer_list>

#include "ostra/ostra.h"

namespace MorvikSim {

namespace {

volatile std::sig_atomic_t stopFlag = 0;
volatile std::sig_atomic_t corruptCount = 0;
volatile std::sig_atomic_t regionsOwned = 0;
std::sig_atomic_t corruptTaken = 0;

void onStop(int) {
  stopFlag = 1;
}
void onCorrupt(int) {
  corruptCount = corruptCount + 1;
}

// Dying anyway: removing the regions is worth the risk of calling a function that is not
// async-signal-safe.
void onAbort(int sig) {
  if (regionsOwned) {
    ostra_free("MorvikLocal");
    ostra_free("MorvikRemote");
  }
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

}  // namespace

Signals::Signals() {
  stopFlag = 0;
  std::signal(SIGINT, onStop);
  std::signal(SIGTERM, onStop);
  std::signal(SIGUSR1, onCorrupt);
  std::signal(SIGABRT, onAbort);
}

Signals::~Signals() {
  regionsOwned = 0;
  for (int sig : {SIGINT, SIGTERM, SIGUSR1, SIGABRT}) std::signal(sig, SIG_DFL);
}

bool Signals::stopRequested() {
  return stopFlag != 0;
}

bool Signals::takeCorruptRequest() {
  if (corruptTaken == corruptCount) return false;
  ++corruptTaken;
  return true;
}

void Signals::regionsOwnedIs(bool owned) {
  regionsOwned = owned ? 1 : 0;
}

}  // namespace MorvikSim
