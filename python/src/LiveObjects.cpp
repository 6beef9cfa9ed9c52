#include "LiveObjects.h"

#include <algorithm>
#include <unordered_set>

#include <pybind11/pybind11.h>

#include "Convert.h"
#include "Kel/Dir.h"
#include "Precondition.h"
#include "StateMachineModel.h"

namespace morvikpy {

namespace {

using MorvikLib::MorvikAuditSm;
using MorvikLib::MorvikMemorySm;

std::unordered_set<const Object*>& objects() {
  static auto* live = new std::unordered_set<const Object*>;
  return *live;
}

template <class T>
void collect(const Kel::PtrInterface* object, std::vector<Kel::Ptr<T>>& into) {
  auto* typed = dynamic_cast<T*>(const_cast<Kel::PtrInterface*>(object));
  if (typed && std::find(into.begin(), into.end(), Kel::Ptr<T>(typed)) == into.end()) {
    into.emplace_back(typed);
  }
}

// A script's objects and, one level down, the members of its directories.
template <class T>
std::vector<Kel::Ptr<T>> held() {
  std::vector<Kel::Ptr<T>> found;
  for (const Object* object : objects()) {
    const Kel::Ptr<Kel::PtrInterface> held = object->value.object();
    if (!held) continue;
    collect(held.ptr(), found);
    if (auto* dir = dynamic_cast<const Kel::Dir*>(held.ptr())) {
      for (const auto& [name, member] : dir->members()) collect(member.ptr(), found);
    }
  }
  return found;
}

// The memory entities whose teardown the release of `object` may start.
std::vector<Kel::Ptr<MorvikLib::MorvikMemory>> memoriesBehind(Kel::PtrInterface* object) {
  std::vector<Kel::Ptr<MorvikLib::MorvikMemory>> memories;
  if (auto* memory = dynamic_cast<MorvikLib::MorvikMemory*>(object)) memories.emplace_back(memory);
  if (auto* sm = dynamic_cast<MorvikMemorySm*>(object)) {
    memories.push_back(sm->morvikMemory());
    if (sm->morvikAuditSm()) memories.push_back(sm->morvikAuditSm()->morvikMemory());
  }
  if (auto* audit = dynamic_cast<MorvikAuditSm*>(object)) memories.push_back(audit->morvikMemory());
  std::erase_if(memories, [](const auto& m) { return !m; });
  return memories;
}

// A script's last reference to an object is going. If that would tear down a memory entity whose
// mappings can no longer be unmapped (SIMULATION_VMID names another machine now, say), the library
// would end the process from a destructor; the object is kept instead, and the script told.
void keepIfTeardownWouldFail(const Kel::GenericValue& value) {
  const Kel::Ptr<Kel::PtrInterface> object = value.object();
  // Two references: the script's, going now, and `object` here.
  if (!object || object->references() > 2) return;
  for (const auto& memory : memoriesBehind(object.ptr())) {
    try {
      checkMemoryDeletion(
          Check(value.typeName() + " '" + memory->name().string().stdString() + "' released"),
          *memory);
    } catch (const PreconditionFailure& e) {
      static auto* kept = new std::vector<Kel::Ptr<Kel::PtrInterface>>;
      kept->push_back(object);
      PySys_WriteStderr(
          "morvik: kept alive instead of torn down, which would end the process: %s\n", e.what());
      return;
    }
  }
}

}  // namespace

void LiveObjects::added(const Object* object) {
  objects().insert(object);
}

void LiveObjects::removed(const Object* object) {
  objects().erase(object);
  if (checksOn()) keepIfTeardownWouldFail(object->value);
}

std::vector<Kel::Ptr<MorvikMemorySm>> LiveObjects::memoryStateMachines() {
  return held<MorvikMemorySm>();
}

std::vector<Kel::Ptr<MorvikAuditSm>> LiveObjects::auditStateMachines() {
  std::vector<Kel::Ptr<MorvikAuditSm>> found = held<MorvikAuditSm>();
  for (const auto& sm : memoryStateMachines()) {
    if (sm->morvikAuditSm()) collect(sm->morvikAuditSm().ptr(), found);
  }
  return found;
}

std::vector<Kel::Ptr<MorvikMemorySm>> LiveObjects::drivers(const MorvikLib::MorvikMemory& memory) {
  std::vector<Kel::Ptr<MorvikMemorySm>> found = memoryStateMachines();
  std::erase_if(found, [&](const auto& sm) { return sm->morvikMemory().ptr() != &memory; });
  return found;
}

}  // namespace morvikpy
