#include "Morvik/GenericRecordTypes.h"

#include <memory>

#include "Kel/Allocate.h"
#include "Kel/GenericTableType.h"
#include "Morvik/Audit.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"

namespace Morvik {

namespace {

using Kel::GenericTableType;
using Kel::GenericType;

std::unique_ptr<GenericType> regionType() {
  auto t = GenericTableType<Region>::made<Kel::Name, U64, U32, U32, Kel::String>(
      {"name", "addr", "size", "version", "mapFile"});
  t->settable(
      "addr", [](Region& r) { return r.addr().value(); }, [](Region& r, U64 v) { r.addrIs(v); });
  KEL_GENERIC_SETTABLE(*t, size);
  KEL_GENERIC_SETTABLE(*t, version);
  KEL_GENERIC_SETTABLE(*t, mapFile);
  return t;
}

std::unique_ptr<GenericType> featureManifestType() {
  auto t =
      GenericTableType<FeatureManifest>::made<Kel::Name, U64, U64>({"name", "size", "byteOffset"});
  KEL_GENERIC_SETTABLE(*t, size);
  KEL_GENERIC_SETTABLE(*t, byteOffset);
  return t;
}

std::unique_ptr<GenericType> statusType() {
  auto t = GenericTableType<Status>::made<Kel::Name>({"name"});
  KEL_GENERIC_KEYED(*t, pciAddress, Kel::String, Kel::String);
  KEL_GENERIC_SETTABLE(*t, remoteMemory);
  KEL_GENERIC_SETTABLE(*t, localMemoryVersion);
  KEL_GENERIC_SETTABLE(*t, morvikMemReqId);
  t->settable(
      "peerMemory", [](Status& s) { return s.peerMemory().value(); },
      [](Status& s, U64 v) { s.peerMemoryIs(v); });
  KEL_GENERIC_SETTABLE(*t, featureAuditTrigger);
  t->settable(
      "activeSupe", [](Status& s) { return static_cast<U32>(s.activeSupe()); },
      [](Status& s, U32 v) { s.activeSupeIs(static_cast<ActiveSupeType>(v)); });
  return t;
}

std::unique_ptr<GenericType> manifestType() {
  auto t = GenericTableType<Manifest>::made<Kel::Name>({"name"});
  KEL_GENERIC_KEYED(*t, manifest, Kel::Name, Kel::Ptr<FeatureManifest>);
  KEL_GENERIC_SETTABLE(*t, fixedSystem);
  KEL_GENERIC_SETTABLE(*t, localMemory);
  KEL_GENERIC_SETTABLE(*t, platform);
  return t;
}

std::unique_ptr<GenericType> auditType() {
  auto t = GenericTableType<Audit>::made<Kel::Name>({"name"});
  KEL_GENERIC_KEYED(*t, auditStatus, Kel::Name, Kel::Ptr<AuditStatus const>);
  return t;
}

std::unique_ptr<GenericType> auditRequestType() {
  auto t = GenericTableType<AuditRequest>::made<Kel::Name>({"name"});
  KEL_GENERIC_SETTABLE(*t, activeChecksum);
  KEL_GENERIC_SETTABLE(*t, activeChecksumTwosComp);
  KEL_GENERIC_SETTABLE(*t, remoteMemoryVersion);
  KEL_GENERIC_SETTABLE(*t, requestId);
  KEL_GENERIC_SETTABLE(*t, auditTrigger);
  KEL_GENERIC_SETTABLE(*t, auditErrorsFixed);
  KEL_GENERIC_SETTABLE(*t, auditMapEnabled);
  KEL_GENERIC_KEYED(*t, auditMap, U64, U64);
  return t;
}

std::unique_ptr<GenericType> auditStatusType() {
  auto t = GenericTableType<AuditStatus>::made<Kel::Name>({"name"});
  KEL_GENERIC_SETTABLE(*t, standbyChecksum);
  KEL_GENERIC_SETTABLE(*t, checksumResult);
  KEL_GENERIC_SETTABLE(*t, resultId);
  KEL_GENERIC_SETTABLE(*t, resyncTrigger);
  return t;
}

// Registers the shared records when the platform library is loaded, so that a script can publish
// a status, a manifest and the audit records as the other agents would.
__attribute__((constructor)) void recordTypesLoaded() {
  for (auto type : {regionType, featureManifestType, statusType, manifestType, auditType,
                    auditRequestType, auditStatusType}) {
    Kel::typeNodeIs(type());
  }
}

}  // namespace

}  // namespace Morvik
