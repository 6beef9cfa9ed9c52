#ifndef KEL_KEL_H
#define KEL_KEL_H

// The framework as this library sees it. Everything under Kel/ stands in for the platform's
// reactive entity framework; this header states what the stand-in guarantees, so code written
// against it behaves the same on the platform. Include it to get the core pieces at once.
//
// References (PtrInterface, Ptr, allocate)
//  - Every counted object carries one 32-bit word. The count lives under 0x5FFFFFFF
//    (PtrInterface::kCountMask); bit 29 is the notification-active flag, bit 31 the zombie flag.
//    Flags never count: an object has no references when (word & 0x5FFFFFFF) == 0, whatever its
//    flags. referenceWord() shows the whole word.
//  - VFPtrInterface::enableThreadSafePointers picks atomic read-modify-writes (on) or plain
//    arithmetic (off) for every count and flag change. Set it before a second thread shares
//    objects; flipping it while counts change on several threads is a race.
//  - Ptr<T> takes a reference on copy and drops one on destruction or reassignment; assignment
//    takes the new reference before dropping the old, so self-assignment and "p = p->next" are
//    safe. Dereferencing a null Ptr ends the process with "dereference of a null Kel::Ptr".
//  - The release that leaves no references calls handleZeroRef(): it holds a reference of its own
//    while zeroReferencesIs(true) runs (a handler may copy and drop pointers freely; one that keeps
//    a pointer revives the object), then, if the count is still zero, maybeDelete() disposes of
//    the object exactly once. String payloads are released directly.
//  - allocate<T>(args...), in this order: tell AllocTracker (type, size); take memory from
//    PtrInterface::kelMemAlloc; construct (a throwing constructor is untracked again, its memory
//    freed, the exception passed on); hold the result in a Ptr; call the virtual
//    hasNotificationActiveIs(true) (by default: set bit 29); return the Ptr. Counted objects come
//    from allocate only: disposal reports to the tracker, destroys and gives the memory back to
//    PtrInterface::kelMemFree. An object is built holding one reference, which the Ptr takes
//    over, so a Ptr to it taken and dropped by its own constructor leaves it alive.
//
// Entities and notifiees (Entity, EntityNotifiee, NotifieeConstOf, NotifieeList)
//  - A notifiee holds its notifier by a counted reference; the notifier's list holds notifiees
//    by plain pointers. A listed notifiee therefore always keeps its entity alive.
//  - A: a setter compares and returns at once on an equal value; otherwise it stores (taking the
//    new payload's reference before dropping the old), returns if the list is empty, and visits
//    the list, calling the handler on every listed notifiee before it returns. The entity keeps
//    itself alive for the visit.
//  - B: notifierIs(p) converts p to the watched type (another type becomes null), returns if it
//    is the current notifier, holds the old notifier meanwhile, leaves the old list and, when
//    registered and not zombie, joins the new one.
//  - C: isRegisteredNotifieeIs(b) does nothing on an unchanged flag; otherwise it joins (true,
//    unless zombie) or leaves (false) the notifier's list. Registering twice, or unregistering an
//    unregistered notifiee, changes nothing.
//  - D: a notifiee whose last reference goes leaves its notifier's list before any destructor
//    runs, then drops its reference to the notifier. A zombie is not listed, so nothing is left.
//  - E: an entity's zeroReferencesIs tells every listed notifiee onZeroReferences(); the argument
//    is not looked at.
//  - Zombies: kelDoZombieReactors(true) sets bit 31 and takes the notifiee out of its list at once
//    (the notifiee detaches itself; the entity never sweeps). kelDoZombieReactors(false) clears
//    the bit and rejoins if registered. A reactor turns zombie in its destructor.
//  - Visits: handlers may register, unregister, re-point or destroy any notifiee of the list being
//    visited, set attributes again (a nested visit), or throw. A notifiee that leaves is never
//    called afterwards in that visit; one that joins hears only of later changes; a notifiee is
//    kept alive while its own handler runs; the list is tidied when the outermost visit ends,
//    also when a handler throws out of it.
//  - Notifiees are created through allocate (the list's visits take references to them).
//
// Clocks and the activity loop (Clock, ActivityManager, System)
//  - Clock::NotifieeConst::timeMinIs(t) asks for one onTime() once the clock reaches t; a new
//    request replaces the earlier one. Only a listed notifiee is scheduled: leaving the list
//    (unregistering, re-pointing, turning zombie, being destroyed) withdraws the request, joining
//    again restores it.
//  - A pass runs, once each and in order of (time, request order), the requests due when it
//    starts. A request made from inside onTime, even for "now", runs on a later pass: never
//    recursively, never lost. A request withdrawn by an earlier handler of the pass does not run.
//  - ActivityManager: runPass() one pass at the current time; runNextPass() moves to the next
//    requested time and runs one pass (0 when nothing is requested); runUntilRest(max) passes at
//    the current time until nothing more is due now (a notifiee that re-arms itself for "now"
//    forever keeps it busy, as it would keep the real loop busy). passes() counts the passes
//    that ran something.
//  - System::currentTime() is real monotonic time, or virtual time after
//    System::virtualTimeIs(true[, start]): then the loop jumps to the next requested time instead
//    of sleeping. Time never moves backwards: advancing to an earlier time is ignored.
//
// Values: String is an immutable shared byte string (any byte, NUL included); Name is an entity
// name whose quoted form (valueToStrep) round-trips every byte and whose parser throws
// RangeException on a malformed text; Parse holds the value parsers' helpers; HashMap2018 hashes a
// 64-bit key as high ^ low half and lets an iteration delete the member it stands on; Dir notifies
// its watchers when a member is added, replaced or removed.

#include "Kel/ActivityManager.h"
#include "Kel/AllocTracker.h"
#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Clock.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/EntityNotifiee.h"
#include "Kel/Exception.h"
#include "Kel/HashMap2018.h"
#include "Kel/Name.h"
#include "Kel/NotifieeConstOf.h"
#include "Kel/NotifieeList.h"
#include "Kel/Parse.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kel/String.h"
#include "Kel/System.h"
#include "Kel/Types.h"

#endif
