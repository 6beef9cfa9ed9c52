#include "MorvikLib/generic/MorvikMemoryGenericNotifiee.h"

#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/GenericType.h"

namespace MorvikLib {

MorvikMemoryGenericNotifiee::MorvikMemoryGenericNotifiee(
    const Kel::GenericType& type, const Kel::Ptr<Kel::GenericIfNotifiee>& watcher)
    : watcher_(watcher) {
  for (std::size_t i = 0; i < kForwarded.size(); ++i) {
    ids_[i] = type.attributeId(kForwarded[i]);
    KEL_ASSERT(ids_[i] < type.attributes().size());
  }
}

void MorvikMemoryGenericNotifiee::forward(std::size_t slot, const U64* key) {
  if (!watcher_) return;
  // The watcher may end the watch from its callback.
  Kel::Ptr<Kel::GenericIfNotifiee> watcher = watcher_;
  if (key) {
    watcher->onRawAttribute(ids_[slot], Kel::GenericValue::of(*key));
  } else {
    watcher->onRawAttribute(ids_[slot]);
  }
}

void MorvikMemoryGenericNotifiee::onReplicationStatusBitmap(const U64& key) {
  forward(slot("replicationStatusBitmap"), &key);
}

Kel::Ptr<MorvikMemoryGenericNotifiee> genericIfNotifiee(
    const Kel::GenericType& type, const Kel::Ptr<MorvikMemory>& memory,
    const Kel::Ptr<Kel::GenericIfNotifiee>& watcher) {
  auto notifiee = Kel::allocate<MorvikMemoryGenericNotifiee>(type, watcher);
  notifiee->notifierIs(memory);
  notifiee->isRegisteredNotifieeIs(true);
  return notifiee;
}

}  // namespace MorvikLib
