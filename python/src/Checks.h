#ifndef MORVIK_PYTHON_CHECKS_H
#define MORVIK_PYTHON_CHECKS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Check.h"
#include "Kel/GenericValue.h"

namespace morvikpy {

// Every call, set and construction from Python is checked here before the generic interface runs
// it, against what the process knows: the entities' state, the mapped regions, the process's
// memory, the environment. The generic interface itself, and every C++ caller, still runs the
// library's function as it is, assertions included.

using Args = std::vector<Kel::GenericValue>;
// Bookkeeping to do once the library has run the call; empty when there is none.
using After = std::function<void()>;

After checkConstruction(const std::string& typeName, const Args& args);
After checkCall(const Kel::GenericValue& self, const std::string& name, const Args& args);
After checkSet(const Kel::GenericValue& self, const std::string& name,
               const Kel::GenericValue& value);
// A member set (`value` given) or delete (`value` null) of a keyed attribute.
After checkMemberChange(const Kel::GenericValue& self, const std::string& name,
                        const Kel::GenericValue& key, const Kel::GenericValue* value);

// A run of the activity loop up to `horizon` (a time; infinity for "until idle"): the handlers
// that will fire by then are checked on the state they will find. `call` names the function.
void checkLoop(const std::string& call, double horizon, bool untilIdle);

// What one type's checks are, by function or attribute name; arguments and values arrive
// converted to their declared types.
struct TypeChecks {
  using Construct = std::function<After(const Check&, const Args&)>;
  using Call = std::function<After(const Check&, const Kel::GenericValue& self, const Args&)>;
  using Set = std::function<After(const Check&, const Kel::GenericValue& self,
                                  const Kel::GenericValue& value)>;
  using Member = std::function<After(const Check&, const Kel::GenericValue& self,
                                     const Kel::GenericValue& key, const Kel::GenericValue* value)>;

  Construct construct;
  std::map<std::string, Call> calls;
  std::map<std::string, Set> sets;
  std::map<std::string, Member> members;
};

TypeChecks memoryChecks();
TypeChecks memoryStateMachineChecks();
TypeChecks auditStateMachineChecks();
// The shared records whose changes set off a state machine's handler.
std::map<std::string, TypeChecks> recordChecks();

}  // namespace morvikpy

#endif
