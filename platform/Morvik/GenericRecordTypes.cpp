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

using Kel::GenericAttribute;
using Kel::GenericTableType;
using Kel::GenericType;
using Args = std::vector<Kel::GenericValue>;

// A record type constructed from its name alone, with its name readable.
template <class R>
std::unique_ptr<GenericTableType<R>> recordType(const char* name) {
  auto t = std::make_unique<GenericTableType<R>>(
      name, GenericType::Kind::entity, GenericAttribute::Args{{"Kel::Name", "name"}},
      [name](const Args& a) {
        return Kel::genericWrap(name, Kel::allocate<R>(a[0].as<Kel::Name>()));
      });
  t->readable("name", "Kel::Name", [](R& r) { return r.name(); });
  return t;
}

// A plain scalar attribute read by `get` and written by `set`.
#define MORVIK_SCALAR(t, R, attr, type, V) \
  (t)->template settable<V>(               \
      #attr, type, [](R& r) { return r.attr(); }, [](R& r, const V& v) { r.attr##Is(v); })

std::unique_ptr<GenericType> regionType() {
  auto t = std::make_unique<GenericTableType<Region>>(
      "Morvik::Region", GenericType::Kind::entity,
      GenericAttribute::Args{{"Kel::Name", "name"},
                             {"U64", "addr"},
                             {"U32", "size"},
                             {"U32", "version"},
                             {"Kel::String", "mapFile"}},
      [](const Args& a) {
        return Kel::genericWrap(
            "Morvik::Region",
            Kel::allocate<Region>(a[0].as<Kel::Name>(), a[1].as<U64>(), a[2].as<U32>(),
                                  a[3].as<U32>(), a[4].as<Kel::String>()));
      });
  t->readable("name", "Kel::Name", [](Region& r) { return r.name(); });
  t->settable<U64>(
      "addr", "U64", [](Region& r) { return r.addr().value(); },
      [](Region& r, U64 v) { r.addrIs(v); });
  MORVIK_SCALAR(t, Region, size, "U32", U32);
  MORVIK_SCALAR(t, Region, version, "U32", U32);
  MORVIK_SCALAR(t, Region, mapFile, "Kel::String", Kel::String);
  return t;
}

std::unique_ptr<GenericType> featureManifestType() {
  auto t = std::make_unique<GenericTableType<FeatureManifest>>(
      "Morvik::FeatureManifest", GenericType::Kind::entity,
      GenericAttribute::Args{{"Kel::Name", "name"}, {"U64", "size"}, {"U64", "byteOffset"}},
      [](const Args& a) {
        return Kel::genericWrap(
            "Morvik::FeatureManifest",
            Kel::allocate<FeatureManifest>(a[0].as<Kel::Name>(), a[1].as<U64>(), a[2].as<U64>()));
      });
  t->readable("name", "Kel::Name", [](FeatureManifest& r) { return r.name(); });
  MORVIK_SCALAR(t, FeatureManifest, size, "U64", U64);
  MORVIK_SCALAR(t, FeatureManifest, byteOffset, "U64", U64);
  return t;
}

std::unique_ptr<GenericType> statusType() {
  auto t = recordType<Status>("Morvik::Status");
  t->keyed<Kel::String, Kel::String>(
      "pciAddress", "Kel::String", "Kel::String",
      [](Status & s) -> const auto& { return s.pciAddress(); },
      [](Status& s, const Kel::String& k, const Kel::String& v) { s.pciAddressIs(k, v); },
      [](Status& s, const Kel::String& k) { s.pciAddressDel(k); });
  MORVIK_SCALAR(t, Status, remoteMemory, "Morvik::Region", Kel::Ptr<Region const>);
  MORVIK_SCALAR(t, Status, localMemoryVersion, "U32", U32);
  MORVIK_SCALAR(t, Status, morvikMemReqId, "U32", U32);
  t->settable<U64>(
      "peerMemory", "U64", [](Status& s) { return s.peerMemory().value(); },
      [](Status& s, U64 v) { s.peerMemoryIs(v); });
  MORVIK_SCALAR(t, Status, featureAuditTrigger, "U32", U32);
  t->settable<U32>(
      "activeSupe", "U32", [](Status& s) { return static_cast<U32>(s.activeSupe()); },
      [](Status& s, U32 v) { s.activeSupeIs(static_cast<ActiveSupeType>(v)); });
  return t;
}

std::unique_ptr<GenericType> manifestType() {
  auto t = recordType<Manifest>("Morvik::Manifest");
  t->keyed<Kel::Name, Kel::Ptr<FeatureManifest>>(
      "manifest", "Kel::Name", "Morvik::FeatureManifest",
      [](Manifest & m) -> const auto& { return m.manifest(); },
      [](Manifest& m, const Kel::Name& k, const Kel::Ptr<FeatureManifest>& v) {
        m.manifestIs(k, v);
      },
      [](Manifest& m, const Kel::Name& k) { m.manifestDel(k); });
  MORVIK_SCALAR(t, Manifest, fixedSystem, "U8", U8);
  MORVIK_SCALAR(t, Manifest, localMemory, "Morvik::Region", Kel::Ptr<Region const>);
  MORVIK_SCALAR(t, Manifest, platform, "U32", U32);
  return t;
}

std::unique_ptr<GenericType> auditType() {
  auto t = recordType<Audit>("Morvik::Audit");
  t->keyed<Kel::Name, Kel::Ptr<AuditStatus const>>(
      "auditStatus", "Kel::Name", "Morvik::AuditStatus",
      [](Audit & a) -> const auto& { return a.auditStatus(); },
      [](Audit& a, const Kel::Name& k, const Kel::Ptr<AuditStatus const>& v) {
        a.auditStatusIs(k, v);
      },
      [](Audit& a, const Kel::Name& k) { a.auditStatusDel(k); });
  return t;
}

std::unique_ptr<GenericType> auditRequestType() {
  auto t = recordType<AuditRequest>("Morvik::AuditRequest");
  MORVIK_SCALAR(t, AuditRequest, activeChecksum, "U64", U64);
  MORVIK_SCALAR(t, AuditRequest, activeChecksumTwosComp, "U64", U64);
  MORVIK_SCALAR(t, AuditRequest, remoteMemoryVersion, "U32", U32);
  MORVIK_SCALAR(t, AuditRequest, requestId, "U32", U32);
  MORVIK_SCALAR(t, AuditRequest, auditTrigger, "U32", U32);
  MORVIK_SCALAR(t, AuditRequest, auditErrorsFixed, "U32", U32);
  MORVIK_SCALAR(t, AuditRequest, auditMapEnabled, "bool", bool);
  t->keyed<U64, U64>(
      "auditMap", "U64", "U64", [](AuditRequest & r) -> const auto& { return r.auditMap(); },
      [](AuditRequest& r, const U64& k, const U64& v) { r.auditMapIs(k, v); },
      [](AuditRequest& r, const U64& k) { r.auditMapDel(k); });
  return t;
}

std::unique_ptr<GenericType> auditStatusType() {
  auto t = recordType<AuditStatus>("Morvik::AuditStatus");
  MORVIK_SCALAR(t, AuditStatus, standbyChecksum, "U64", U64);
  MORVIK_SCALAR(t, AuditStatus, checksumResult, "U32", U32);
  MORVIK_SCALAR(t, AuditStatus, resultId, "U32", U32);
  MORVIK_SCALAR(t, AuditStatus, resyncTrigger, "U32", U32);
  return t;
}

#undef MORVIK_SCALAR

// Registers the shared records when the platform library is loaded, so that a script can publish
// a status, a manifest and the audit records as the other agents would.
__attribute__((constructor)) void recordTypesLoaded() {
  Kel::typeNodeIs(regionType());
  Kel::typeNodeIs(featureManifestType());
  Kel::typeNodeIs(statusType());
  Kel::typeNodeIs(manifestType());
  Kel::typeNodeIs(auditType());
  Kel::typeNodeIs(auditRequestType());
  Kel::typeNodeIs(auditStatusType());
}

}  // namespace

}  // namespace Morvik
