#ifndef KEL_REACTOR_H
#define KEL_REACTOR_H

#include <utility>

#include "Kel/Allocate.h"
#include "Kel/Entity.h"
#include "Kel/Exception.h"
#include "Kel/Ptr.h"

// The plumbing both state machines share: their reactors, the slots that hold them, and the
// passing on of notification and zombie changes.
namespace Kel {

// A state machine's notifiee on one of its inputs, created registered without running a handler.
// It points back at its machine, which holds it; while a handler runs it holds the machine too,
// so a handler whose doing drops the machine's last other reference finishes on a live machine.
template <class Machine, class Notifiee>
class Reactor : public Notifiee {
 public:
  template <class N>
  Reactor(Machine* machine, const Ptr<N>& notifier) : machine_(machine) {
    // Qualified: creating a reactor must not run a re-pointed reactor's handler.
    this->EntityNotifiee::notifierIs(Ptr<PtrInterface const>(notifier));
    this->EntityNotifiee::isRegisteredNotifieeIs(true);
  }

 protected:
  // Zombie first: it leaves its notifier's list, so no handler reaches a half-destroyed machine.
  ~Reactor() override { this->kelDoZombieReactors(true); }

  template <class... Params, class... Args>
  void react(void (Machine::*handler)(Params...), Args&&... args) {
    Ptr<Machine> hold(machine_);
    (machine_->*handler)(std::forward<Args>(args)...);
  }

 private:
  Machine* machine_;
};

// A reactor that follows a new input by being re-pointed: on a new notifier, unless zombie, it
// runs its handler once, as if the watched attribute had changed.
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
Ptr<T> notifierOf(const Ptr<R>& slot) {
  return slot ? const_ptr_cast<T>(slot->notifier()) : Ptr<T>();
}

// How a machine follows a new input; returns whether the input changed. The current input changes
// nothing and null drops the reactor. Otherwise a new reactor replaces the old, or the old one is
// re-pointed (see RepointedReactor), a new one made only where there was none. A dropped reactor
// may still be inside a visit of its notifier (its own handler dropped it): turning it zombie takes
// it out of that list at once, so it hears nothing more.
enum class Follow { replace, repoint };

template <class R, class Machine, class N>
bool reactorIs(Machine* machine, Ptr<R>& slot, const Ptr<N>& input, Follow follow) {
  if (static_cast<const Entity*>(input.ptr()) == (slot ? slot->notifierEntity().ptr() : nullptr))
    return false;
  if (slot && input && follow == Follow::repoint) {
    slot->notifierIs(Ptr<PtrInterface const>(input));
  } else {
    if (Ptr<R> old = std::move(slot)) old->kelDoZombieReactors(true);
    if (input) slot = allocate<R>(machine, input);
  }
  return true;
}

// A state machine passes notification and zombie changes on to its reactors, in the order
// Machine::reactors() lists them, holding them meanwhile.
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
