#include "LiveObjects.h"

#include <algorithm>
#include <unordered_set>

#include "Convert.h"
#include "Kel/Dir.h"

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

}  // namespace

void LiveObjects::added(const Object* object) {
  objects().insert(object);
}

void LiveObjects::removed(const Object* object) {
  objects().erase(object);
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
