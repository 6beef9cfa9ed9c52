#include "MorvikLib/generic/MorvikAuditSmGenericType.h"

#include "Kel/GenericTableType.h"
#include "MorvikLib/MorvikAuditSm.h"

namespace MorvikLib {

namespace {

constexpr const char* kType = "MorvikLib::MorvikAuditSm";
using A = MorvikAuditSm;
using Args = std::vector<Kel::GenericValue>;
using Kel::GenericValue;

GenericValue construct(const Args& a) {
  return Kel::genericWrap(
      kType, morvikAuditSmFactory(a[0].as<Kel::Name>(), a[1].as<Kel::Ptr<MorvikMemory>>(),
                                  a[2].as<Kel::Ptr<Morvik::Status const>>(),
                                  a[3].as<Kel::Ptr<Morvik::Manifest const>>(),
                                  a[4].as<Kel::Ptr<Morvik::AuditRequest>>(),
                                  a[5].as<Kel::Ptr<Morvik::AuditStatus const>>(),
                                  a[6].as<Kel::Ptr<Kel::Clock const>>()));
}

}  // namespace

#define MORVIK_SETTABLE(attr, type, V) \
  t->settable<V>(                      \
      #attr, type, [](A& s) { return s.attr(); }, [](A& s, const V& v) { s.attr##Is(v); })

std::unique_ptr<Kel::GenericType> morvikAuditSmGenericType() {
  auto t =
      std::make_unique<Kel::GenericTableType<A>>(kType, Kel::GenericType::Kind::refCounted,
                                                 Kel::GenericAttribute::Args{
                                                     {"Kel::Name", "name"},
                                                     {"MorvikLib::MorvikMemory", "morvikMemory"},
                                                     {"Morvik::Status", "morvikStatus"},
                                                     {"Morvik::Manifest", "morvikManifest"},
                                                     {"Morvik::AuditRequest", "auditRequest"},
                                                     {"Morvik::AuditStatus", "auditStatus"},
                                                     {"Kel::Clock", "clock"},
                                                 },
                                                 construct);
  t->readable("name", "Kel::Name", [](A& s) { return s.name(); });
  t->readable("morvikMemory", "MorvikLib::MorvikMemory", [](A& s) { return s.morvikMemory(); });
  MORVIK_SETTABLE(morvikStatus, "Morvik::Status", Kel::Ptr<Morvik::Status const>);
  t->readable("morvikManifest", "Morvik::Manifest", [](A& s) { return s.morvikManifest(); });
  MORVIK_SETTABLE(morvikAudit, "Morvik::Audit", Kel::Ptr<Morvik::Audit>);
  t->readable("auditRequest", "Morvik::AuditRequest", [](A& s) { return s.auditRequest(); });
  MORVIK_SETTABLE(auditStatus, "Morvik::AuditStatus", Kel::Ptr<Morvik::AuditStatus const>);
  MORVIK_SETTABLE(clock, "Kel::Clock", Kel::Ptr<Kel::Clock const>);
  t->action("auditMemory", &A::auditMemory);
  t->action("handleAuditClockTimeout", &A::handleAuditClockTimeout);
  t->action("handleAuditResync", &A::handleAuditResync);
  MORVIK_SETTABLE(auditInterval, "double", double);
  MORVIK_SETTABLE(auditEnabled, "bool", bool);
  t->function("computeChecksum", "U64", {}, [](A& s, const Args&) {
    return GenericValue::ofUnsigned("U64", s.computeChecksum());
  });
  t->action("handleFeatureAuditTrigger", &A::handleFeatureAuditTrigger);
  MORVIK_SETTABLE(initialized, "bool", bool);
  t->action("handleInitialized", &A::handleInitialized);
  MORVIK_SETTABLE(resultRetryCount, "U32", U32);
  MORVIK_SETTABLE(resultRetryCountMax, "U32", U32);
  return t;
}

#undef MORVIK_SETTABLE

}  // namespace MorvikLib
