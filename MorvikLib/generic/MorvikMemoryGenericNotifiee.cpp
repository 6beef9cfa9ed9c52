#include "MorvikLib/generic/MorvikMemoryGenericNotifiee.h"

#include "Kel/Allocate.h"
#include "Kel/GenericTableType.h"

namespace MorvikLib {

void MorvikMemoryGenericNotifiee::forward(const char* attribute) {
  if (!watcher_) return;
  // The watcher may end the watch from its callback.
  Kel::Ptr<Kel::GenericIfNotifiee> watcher = watcher_;
  watcher->onRawAttribute(type_.attributeId(attribute));
}

void MorvikMemoryGenericNotifiee::onReplicationStatusBitmap(const U64& key) {
  if (!watcher_) return;
  Kel::Ptr<Kel::GenericIfNotifiee> watcher = watcher_;
  watcher->onRawAttribute(type_.attributeId("replicationStatusBitmap"),
                          Kel::genericWrap("U64", key));
}

Kel::Ptr<MorvikMemoryGenericNotifiee> genericIfNotifiee(
    const Kel::GenericType& type, const Kel::Ptr<MorvikMemory>& memory,
    const Kel::Ptr<Kel::GenericIfNotifiee>& watcher) {
  auto notifiee = Kel::allocate<MorvikMemoryGenericNotifiee>(type);
  notifiee->watcherIs(watcher);
  notifiee->notifierIs(memory);
  notifiee->isRegisteredNotifieeIs(true);
  return notifiee;
}

}  // namespace MorvikLib
