#ifndef KEL_REACTOR_H
#define KEL_REACTOR_H

#include <utility>

#include "Kel/Allocate.h"
#include "Kel/Entity.h"
#include "Kel/Exception.h"
#include "Kel/Ptr.h"

// The plumbing every state machine shares: its reactors, the slots that hold them, and the passing
// on of notification and zombie changes.
namespace Kel {

// A state machine's notifiee on one of its inputs. It keeps a plain back pointer to its machine,
// which holds the reactor; while a handler runs it holds the machine as well, so a handler whose
// doing drops the machine's last other reference (a watcher of one of its outputs, say) finishes
// on a live machine. A reactor is created registered on its notifier, without running a handler;
// it turns zombie in its destructor, which takes it out of its notifier's list.
template <class Machine, class Notifiee>
class Reactor : public Notifiee {
 public:
  template <class N>
  Reactor(Machine* machine, const Ptr<N>& notifier) : machine_(machine) {
    // Qualified: creating a reactor must not run a re-pointing reactor's handler.
    this->EntityNotifiee::notifierIs(Ptr<PtrInterface const>(notifier));
    this->EntityNotifiee::isRegisteredNotifieeIs(true);
  }

 protected:
  ~Reactor() override { this->kelDoZombieReactors(true); }

  template <class... Params, class... Args>
  void react(void (Machine::*handler)(Params...), Args&&... args) {
    Ptr<Machine> hold(machine_);
    (machine_->*handler)(std::forward<Args>(args)...);
  }

 private:
  Machine* machine_;
};

// A reactor that follows a new input by re-pointing, not by being replaced: re-pointed to a new
// notifier, and not zombie, it runs its handler once, as if the watched attribute had changed.
template <class Machine, class Notifiee, void (Machine::*handler)()>
class RepointedReactor : public Reactor<Machine, Notifiee> {
 public:
  using Reactor<Machine, Notifiee>::Reactor;

  void notifierIs(const Ptr<PtrInterface const>& candidate) override {
    if (this->notifierCast(candidate.ptr()) == this->notifierEntity().ptr()) return;
    EntityNotifiee::notifierIs(candidate);
    if (this->notifierEntity() && !this->zombie()) run();
    this->isRegisteredNotifieeIs(true);
  }

 protected:
  void run() { this->react(handler); }
};

// The input a reactor slot watches; null without a reactor.
template <class T, class R>
Ptr<T> notifierOf(const Ptr<R>& reactor) {
  return reactor ? const_ptr_cast<T>(reactor->notifier()) : Ptr<T>();
}

template <class R, class N>
bool watches(const Ptr<R>& reactor, const Ptr<N>& input) {
  return static_cast<const Entity*>(input.ptr()) ==
         (reactor ? reactor->notifierEntity().ptr() : nullptr);
}

// A dropped reactor may still be inside a visit of its notifier (its own handler dropped it):
// turning it zombie takes it out of that list at once, so it hears nothing more.
template <class R>
void reactorDel(Ptr<R>& slot) {
  if (Ptr<R> old = std::move(slot)) old->kelDoZombieReactors(true);
}

// The two ways a machine follows a new input. Both leave an unchanged input alone and drop the
// reactor for a null one; replacing creates a new reactor, re-pointing moves the existing one (see
// RepointedReactor) and creates one only where there was none. Each returns whether the input
// changed.
template <class R, class Machine, class N>
bool reactorReplace(Machine* machine, Ptr<R>& slot, const Ptr<N>& input) {
  if (watches(slot, input)) return false;
  reactorDel(slot);
  if (input) slot = allocate<R>(machine, input);
  return true;
}

template <class R, class Machine, class N>
bool reactorRepoint(Machine* machine, Ptr<R>& slot, const Ptr<N>& input) {
  if (watches(slot, input)) return false;
  if (!input) {
    reactorDel(slot);
  } else if (slot) {
    slot->notifierIs(Ptr<PtrInterface const>(input));
  } else {
    slot = allocate<R>(machine, input);
  }
  return true;
}

// A state machine passes notification and zombie changes on to every reactor it holds, in the
// order Machine::reactors() lists them, holding them meanwhile.
template <class Machine, class Base>
class StateMachine : public Base {
 public:
  void hasNotificationActiveIs(bool on) override {
    if (on == this->notificationActive()) return;
    PtrInterface::hasNotificationActiveIs(on);
    for (const auto& r : static_cast<Machine*>(this)->reactors()) {
      if (r) r->hasNotificationActiveIs(on);
    }
  }

  void kelDoZombieReactors(bool zombie) {
    if (zombie == this->zombie()) return;
    this->zombieBitIs(zombie);
    for (const auto& r : static_cast<Machine*>(this)->reactors()) {
      if (r) r->kelDoZombieReactors(zombie);
    }
  }
};

// Creates a state machine the framework's way (allocate); a null result is refused.
template <class Machine, class... Args>
Ptr<Machine> stateMachineNew(Args&&... args) {
  Ptr<Machine> machine = allocate<Machine>(std::forward<Args>(args)...);
  if (!machine) throwRangeException("null ValidPtr");
  return machine;
}

}  // namespace Kel

#endif
