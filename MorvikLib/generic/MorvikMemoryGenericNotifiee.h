#ifndef MORVIKLIB_GENERIC_MORVIKMEMORYGENERICNOTIFIEE_H
#define MORVIKLIB_GENERIC_MORVIKMEMORYGENERICNOTIFIEE_H

#include <array>
#include <cstddef>
#include <string_view>

#include "Kel/GenericType.h"
#include "Kel/Ptr.h"
#include "MorvikLib/MorvikMemory.h"

namespace MorvikLib {

// Lets a script watch a MorvikMemory: every handler forwards the change to the generic watcher by
// the attribute's identifier, the keyed attribute with its key.
class MorvikMemoryGenericNotifiee : public MorvikMemory::NotifieeConst {
  // Before the handlers, so that their calls of slot() see it defined.
  static constexpr std::array<std::string_view, 15> kForwarded = {"activeSupe",
                                                                  "localMemory",
                                                                  "localMemoryWritableShadow",
                                                                  "remoteMemory",
                                                                  "remoteMemoryWritableShadow",
                                                                  "localMemorySimPaddr",
                                                                  "replicationStatusBitmap",
                                                                  "localMemoryReady",
                                                                  "remoteMemoryReady",
                                                                  "remoteMemoryVersion",
                                                                  "remoteMemoryChangedGenId",
                                                                  "ignoreChecksum",
                                                                  "remoteCopyPending",
                                                                  "remoteCopyChunkSize",
                                                                  "deletion"};

  // A handler's attribute by its place in kForwarded; a name not listed there does not build.
  static consteval std::size_t slot(std::string_view attribute) {
    std::size_t i = 0;
    while (kForwarded.at(i) != attribute) ++i;
    return i;
  }

 public:
  // Resolves the identifiers in `type` here, once, and keeps nothing of it: a notification costs
  // an index, and registering the type again (which destroys its old node) cannot reach a watch.
  MorvikMemoryGenericNotifiee(const Kel::GenericType& type,
                              const Kel::Ptr<Kel::GenericIfNotifiee>& watcher);

  void onActiveSupe() override { forward(slot("activeSupe")); }
  void onLocalMemory() override { forward(slot("localMemory")); }
  void onLocalMemoryWritableShadow() override { forward(slot("localMemoryWritableShadow")); }
  void onRemoteMemory() override { forward(slot("remoteMemory")); }
  void onRemoteMemoryWritableShadow() override { forward(slot("remoteMemoryWritableShadow")); }
  void onLocalMemorySimPaddr() override { forward(slot("localMemorySimPaddr")); }
  void onReplicationStatusBitmap(const U64& key) override;
  void onReplicationStatusBitmapkelImmediate() override {
    forward(slot("replicationStatusBitmap"));
  }
  void onReplicationStatusBitmap() override { forward(slot("replicationStatusBitmap")); }
  void onLocalMemoryReady() override { forward(slot("localMemoryReady")); }
  void onRemoteMemoryReady() override { forward(slot("remoteMemoryReady")); }
  void onRemoteMemoryVersion() override { forward(slot("remoteMemoryVersion")); }
  void onRemoteMemoryChangedGenId() override { forward(slot("remoteMemoryChangedGenId")); }
  void onIgnoreChecksum() override { forward(slot("ignoreChecksum")); }
  void onRemoteCopyPending() override { forward(slot("remoteCopyPending")); }
  void onRemoteCopyChunkSize() override { forward(slot("remoteCopyChunkSize")); }
  void onDeletion() override { forward(slot("deletion")); }

 private:
  void forward(std::size_t slot, const U64* key = nullptr);

  std::array<U32, kForwarded.size()> ids_{};
  Kel::Ptr<Kel::GenericIfNotifiee> watcher_;
};

// A registered generic notifiee on `memory` that forwards to `watcher`.
Kel::Ptr<MorvikMemoryGenericNotifiee> genericIfNotifiee(
    const Kel::GenericType& type, const Kel::Ptr<MorvikMemory>& memory,
    const Kel::Ptr<Kel::GenericIfNotifiee>& watcher);

}  // namespace MorvikLib

#endif
