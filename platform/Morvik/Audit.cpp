#include "Morvik/Audit.h"

namespace Morvik {

void Audit::auditStatusIs(const Kel::Name& name, const Kel::Ptr<AuditStatus const>& status) {
  if (!status) return auditStatusDel(name);
  if (auditStatus_.set(name, status)) notifyMember(&NotifieeConst::onAuditStatus, name);
}

void Audit::auditStatusDel(const Kel::Name& name) {
  // The entry stays alive until its watchers have heard that it left.
  auto leaving = auditStatus_.remove(name);
  if (leaving) notifyMember(&NotifieeConst::onAuditStatus, name);
}

void Audit::auditStatusDelAll() {
  for (const Kel::Name& name : auditStatus_.keys()) auditStatusDel(name);
}

}  // namespace Morvik
