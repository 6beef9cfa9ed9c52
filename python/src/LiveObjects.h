#ifndef MORVIK_PYTHON_LIVEOBJECTS_H
#define MORVIK_PYTHON_LIVEOBJECTS_H

#include <vector>

#include "Kel/Ptr.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace morvikpy {

struct Object;

// The framework objects a script holds, and the state machines reachable from them: whose
// handlers a change of a record or a run of the activity loop will set off.
class LiveObjects {
 public:
  static void added(const Object* object);
  static void removed(const Object* object);

  static std::vector<Kel::Ptr<MorvikLib::MorvikMemorySm>> memoryStateMachines();
  static std::vector<Kel::Ptr<MorvikLib::MorvikAuditSm>> auditStateMachines();
  // The memory state machines driving `memory`.
  static std::vector<Kel::Ptr<MorvikLib::MorvikMemorySm>> drivers(
      const MorvikLib::MorvikMemory& memory);
};

}  // namespace morvikpy

#endif
