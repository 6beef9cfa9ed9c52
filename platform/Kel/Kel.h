#ifndef KEL_KEL_H
#define KEL_KEL_H

// The framework as this library sees it, first layer: counted objects, values, entities and their
// notification, and the plumbing of state machines. Time and the loop build on it
// (ActivityManager.h), log and trace on both, the generic interface on all. The contract, piece by
// piece; the headers below hold the pieces.
//
// PtrInterface: one 32-bit word per counted object. The count lives under 0x5FFFFFFF, bit 29 is
//   the notification-active flag, bit 31 the zombie flag; flags never count. With
//   VFPtrInterface::enableThreadSafePointers set, every change of the word is an atomic
//   read-modify-write, otherwise plain arithmetic. The release that leaves no references calls
//   handleZeroRef(): holding a reference of its own it runs zeroReferencesIs(true) (a handler that
//   keeps a pointer revives the object), then, still unreferenced, maybeDelete() tells the
//   allocation tracker, destroys the object and gives its memory back to kelMemFree.
// Ptr<T>: a copy takes a reference, destruction or reassignment drops one (the new one is taken
//   first); a raw pointer becomes a Ptr only explicitly. Dereferencing a null Ptr ends the process
//   with "dereference of a null Kel::Ptr".
// allocate<T>(args...): tells AllocTracker (type, size), takes memory from kelMemAlloc, constructs
//   (a throwing constructor is untracked again, its memory freed), then calls the virtual
//   hasNotificationActiveIs(true) on the result. An object is built holding one reference, which
//   the result takes over: a Ptr to it taken and dropped by its own constructor leaves it alive.
// String, Name, Exception, Parse: an immutable shared byte string (any byte, NUL included); an
//   entity's name, whose quoted form (valueToStrep) round-trips every byte; the framework's
//   exceptions; the value parsers' helpers. HashMap2018 hashes a 64-bit key as high ^ low half and
//   lets an iteration delete the member it stands on. Dir: named entities that tell their
//   watchers of every member added, replaced or removed.
// Entity, EntityOf<T>, NotifieeConstOf<T> (Entity.h); EntityNotifiee, NotifieeList:
//   A. A setter returns at once on an equal value; otherwise it stores (taking the new payload's
//      reference before dropping the old) and calls the attribute's handler on every listed
//      notifiee before it returns, keeping the entity alive meanwhile.
//   B. notifierIs(p) converts p to the watched type (another type becomes null), returns on the
//      current notifier, holds the old one meanwhile, leaves its list and joins the new one.
//   C. isRegisteredNotifieeIs(b) does nothing on an unchanged flag; otherwise joins or leaves.
//   D. A notifiee that goes leaves its notifier's list before any destructor runs.
//   E. An entity's zeroReferencesIs tells every listed notifiee onZeroReferences().
//   A notifiee holds its notifier by a counted reference and sits in the notifier's list (by a
//   plain pointer) exactly while it is registered and not zombie. Handlers may change the list
//   being visited, set attributes again or throw: a notifiee that leaves is not called again in
//   that visit, one that joins hears only of later changes. Only T::NotifieeConst joins the list
//   of a T, and T is final, so a visit hands each notifiee to T's handlers as it is.
// Reactor, StateMachine: a state machine's notifiees on its inputs. kelDoZombieReactors(true)
//   takes a reactor out of its notifier's list at once; a machine passes it, and notification
//   changes, on to its reactors in its own order.

#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/Exception.h"
#include "Kel/HashMap2018.h"
#include "Kel/Name.h"
#include "Kel/Parse.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "Kel/Reactor.h"
#include "Kel/String.h"
#include "Kel/Types.h"

#endif
