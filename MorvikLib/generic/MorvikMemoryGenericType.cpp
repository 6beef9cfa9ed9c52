#include "MorvikLib/generic/MorvikMemoryGenericType.h"

#include "Kel/Dir.h"
#include "MorvikLib/generic/MorvikMemoryGenericNotifiee.h"

namespace MorvikLib {

namespace {

constexpr const char* kType = "MorvikLib::MorvikMemory";
constexpr const char* kMapping = "MorvikLib::MemoryMapping";
using M = MorvikMemory;
using Args = std::vector<Kel::GenericValue>;
using Kel::GenericValue;

// Functions, not globals: registration runs from the library's load-time initialiser, which may
// come before this file's static initialisation.
Kel::GenericAttribute::Args bufferArgs() {
  return {{"U32", "addr"}, {"Kel::BytePtr", "data"}, {"U32", "size"}};
}

Kel::GenericAttribute::Args scriptBufferArgs() {
  return {{"U32", "addr"}, {"U64", "data"}, {"U32", "size"}};
}

// A data operation on (offset, buffer, size): the plain form takes a byte pointer, the scripting
// form the buffer's address as a number.
template <class Buffer, class F>
auto bufferCall(F f) {
  return [f](M& m, const Args& a) {
    (m.*f)(a[0].as<U32>(), a[1].as<Buffer>(), a[2].as<U32>());
    return GenericValue();
  };
}

}  // namespace

#define MORVIK_SCALAR(attr, type, V) \
  settable<V>(                       \
      #attr, type, [](M& m) { return m.attr(); }, [](M& m, const V& v) { m.attr##Is(v); })

MorvikMemoryGenericType::MorvikMemoryGenericType()
    : GenericTableType(kType, Kind::entity, {{"Kel::Name", "name"}}, [](const Args& a) {
        return Kel::genericWrap(kType, morvikMemoryFactory(a[0].as<Kel::Name>()));
      }) {
  standardAttributes();
  mappingAttributes();
  dataFunctions();
  MORVIK_SCALAR(ignoreChecksum, "bool", bool);
  testFunctions();
  copierAttributes();
  shadowFunctions();
  MORVIK_SCALAR(deletion, "bool", bool);
  action("handleDeletion", &M::handleDeletion);
}

// This stand-in keeps no entity tree: a memory entity has no parent and its full name is its name.
void MorvikMemoryGenericType::standardAttributes() {
  readable("name", "Kel::Name", [](M& m) { return m.name(); });
  readable("fullName", "Kel::String", [](M& m) { return m.name().string(); });
  readable("parent", "Kel::Entity", [](M&) { return Kel::Ptr<Kel::Entity>(); });
  readable("parentAttrName", "Kel::Name", [](M&) { return Kel::Name(); });
  readable("entity", kType, [](M& m) { return Kel::Ptr<M>(&m); });
}

void MorvikMemoryGenericType::mappingAttributes() {
  using MM = MemoryMapping;
  auto pairCall = [](void (M::*f)(const MM&, const MM&)) {
    return [f](M& m, const Args& a) {
      (m.*f)(a[0].as<MM>(), a[1].as<MM>());
      return GenericValue();
    };
  };
  const Kel::GenericAttribute::Args pair{{kMapping, "map"}, {kMapping, "shadow"}};
  MORVIK_SCALAR(activeSupe, "bool", bool);
  MORVIK_SCALAR(localMemory, kMapping, MM);
  MORVIK_SCALAR(localMemoryWritableShadow, kMapping, MM);
  function("setLocal", "void", pair, pairCall(&M::setLocal));
  action("unsetLocal", &M::unsetLocal);
  MORVIK_SCALAR(remoteMemory, kMapping, MM);
  MORVIK_SCALAR(remoteMemoryWritableShadow, kMapping, MM);
  function("setRemote", "void", pair, pairCall(&M::setRemote));
  action("unsetRemote", &M::unsetRemote);
  MORVIK_SCALAR(localMemorySimPaddr, "U64", U64);
  keyed<U64, U8>(
      "replicationStatusBitmap", "U64", "U8",
      [](M & m) -> const auto& { return m.replicationStatusBitmap(); },
      [](M& m, const U64& key, U8 value) { m.replicationStatusBitmapIs(key, value); },
      [](M& m, const U64& key) { m.replicationStatusBitmapDel(key); });
  function("replicationStatusIs", "void", {{"U64", "offset"}, {"bool", "state"}},
           [](M& m, const Args& a) {
             m.replicationStatusIs(a[0].as<U64>(), a[1].as<bool>());
             return GenericValue();
           });
  function("replicationStatus", "bool", {{"U64", "offset"}}, [](M& m, const Args& a) {
    return GenericValue::ofBool(m.replicationStatus(a[0].as<U64>()));
  });
  MORVIK_SCALAR(localMemoryReady, "bool", bool);
  MORVIK_SCALAR(remoteMemoryReady, "bool", bool);
  MORVIK_SCALAR(remoteMemoryVersion, "U32", U32);
  MORVIK_SCALAR(remoteMemoryChangedGenId, "U64", U64);
}

void MorvikMemoryGenericType::dataFunctions() {
  function("doRead", "void", bufferArgs(), bufferCall<Kel::BytePtr>(&M::doRead));
  function("doRead_py", "void", scriptBufferArgs(), bufferCall<U64>(&M::doRead_py));
  function("doWrite", "void", bufferArgs(), bufferCall<Kel::BytePtr>(&M::doWrite));
  function("doWrite_py", "void", scriptBufferArgs(), bufferCall<U64>(&M::doWrite_py));
  function("doSet", "void", {{"U32", "offset"}, {"U32", "value"}, {"U32", "size"}},
           bufferCall<U32>(&M::doSet));
  function("doCopy", "void", {{"U32", "dstOffset"}, {"U32", "srcOffset"}, {"U32", "size"}},
           bufferCall<U32>(&M::doCopy));
  action("doSync", &M::doSync);
}

void MorvikMemoryGenericType::testFunctions() {
  function("doReadRemoteTest", "void", bufferArgs(),
           bufferCall<Kel::BytePtr>(&M::doReadRemoteTest));
  function("doReadRemoteTest_py", "void", scriptBufferArgs(),
           bufferCall<U64>(&M::doReadRemoteTest_py));
  function("doWriteRemoteTest", "void", bufferArgs(),
           bufferCall<Kel::BytePtr>(&M::doWriteRemoteTest));
  function("doWriteRemoteTest_py", "void", scriptBufferArgs(),
           bufferCall<U64>(&M::doWriteRemoteTest_py));
  function("doWriteLocalTest", "void", bufferArgs(),
           bufferCall<Kel::BytePtr>(&M::doWriteLocalTest));
  function("doWriteLocalTest_py", "void", scriptBufferArgs(),
           bufferCall<U64>(&M::doWriteLocalTest_py));
}

void MorvikMemoryGenericType::copierAttributes() {
  action("doFlushWithRead", &M::doFlushWithRead);
  function("remoteSet", "void", {{"U32", "byteOffset"}, {"U32", "value"}, {"U32", "size"}},
           bufferCall<U32>(&M::remoteSet));
  action("remoteCopyChunk", &M::remoteCopyChunk);
  function("scheduleRemoteCopy", "bool", {{"U32", "byteOffset"}, {"U32", "size"}},
           [](M& m, const Args& a) {
             return GenericValue::ofBool(m.scheduleRemoteCopy(a[0].as<U32>(), a[1].as<U32>()));
           });
  function("remoteCopy", "void", {{"U32", "byteOffset"}, {"U32", "size"}}, [](M& m, const Args& a) {
    m.remoteCopy(a[0].as<U32>(), a[1].as<U32>());
    return GenericValue();
  });
  MORVIK_SCALAR(remoteCopyPending, "bool", bool);
  MORVIK_SCALAR(remoteCopyChunkSize, "U32", U32);
}

void MorvikMemoryGenericType::shadowFunctions() {
  function("getShadow", "U64", {{"U64", "dest"}, {"U32", "size"}}, [](M& m, const Args& a) {
    return GenericValue::ofUnsigned("U64", m.getShadow(a[0].as<U64>(), a[1].as<U32>()));
  });
  function("protectedMemoryCopy", "void", {{"U64", "dest"}, {"U64", "src"}, {"U32", "size"}},
           [](M& m, const Args& a) {
             m.protectedMemoryCopy(a[0].as<U64>(), a[1].as<U64>(), a[2].as<U32>());
             return GenericValue();
           });
  function("protectedMemorySet", "void", {{"U64", "dest"}, {"U32", "c"}, {"U32", "size"}},
           [](M& m, const Args& a) {
             m.protectedMemorySet(a[0].as<U64>(), a[1].as<U32>(), a[2].as<U32>());
             return GenericValue();
           });
}

#undef MORVIK_SCALAR

Kel::Ptr<Kel::EntityNotifiee> MorvikMemoryGenericType::genericIfNotifiee(
    const GenericValue& self, const Kel::Ptr<Kel::GenericIfNotifiee>& watcher) const {
  return MorvikLib::genericIfNotifiee(*this, self.as<Kel::Ptr<M>>(), watcher);
}

}  // namespace MorvikLib
