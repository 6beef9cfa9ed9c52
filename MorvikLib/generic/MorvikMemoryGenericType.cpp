#include "MorvikLib/generic/MorvikMemoryGenericType.h"

#include "MorvikLib/generic/MorvikMemoryGenericNotifiee.h"

namespace MorvikLib {

namespace {

using M = MorvikMemory;

// The data operations' arguments: the plain forms take a byte pointer, the scripting (_py) forms
// the buffer's address as a number.
constexpr const char* kBuffer[] = {"addr", "data", "size"};

}  // namespace

MorvikMemoryGenericType::MorvikMemoryGenericType()
    : GenericTableType(&morvikMemoryFactory, {"name"}) {
  standardAttributes();
  mappingAttributes();
  dataFunctions();
  KEL_GENERIC_SETTABLE(*this, ignoreChecksum);
  testFunctions();
  copierAttributes();
  shadowFunctions();
  KEL_GENERIC_SETTABLE(*this, deletion);
  function("handleDeletion", &M::handleDeletion);
}

// This stand-in keeps no entity tree: a memory entity has no parent and its full name is its name.
void MorvikMemoryGenericType::standardAttributes() {
  readable("fullName", [](M& m) { return m.name().string(); });
  readable("parent", [](M&) { return Kel::Ptr<Kel::Entity>(); });
  readable("parentAttrName", [](M&) { return Kel::Name(); });
  readable("entity", [](M& m) { return Kel::Ptr<M>(&m); });
}

void MorvikMemoryGenericType::mappingAttributes() {
  KEL_GENERIC_SETTABLE(*this, activeSupe);
  KEL_GENERIC_SETTABLE(*this, localMemory);
  KEL_GENERIC_SETTABLE(*this, localMemoryWritableShadow);
  function("setLocal", &M::setLocal, {"map", "shadow"});
  function("unsetLocal", &M::unsetLocal);
  KEL_GENERIC_SETTABLE(*this, remoteMemory);
  KEL_GENERIC_SETTABLE(*this, remoteMemoryWritableShadow);
  function("setRemote", &M::setRemote, {"map", "shadow"});
  function("unsetRemote", &M::unsetRemote);
  KEL_GENERIC_SETTABLE(*this, localMemorySimPaddr);
  KEL_GENERIC_KEYED(*this, replicationStatusBitmap, U64, U8);
  function("replicationStatusIs", &M::replicationStatusIs, {"offset", "state"});
  function("replicationStatus", &M::replicationStatus, {"offset"});
  KEL_GENERIC_SETTABLE(*this, localMemoryReady);
  KEL_GENERIC_SETTABLE(*this, remoteMemoryReady);
  KEL_GENERIC_SETTABLE(*this, remoteMemoryVersion);
  KEL_GENERIC_SETTABLE(*this, remoteMemoryChangedGenId);
}

void MorvikMemoryGenericType::dataFunctions() {
  function("doRead", &M::doRead, kBuffer);
  function("doRead_py", &M::doRead_py, kBuffer);
  function("doWrite", &M::doWrite, kBuffer);
  function("doWrite_py", &M::doWrite_py, kBuffer);
  function("doSet", &M::doSet, {"offset", "value", "size"});
  function("doCopy", &M::doCopy, {"dstOffset", "srcOffset", "size"});
  function("doSync", &M::doSync);
}

void MorvikMemoryGenericType::testFunctions() {
  function("doReadRemoteTest", &M::doReadRemoteTest, kBuffer);
  function("doReadRemoteTest_py", &M::doReadRemoteTest_py, kBuffer);
  function("doWriteRemoteTest", &M::doWriteRemoteTest, kBuffer);
  function("doWriteRemoteTest_py", &M::doWriteRemoteTest_py, kBuffer);
  function("doWriteLocalTest", &M::doWriteLocalTest, kBuffer);
  function("doWriteLocalTest_py", &M::doWriteLocalTest_py, kBuffer);
}

void MorvikMemoryGenericType::copierAttributes() {
  function("doFlushWithRead", &M::doFlushWithRead);
  function("remoteSet", &M::remoteSet, {"byteOffset", "value", "size"});
  function("remoteCopyChunk", &M::remoteCopyChunk);
  function("scheduleRemoteCopy", &M::scheduleRemoteCopy, {"byteOffset", "size"});
  function("remoteCopy", &M::remoteCopy, {"byteOffset", "size"});
  KEL_GENERIC_SETTABLE(*this, remoteCopyPending);
  KEL_GENERIC_SETTABLE(*this, remoteCopyChunkSize);
}

void MorvikMemoryGenericType::shadowFunctions() {
  function("getShadow", &M::getShadow, {"dest", "size"});
  function("protectedMemoryCopy", &M::protectedMemoryCopy, {"dest", "src", "size"});
  function("protectedMemorySet", &M::protectedMemorySet, {"dest", "c", "size"});
}

Kel::Ptr<Kel::EntityNotifiee> MorvikMemoryGenericType::genericIfNotifiee(
    const Kel::GenericValue& self, const Kel::Ptr<Kel::GenericIfNotifiee>& watcher) const {
  return MorvikLib::genericIfNotifiee(*this, self.as<Kel::Ptr<M>>(), watcher);
}

}  // namespace MorvikLib
