#include "MorvikLib/MorvikMemory.h"

#include "Kel/Allocate.h"
#include "Kel/Assert.h"
#include "Kel/Exception.h"
#include "MorvikLib/MemMap.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

MorvikMemory::MorvikMemory(const Kel::Name& name) : name_(name) {}

MorvikMemory::~MorvikMemory() {
  handleDeletion();
  notifiees_.removeAll();
  bitmap_.clear();
}

void MorvikMemory::activeSupeIs(bool value) {
  attributeIs(activeSupe_, value, &NotifieeConst::onActiveSupe);
}
void MorvikMemory::localMemoryIs(const MemoryMapping& value) {
  attributeIs(localMemory_, value, &NotifieeConst::onLocalMemory);
}
void MorvikMemory::localMemoryWritableShadowIs(const MemoryMapping& value) {
  attributeIs(localMemoryWritableShadow_, value, &NotifieeConst::onLocalMemoryWritableShadow);
}
void MorvikMemory::remoteMemoryIs(const MemoryMapping& value) {
  attributeIs(remoteMemory_, value, &NotifieeConst::onRemoteMemory);
}
void MorvikMemory::remoteMemoryWritableShadowIs(const MemoryMapping& value) {
  attributeIs(remoteMemoryWritableShadow_, value, &NotifieeConst::onRemoteMemoryWritableShadow);
}
void MorvikMemory::localMemorySimPaddrIs(const U64& value) {
  attributeIs(localMemorySimPaddr_, value, &NotifieeConst::onLocalMemorySimPaddr);
}
void MorvikMemory::localMemoryReadyIs(bool value) {
  attributeIs(localMemoryReady_, value, &NotifieeConst::onLocalMemoryReady);
}
void MorvikMemory::remoteMemoryReadyIs(bool value) {
  attributeIs(remoteMemoryReady_, value, &NotifieeConst::onRemoteMemoryReady);
}
void MorvikMemory::remoteMemoryVersionIs(U32 value) {
  attributeIs(remoteMemoryVersion_, value, &NotifieeConst::onRemoteMemoryVersion);
}
void MorvikMemory::remoteMemoryChangedGenIdIs(const U64& value) {
  attributeIs(remoteMemoryChangedGenId_, value, &NotifieeConst::onRemoteMemoryChangedGenId);
}
U64 MorvikMemory::remoteMemoryChangedGenIdInc(const U64& delta) {
  remoteMemoryChangedGenIdIs(remoteMemoryChangedGenId_ + delta);
  return remoteMemoryChangedGenId_;
}
void MorvikMemory::ignoreChecksumIs(bool value) {
  attributeIs(ignoreChecksum_, value, &NotifieeConst::onIgnoreChecksum);
}
void MorvikMemory::remoteCopyPendingIs(bool value) {
  attributeIs(remoteCopyPending_, value, &NotifieeConst::onRemoteCopyPending);
}
void MorvikMemory::remoteCopyChunkSizeIs(U32 value) {
  attributeIs(remoteCopyChunkSize_, value, &NotifieeConst::onRemoteCopyChunkSize);
}
void MorvikMemory::deletionIs(bool value) {
  attributeIs(deletion_, value, &NotifieeConst::onDeletion);
}

void MorvikMemory::notifyBitmap(const U64& key) {
  notify<NotifieeConst>([&key](NotifieeConst* n) { n->onReplicationStatusBitmap(key); });
}

U8 MorvikMemory::replicationStatusBitmap(const U64& key) const {
  const U8* value = bitmap_.find(key);
  return value ? *value : 0;
}

void MorvikMemory::replicationStatusBitmapIs(const U64& key, U8 value) {
  if (bitmap_.insert(key, value)) bitmapChanged(key, value);
}

void MorvikMemory::bitmapChanged(const U64& key, U8 value) {
  if (value) {
    U64 lowest = (key << 3) + static_cast<U64>(__builtin_ctz(value));
    if (lowest < pendingLowerBound_) pendingLowerBound_ = lowest;
  }
  notifyBitmap(key);
}

void MorvikMemory::replicationStatusBitmapDel(const U64& key) {
  // Removing bits never puts a pending chunk below the bound.
  if (bitmap_.erase(key)) notifyBitmap(key);
}

void MorvikMemory::replicationStatusBitmapDelAll() {
  // Keys are taken first: a notifiee may touch the map while it hears of one deletion. The list is
  // borrowed and handed back, so resync after resync allocates nothing; a DelAll nested in one of
  // the notifications makes a list of its own.
  std::vector<U64> keys = std::move(keysToDelete_);
  keys.clear();
  for (const auto& member : bitmap_) keys.push_back(member.first);
  for (const U64& key : keys) replicationStatusBitmapDel(key);
  if (keys.capacity() > keysToDelete_.capacity()) keysToDelete_ = std::move(keys);
}

bool MorvikMemory::replicationStatus(const U64& byteOffset) const {
  U64 chunk = byteOffset / remoteCopyChunkSize_;
  return (replicationStatusBitmap(chunk >> 3) >> (chunk & 7)) & 1u;
}

void MorvikMemory::replicationStatusIs(const U64& byteOffset, bool state) {
  U64 chunk = byteOffset / remoteCopyChunkSize_;
  U64 key = chunk >> 3;
  U8 bit = static_cast<U8>(1u << (chunk & 7));
  // As replicationStatusBitmapIs with the changed byte, in one lookup. A member whose bits all
  // clear stays in the map with value 0.
  U8 value = 0;
  if (bitmap_.update(key, [&](U8 stored) {
        return value = state ? static_cast<U8>(stored | bit) : static_cast<U8>(stored & ~bit);
      })) {
    bitmapChanged(key, value);
  }
}

void MorvikMemory::setLocal(const MemoryMapping& memory, const MemoryMapping& writableShadow) {
  localMemoryIs(memory);
  localMemoryWritableShadowIs(writableShadow);
  localMemoryReadyIs(true);
}

void MorvikMemory::setRemote(const MemoryMapping& memory, const MemoryMapping& writableShadow) {
  remoteMemoryIs(memory);
  remoteMemoryWritableShadowIs(writableShadow);
  remoteMemoryReadyIs(true);
}

void MorvikMemory::unsetLocal() {
  MORVIK_TRACE(0, "unsetLocal") << "void MorvikLib::MorvikMemory::unsetLocal()";
  if (localMemory_.vaddr()) {
    doMunmap(localMemory_.vaddr(), localMemory_.size(), memMapTypeLocal);
    localMemoryIs(MemoryMapping());
    KEL_ASSERT_IN(localMemoryWritableShadow().vaddr(),
                  "void MorvikLib::MorvikMemory::unsetLocal()");
    doMunmap(localMemoryWritableShadow_.vaddr(), localMemoryWritableShadow_.size(),
             memMapTypeLocal);
    localMemoryWritableShadowIs(MemoryMapping());
  }
  if (localMemorySimPaddr_) localMemorySimPaddrIs(0);
  localMemoryReadyIs(false);
}

void MorvikMemory::unsetRemote() {
  if (remoteMemory_.vaddr()) {
    doMunmap(remoteMemory_.vaddr(), remoteMemory_.size(), memMapTypeRemote);
    remoteMemoryIs(MemoryMapping());
    KEL_ASSERT_IN(remoteMemoryWritableShadow().vaddr(),
                  "void MorvikLib::MorvikMemory::unsetRemote()");
    doMunmap(remoteMemoryWritableShadow_.vaddr(), remoteMemoryWritableShadow_.size(),
             memMapTypeRemote);
    // Deliberately the primary again: the shadow attribute keeps describing the old range.
    remoteMemoryIs(MemoryMapping());
  }
  remoteMemoryReadyIs(false);
}

void MorvikMemory::handleDeletion() {
  MORVIK_TRACE(5, "handleDeletion") << "void MorvikLib::MorvikMemory::handleDeletion()";
  unsetRemote();
  unsetLocal();
}

Kel::Ptr<MorvikMemory> morvikMemoryFactory(Kel::Name name) {
  Kel::Ptr<MorvikMemory> memory = Kel::allocate<MorvikMemory>(name);
  if (!memory) Kel::throwRangeException("null ValidPtr");
  return memory;
}

Kel::Ptr<MorvikMemory> newEntityForDir(const Kel::Name& name, Kel::Dir*) {
  return morvikMemoryFactory(name);
}

}  // namespace MorvikLib
