#ifndef MORVIK_AUDITSTATUS_H
#define MORVIK_AUDITSTATUS_H

#include "Morvik/Record.h"

namespace Morvik {

// The standby's half of the audit handshake: its verdict on the last request it answered.
class AuditStatus final : public Record<AuditStatus> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<AuditStatus> {
   public:
    virtual void onStandbyChecksum() {}
    virtual void onChecksumResult() {}
    virtual void onResultId() {}
    virtual void onResyncTrigger() {}
  };

  explicit AuditStatus(const Kel::Name& name) : Record(name) {}

  const char* fwkType() const override { return "Morvik::AuditStatus"; }

  U64 standbyChecksum() const { return standbyChecksum_; }
  // 0 when the standby's checksum matched the request's.
  U32 checksumResult() const { return checksumResult_; }
  U32 resultId() const { return resultId_; }
  U32 resyncTrigger() const { return resyncTrigger_; }

  void standbyChecksumIs(const U64& value) {
    attributeIs(standbyChecksum_, value, &NotifieeConst::onStandbyChecksum);
  }
  void checksumResultIs(U32 value) {
    attributeIs(checksumResult_, value, &NotifieeConst::onChecksumResult);
  }
  void resultIdIs(U32 value) { attributeIs(resultId_, value, &NotifieeConst::onResultId); }
  void resyncTriggerIs(U32 value) {
    attributeIs(resyncTrigger_, value, &NotifieeConst::onResyncTrigger);
  }
  U32 resyncTriggerInc(U32 delta) {
    return counterInc(resyncTrigger_, delta, &NotifieeConst::onResyncTrigger);
  }

 private:
  U64 standbyChecksum_ = 0;
  U32 checksumResult_ = 0;
  U32 resultId_ = 0;
  U32 resyncTrigger_ = 0;
};

}  // namespace Morvik

#endif
