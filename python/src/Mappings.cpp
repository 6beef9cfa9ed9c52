#include "Mappings.h"

#include <algorithm>
#include <vector>

#include "Assertions.h"
#include "SimRegions.h"

namespace morvikpy {

namespace {

using Access = ProcessMaps::Access;

struct SetAside {
  Slot slot;
  U64 vaddr;
  U32 size;
};

std::vector<SetAside>& setAside() {
  static std::vector<SetAside> mappings;
  return mappings;
}

bool isShadow(Slot slot) {
  return slot == Slot::localShadow || slot == Slot::remoteShadow;
}

const char* slotName(Slot slot) {
  static const char* const kNames[] = {"localMemory", "localMemoryWritableShadow", "remoteMemory",
                                       "remoteMemoryWritableShadow"};
  return kNames[static_cast<int>(slot)];
}

auto findSetAside(Slot slot, const MorvikLib::MemoryMapping& mapping) {
  return std::find_if(setAside().begin(), setAside().end(), [&](const SetAside& m) {
    return m.slot == slot && m.vaddr == mapping.vaddr() && m.size == mapping.size();
  });
}

}  // namespace

void Mappings::checkHandOver(const Check& check, const std::string& what, Slot slot,
                             const MorvikLib::MemoryMapping& current,
                             const MorvikLib::MemoryMapping& given) {
  if (given.vaddr() == 0) return;
  if (given.vaddr() == current.vaddr() && given.size() == current.size()) return;
  const std::string mapping =
      what + " at " + hex(given.vaddr()) + " (" + std::to_string(given.size()) + " bytes)";
  const Access access = isShadow(slot) ? Access::write : Access::read;
  check.require(check.maps().covers(given.vaddr(), given.size(), access),
                mapping + " is backed by no live " + (isShadow(slot) ? "writable " : "") +
                    "mapping of this process");
  check.require(findSetAside(slot, given) != setAside().end(),
                mapping + " is not a mapping the library made for " + slotName(slot) +
                    " that no entity holds; the entity would store through it and unmap it");
}

void Mappings::handedOver(Slot slot, const MorvikLib::MemoryMapping& released,
                          const MorvikLib::MemoryMapping& given, bool primaryWasMapped) {
  if (given.vaddr() == released.vaddr() && given.size() == released.size()) return;
  if (auto taken = findSetAside(slot, given); given.vaddr() && taken != setAside().end()) {
    setAside().erase(taken);
  }
  if (released.vaddr() == 0 || (isShadow(slot) && !primaryWasMapped)) return;
  if (findSetAside(slot, released) == setAside().end()) {
    setAside().push_back({slot, released.vaddr(), released.size()});
  }
}

void checkUnset(const Check& check, const MemorySide& side, const char* shadowAssertion,
                const char* regionName) {
  if (!side.mapped()) return;
  check.require(side.shadow.vaddr() != 0,
                std::string(side.what) + " is mapped without its writable shadow", shadowAssertion);
  for (const MorvikLib::MemoryMapping* m : {&side.primary, &side.shadow}) {
    check.require(check.maps().covers(m->vaddr(), m->size(), Access::read),
                  std::string(side.what) + " at " + hex(m->vaddr()) +
                      " is no longer mapped; unmapping it would fail");
    if (!inSimulation()) continue;
    check.require(check.maps().pathAt(m->vaddr()) == dmaRegionPath(regionName),
                  std::string(side.what) + " at " + hex(m->vaddr()) + " is not a mapping of " +
                      regionName + " on the simulated machine SIMULATION_VMID names now",
                  assertion::kUnmapped);
  }
}

}  // namespace morvikpy
