#ifndef MORVIK_AUDITREQUEST_H
#define MORVIK_AUDITREQUEST_H

#include <map>

#include "Morvik/Record.h"

namespace Morvik {

// The active side's half of the audit handshake: its checksum of one cycle and the trigger that
// asks the standby to check its copy.
class AuditRequest final : public Record<AuditRequest> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<AuditRequest> {
   public:
    virtual void onActiveChecksum() {}
    virtual void onActiveChecksumTwosComp() {}
    virtual void onRemoteMemoryVersion() {}
    virtual void onRequestId() {}
    virtual void onAuditTrigger() {}
    virtual void onAuditErrorsFixed() {}
    virtual void onAuditMapEnabled() {}
    virtual void onAuditMap(const U64&) {}
    virtual void onAuditMapkelImmediate() {}
    virtual void onAuditMap() {}
  };

  // Byte offset from the start of the local mirrored memory -> length of the range to checksum.
  using AuditMap = std::map<U64, U64>;

  explicit AuditRequest(const Kel::Name& name) : Record(name) {}

  const char* fwkType() const override { return "Morvik::AuditRequest"; }

  U64 activeChecksum() const { return activeChecksum_; }
  U64 activeChecksumTwosComp() const { return activeChecksumTwosComp_; }
  U32 remoteMemoryVersion() const { return remoteMemoryVersion_; }
  U32 requestId() const { return requestId_; }
  U32 auditTrigger() const { return auditTrigger_; }
  U32 auditErrorsFixed() const { return auditErrorsFixed_; }
  bool auditMapEnabled() const { return auditMapEnabled_; }
  // In ascending offset order.
  const AuditMap& auditMap() const { return auditMap_; }

  void activeChecksumIs(const U64& value) {
    attributeIs(activeChecksum_, value, &NotifieeConst::onActiveChecksum);
  }
  void activeChecksumTwosCompIs(const U64& value) {
    attributeIs(activeChecksumTwosComp_, value, &NotifieeConst::onActiveChecksumTwosComp);
  }
  void remoteMemoryVersionIs(U32 value) {
    attributeIs(remoteMemoryVersion_, value, &NotifieeConst::onRemoteMemoryVersion);
  }
  void requestIdIs(U32 value) { attributeIs(requestId_, value, &NotifieeConst::onRequestId); }
  void auditTriggerIs(U32 value) {
    attributeIs(auditTrigger_, value, &NotifieeConst::onAuditTrigger);
  }
  void auditErrorsFixedIs(U32 value) {
    attributeIs(auditErrorsFixed_, value, &NotifieeConst::onAuditErrorsFixed);
  }
  U32 requestIdInc(U32 delta) { return counterInc(requestId_, delta, &NotifieeConst::onRequestId); }
  U32 auditTriggerInc(U32 delta) {
    return counterInc(auditTrigger_, delta, &NotifieeConst::onAuditTrigger);
  }
  U32 auditErrorsFixedInc(U32 delta) {
    return counterInc(auditErrorsFixed_, delta, &NotifieeConst::onAuditErrorsFixed);
  }
  void auditMapEnabledIs(bool value) {
    attributeIs(auditMapEnabled_, value, &NotifieeConst::onAuditMapEnabled);
  }
  void auditMapIs(const U64& byteOffset, const U64& length) {
    memberIs(auditMap_, byteOffset, length, &NotifieeConst::onAuditMap);
  }
  void auditMapDel(const U64& byteOffset) {
    memberDel(auditMap_, byteOffset, &NotifieeConst::onAuditMap);
  }
  void auditMapDelAll() { membersDelAll(auditMap_, &NotifieeConst::onAuditMap); }

 private:
  U64 activeChecksum_ = 0;
  U64 activeChecksumTwosComp_ = 0;
  U32 remoteMemoryVersion_ = 0;
  U32 requestId_ = 0;
  U32 auditTrigger_ = 0;
  U32 auditErrorsFixed_ = 0;
  bool auditMapEnabled_ = false;
  AuditMap auditMap_;
};

}  // namespace Morvik

#endif
