#include "Morvik/AuditRequest.h"

namespace Morvik {

U32 AuditRequest::requestIdInc(U32 delta) {
  requestIdIs(requestId_ + delta);
  return requestId_;
}

U32 AuditRequest::auditTriggerInc(U32 delta) {
  auditTriggerIs(auditTrigger_ + delta);
  return auditTrigger_;
}

U32 AuditRequest::auditErrorsFixedInc(U32 delta) {
  auditErrorsFixedIs(auditErrorsFixed_ + delta);
  return auditErrorsFixed_;
}

void AuditRequest::auditMapIs(const U64& byteOffset, const U64& length) {
  if (auditMap_.set(byteOffset, length)) notifyMember(&NotifieeConst::onAuditMap, byteOffset);
}

void AuditRequest::auditMapDel(const U64& byteOffset) {
  if (auditMap_.remove(byteOffset)) notifyMember(&NotifieeConst::onAuditMap, byteOffset);
}

void AuditRequest::auditMapDelAll() {
  for (const U64& byteOffset : auditMap_.keys()) auditMapDel(byteOffset);
}

}  // namespace Morvik
