#include "MorvikLib/generic/MorvikMemorySmGenericType.h"

#include "Kel/GenericTableType.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace MorvikLib {

namespace {

constexpr const char* kType = "MorvikLib::MorvikMemorySm";
using S = MorvikMemorySm;
using Args = std::vector<Kel::GenericValue>;
using Kel::GenericValue;

GenericValue construct(const Args& a) {
  return Kel::genericWrap(
      kType, morvikMemorySmFactory(a[0].as<Kel::Name>(), a[1].as<Kel::Ptr<Morvik::Status const>>(),
                                   a[2].as<Kel::Ptr<Morvik::Manifest const>>(),
                                   a[3].as<Kel::Ptr<Morvik::Audit const>>(),
                                   a[4].as<Kel::Ptr<Morvik::AuditRequest>>(),
                                   a[5].as<Kel::Ptr<Kel::Dir const>>(),
                                   a[6].as<Kel::Ptr<MorvikMemory>>()));
}

}  // namespace

#define MORVIK_INPUT(attr, type, V) \
  t->settable<V>(                   \
      #attr, type, [](S& s) { return s.attr(); }, [](S& s, const V& v) { s.attr##Is(v); })

std::unique_ptr<Kel::GenericType> morvikMemorySmGenericType() {
  auto t =
      std::make_unique<Kel::GenericTableType<S>>(kType, Kel::GenericType::Kind::refCounted,
                                                 Kel::GenericAttribute::Args{
                                                     {"Kel::Name", "name"},
                                                     {"Morvik::Status", "morvikStatus"},
                                                     {"Morvik::Manifest", "morvikManifest"},
                                                     {"Morvik::Audit", "morvikAudit"},
                                                     {"Morvik::AuditRequest", "morvikAuditRequest"},
                                                     {"Kel::Dir", "morvikAuditRequests"},
                                                     {"MorvikLib::MorvikMemory", "morvikMemory"},
                                                 },
                                                 construct);
  t->readable("name", "Kel::Name", [](S& s) { return s.name(); });
  MORVIK_INPUT(morvikStatus, "Morvik::Status", Kel::Ptr<Morvik::Status const>);
  MORVIK_INPUT(morvikManifest, "Morvik::Manifest", Kel::Ptr<Morvik::Manifest const>);
  MORVIK_INPUT(morvikAudit, "Morvik::Audit", Kel::Ptr<Morvik::Audit const>);
  t->readable("morvikAuditRequest", "Morvik::AuditRequest",
              [](S& s) { return s.morvikAuditRequest(); });
  MORVIK_INPUT(morvikAuditRequests, "Kel::Dir", Kel::Ptr<Kel::Dir const>);
  MORVIK_INPUT(morvikMemory, "MorvikLib::MorvikMemory", Kel::Ptr<MorvikMemory>);
  t->action("handleLocalMemoryChange", &S::handleLocalMemoryChange);
  t->action("handleRemoteMemoryChange", &S::handleRemoteMemoryChange);
  t->action("handleMorvikRemoteMemVersion", &S::handleMorvikRemoteMemVersion);
  t->action("handleSupStateChange", &S::handleSupStateChange);
  t->function("resetAuditSm", "void", {{"Kel::Name", "name"}}, [](S& s, const Args& a) {
    s.resetAuditSm(a[0].as<Kel::Name>());
    return GenericValue();
  });
  MORVIK_INPUT(morvikAuditSm, "MorvikLib::MorvikAuditSm", Kel::Ptr<MorvikAuditSm>);
  MORVIK_INPUT(deletion, "bool", bool);
  t->action("handleDeletion", &S::handleDeletion);
  MORVIK_INPUT(initialized, "bool", bool);
  t->action("handleInitialized", &S::handleInitialized);
  MORVIK_INPUT(wrClock, "Kel::Clock", Kel::Ptr<Kel::Clock const>);
  t->action("scheduleClockTimeout", &S::scheduleClockTimeout);
  t->function("overlap", "bool",
              {{"U64", "start1"}, {"U64", "size1"}, {"U64", "start2"}, {"U64", "size2"}},
              [](S& s, const Args& a) {
                return GenericValue::ofBool(
                    s.overlap(a[0].as<U64>(), a[1].as<U64>(), a[2].as<U64>(), a[3].as<U64>()));
              });
  t->function("setWriteAccess", "void", {{"U64", "dest"}, {"U32", "size"}, {"int", "prot"}},
              [](S& s, const Args& a) {
                s.setWriteAccess(a[0].as<U64>(), a[1].as<U32>(), a[2].as<int>());
                return GenericValue();
              });
  return t;
}

#undef MORVIK_INPUT

}  // namespace MorvikLib
