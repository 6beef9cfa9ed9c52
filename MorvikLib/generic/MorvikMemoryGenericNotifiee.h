#ifndef MORVIKLIB_GENERIC_MORVIKMEMORYGENERICNOTIFIEE_H
#define MORVIKLIB_GENERIC_MORVIKMEMORYGENERICNOTIFIEE_H

#include "Kel/GenericIfNotifiee.h"
#include "Kel/GenericType.h"
#include "Kel/Ptr.h"
#include "MorvikLib/MorvikMemory.h"

namespace MorvikLib {

// Lets a script watch a MorvikMemory: every handler forwards the change to the generic watcher by
// the attribute's identifier in `type`, the keyed attribute with its key. Without a watcher the
// handlers forward nothing.
class MorvikMemoryGenericNotifiee : public MorvikMemory::NotifieeConst {
 public:
  explicit MorvikMemoryGenericNotifiee(const Kel::GenericType& type) : type_(type) {}

  const Kel::Ptr<Kel::GenericIfNotifiee>& watcher() const { return watcher_; }
  void watcherIs(const Kel::Ptr<Kel::GenericIfNotifiee>& watcher) { watcher_ = watcher; }

  void onActiveSupe() override { forward("activeSupe"); }
  void onLocalMemory() override { forward("localMemory"); }
  void onLocalMemoryWritableShadow() override { forward("localMemoryWritableShadow"); }
  void onRemoteMemory() override { forward("remoteMemory"); }
  void onRemoteMemoryWritableShadow() override { forward("remoteMemoryWritableShadow"); }
  void onLocalMemorySimPaddr() override { forward("localMemorySimPaddr"); }
  void onReplicationStatusBitmap(const U64& key) override;
  void onReplicationStatusBitmapkelImmediate() override { forward("replicationStatusBitmap"); }
  void onReplicationStatusBitmap() override { forward("replicationStatusBitmap"); }
  void onLocalMemoryReady() override { forward("localMemoryReady"); }
  void onRemoteMemoryReady() override { forward("remoteMemoryReady"); }
  void onRemoteMemoryVersion() override { forward("remoteMemoryVersion"); }
  void onRemoteMemoryChangedGenId() override { forward("remoteMemoryChangedGenId"); }
  void onIgnoreChecksum() override { forward("ignoreChecksum"); }
  void onRemoteCopyPending() override { forward("remoteCopyPending"); }
  void onRemoteCopyChunkSize() override { forward("remoteCopyChunkSize"); }
  void onDeletion() override { forward("deletion"); }

 private:
  void forward(const char* attribute);

  const Kel::GenericType& type_;
  Kel::Ptr<Kel::GenericIfNotifiee> watcher_;
};

// A registered generic notifiee on `memory` that forwards to `watcher`.
Kel::Ptr<MorvikMemoryGenericNotifiee> genericIfNotifiee(
    const Kel::GenericType& type, const Kel::Ptr<MorvikMemory>& memory,
    const Kel::Ptr<Kel::GenericIfNotifiee>& watcher);

}  // namespace MorvikLib

#endif
