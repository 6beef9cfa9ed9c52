#ifndef MORVIK_PYTHON_MAPPINGS_H
#define MORVIK_PYTHON_MAPPINGS_H

#include <string>

#include "Check.h"
#include "MemoryModel.h"
#include "MorvikLib/MemoryMapping.h"

namespace morvikpy {

// The four mapping slots of a memory entity.
enum class Slot { localPrimary, localShadow, remotePrimary, remoteShadow };

// Which mappings a script may hand to a memory entity. The entity unmaps what it holds when it
// lets go (unsetLocal, unsetRemote, deletion), so it may only take a mapping that the library
// made for that slot and that nothing else holds: the slot's own, or one a script set aside
// earlier by putting another mapping in its place. Anything else (a made-up address, a buffer,
// another entity's region) would fault on the first store or fail to unmap at teardown.
class Mappings {
 public:
  // `given` for `slot` of an entity holding `current` there; `what` names the argument.
  static void checkHandOver(const Check& check, const std::string& what, Slot slot,
                            const MorvikLib::MemoryMapping& current,
                            const MorvikLib::MemoryMapping& given);
  // After the entity took `given` in place of `released`: `given` is held now, `released` is set
  // aside if it is still mapped. `primaryWasMapped` tells whether the slot's side had a primary
  // (after unsetRemote the remote shadow still names the range that was just unmapped).
  static void handedOver(Slot slot, const MorvikLib::MemoryMapping& released,
                         const MorvikLib::MemoryMapping& given, bool primaryWasMapped);
};

// unsetLocal / unsetRemote of `side`: its mappings must still be there to be unmapped.
void checkUnset(const Check& check, const MemorySide& side, const char* shadowAssertion,
                const char* regionName);

}  // namespace morvikpy

#endif
