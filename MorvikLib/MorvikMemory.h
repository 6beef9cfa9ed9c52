#ifndef MORVIKLIB_MORVIKMEMORY_H
#define MORVIKLIB_MORVIKMEMORY_H

#include <vector>

#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/HashMap2018.h"
#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "MorvikLib/MemoryMapping.h"
#include "MorvikLib/TypeNames.h"

namespace MorvikLib {

// One replicated memory region: a local mapping that features write, a mapping of the peer's copy
// to which every write is mirrored, a writable shadow of each, and the per-chunk replication status
// that drives the background copier.
class MorvikMemory final : public Kel::EntityOf<MorvikMemory> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<MorvikMemory> {
   public:
    virtual void onActiveSupe() {}
    virtual void onLocalMemory() {}
    virtual void onLocalMemoryWritableShadow() {}
    virtual void onRemoteMemory() {}
    virtual void onRemoteMemoryWritableShadow() {}
    virtual void onLocalMemorySimPaddr() {}
    virtual void onReplicationStatusBitmap(const U64&) {}
    virtual void onReplicationStatusBitmapkelImmediate() {}
    virtual void onReplicationStatusBitmap() {}
    virtual void onLocalMemoryReady() {}
    virtual void onRemoteMemoryReady() {}
    virtual void onRemoteMemoryVersion() {}
    virtual void onRemoteMemoryChangedGenId() {}
    virtual void onIgnoreChecksum() {}
    virtual void onRemoteCopyPending() {}
    virtual void onRemoteCopyChunkSize() {}
    virtual void onDeletion() {}
  };
  class Notifiee : public NotifieeConst {};

  using ReplicationStatusBitmap = Kel::HashMap2018<U64, U8>;

  explicit MorvikMemory(const Kel::Name& name);
  ~MorvikMemory() override;

  // Framework entity slots.
  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }
  const char* fwkType() const override { return kMorvikMemoryTypeName; }

  // Attributes.
  bool activeSupe() const { return activeSupe_; }
  const MemoryMapping& localMemory() const { return localMemory_; }
  const MemoryMapping& localMemoryWritableShadow() const { return localMemoryWritableShadow_; }
  const MemoryMapping& remoteMemory() const { return remoteMemory_; }
  const MemoryMapping& remoteMemoryWritableShadow() const { return remoteMemoryWritableShadow_; }
  U64 localMemorySimPaddr() const { return localMemorySimPaddr_; }
  bool localMemoryReady() const { return localMemoryReady_; }
  bool remoteMemoryReady() const { return remoteMemoryReady_; }
  U32 remoteMemoryVersion() const { return remoteMemoryVersion_; }
  U64 remoteMemoryChangedGenId() const { return remoteMemoryChangedGenId_; }
  bool ignoreChecksum() const { return ignoreChecksum_; }
  bool remoteCopyPending() const { return remoteCopyPending_; }
  U32 remoteCopyChunkSize() const { return remoteCopyChunkSize_; }
  bool deletion() const { return deletion_; }

  void activeSupeIs(bool value);
  void localMemoryIs(const MemoryMapping& value);
  void localMemoryWritableShadowIs(const MemoryMapping& value);
  void remoteMemoryIs(const MemoryMapping& value);
  void remoteMemoryWritableShadowIs(const MemoryMapping& value);
  void localMemorySimPaddrIs(const U64& value);
  void localMemoryReadyIs(bool value);
  void remoteMemoryReadyIs(bool value);
  void remoteMemoryVersionIs(U32 value);
  void remoteMemoryChangedGenIdIs(const U64& value);
  U64 remoteMemoryChangedGenIdInc(const U64& delta);
  void ignoreChecksumIs(bool value);
  void remoteCopyPendingIs(bool value);
  void remoteCopyChunkSizeIs(U32 value);
  void deletionIs(bool value);

  // The keyed attribute: 8 chunks per member, bit set = chunk waits to be copied.
  const ReplicationStatusBitmap& replicationStatusBitmap() const { return bitmap_; }
  // The member's value; 0 when there is no member.
  U8 replicationStatusBitmap(const U64& key) const;
  void replicationStatusBitmapIs(const U64& key, U8 value);
  void replicationStatusBitmapDel(const U64& key);
  void replicationStatusBitmapDelAll();
  bool replicationStatus(const U64& byteOffset) const;
  void replicationStatusIs(const U64& byteOffset, bool state);

  void setLocal(const MemoryMapping& memory, const MemoryMapping& writableShadow);
  void setRemote(const MemoryMapping& memory, const MemoryMapping& writableShadow);
  void unsetLocal();
  void unsetRemote();
  void handleDeletion();

  // Data operations.
  void doRead(U32 byteOffset, Kel::BytePtr data, U32 size) const;
  void doRead_py(U32 byteOffset, const U64& data, U32 size);
  void doWrite(U32 byteOffset, Kel::BytePtr data, U32 size);
  void doWrite_py(U32 byteOffset, const U64& data, U32 size);
  void doSet(U32 byteOffset, U32 value, U32 size);
  void doCopy(U32 dstOffset, U32 srcOffset, U32 size);
  void remoteSet(U32 byteOffset, U32 value, U32 size) const;

  // Mirroring and the background copier.
  void remoteCopy(U32 byteOffset, U32 size);
  bool scheduleRemoteCopy(U32 byteOffset, U32 size);
  void remoteCopyChunk();
  void doSync();
  void doFlushWithRead();

  // Shadow translation and protected stores.
  U64 getShadow(const U64& dest, U32 size) const;
  void protectedMemoryCopy(const U64& dest, const U64& src, U32 size) const;
  void protectedMemorySet(const U64& dest, U32 value, U32 size) const;

  // Test paths; simulation only.
  void doReadRemoteTest(U32 byteOffset, Kel::BytePtr data, U32 size) const;
  void doReadRemoteTest_py(U32 byteOffset, const U64& data, U32 size) const;
  void doWriteRemoteTest(U32 byteOffset, Kel::BytePtr data, U32 size);
  void doWriteRemoteTest_py(U32 byteOffset, const U64& data, U32 size);
  void doWriteLocalTest(U32 byteOffset, Kel::BytePtr data, U32 size);
  void doWriteLocalTest_py(U32 byteOffset, const U64& data, U32 size);

 private:
  void notifyBitmap(const U64& key);
  // After a member was stored: keeps the copier's lower bound, then notifies.
  void bitmapChanged(const U64& key, U8 value);
  // Each built with and without its trace lines (see MorvikMemoryCopier.cpp).
  template <bool kTraced>
  void writeMirrored(U32 byteOffset, Kel::BytePtr data, U32 size);
  template <bool kTraced>
  void mirror(U32 byteOffset, U32 size, bool fromShadow);
  template <bool kTraced>
  bool schedulePiece(U32 byteOffset, U32 size, bool& fromShadow);
  template <bool kTraced>
  void copyNextChunk();
  bool nextPendingChunk(U64& chunk);
  void prefetchChunkAfter(U64 offset) const;

  Kel::Name name_;
  bool activeSupe_ = false;
  MemoryMapping localMemory_;
  MemoryMapping localMemoryWritableShadow_;
  MemoryMapping remoteMemory_;
  MemoryMapping remoteMemoryWritableShadow_;
  U64 localMemorySimPaddr_ = 0;
  ReplicationStatusBitmap bitmap_;
  bool localMemoryReady_ = false;
  bool remoteMemoryReady_ = false;
  U32 remoteMemoryVersion_ = 0;
  U64 remoteMemoryChangedGenId_ = 0;
  // Starts true: a verdict about a new entity is void until the audit first clears it.
  bool ignoreChecksum_ = true;
  bool remoteCopyPending_ = false;
  U32 remoteCopyChunkSize_ = 4096;
  bool deletion_ = false;
  mutable Kel::NotifieeList notifiees_;
  // No chunk below this index is pending. Every change of the bitmap keeps it true, so the copier
  // resumes its search here instead of at chunk 0.
  U64 pendingLowerBound_ = ~U64{0};
  // The keys replicationStatusBitmapDelAll walks, kept from one resync to the next.
  std::vector<U64> keysToDelete_;
};

Kel::Ptr<MorvikMemory> morvikMemoryFactory(Kel::Name name);
Kel::Ptr<MorvikMemory> newEntityForDir(const Kel::Name& name, Kel::Dir* dir);

}  // namespace MorvikLib

#endif
