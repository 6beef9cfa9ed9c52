#ifndef MORVIK_STATUS_H
#define MORVIK_STATUS_H

#include <map>

#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "Morvik/ActiveSupeType.h"
#include "Morvik/PhysicalAddress.h"
#include "Morvik/Record.h"
#include "Morvik/Region.h"

namespace Morvik {

// This supervisor's role and what is known of the peer's mirrored memory.
class Status final : public Record<Status> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<Status> {
   public:
    virtual void onPciAddress(const Kel::String&) {}
    virtual void onPciAddresskelImmediate() {}
    virtual void onPciAddress() {}
    virtual void onRemoteMemory() {}
    virtual void onLocalMemoryVersion() {}
    virtual void onMorvikMemReqId() {}
    virtual void onPeerMemory() {}
    virtual void onFeatureAuditTrigger() {}
    virtual void onActiveSupe() {}
  };

  using PciAddresses = std::map<Kel::String, Kel::String>;

  explicit Status(const Kel::Name& name) : Record(name) {}

  const char* fwkType() const override { return "Morvik::Status"; }

  const PciAddresses& pciAddress() const { return pciAddress_; }
  const Kel::Ptr<Region const>& remoteMemory() const { return remoteMemory_; }
  U32 localMemoryVersion() const { return localMemoryVersion_; }
  U32 morvikMemReqId() const { return morvikMemReqId_; }
  PhysicalAddress peerMemory() const { return peerMemory_; }
  U32 featureAuditTrigger() const { return featureAuditTrigger_; }
  ActiveSupeType activeSupe() const { return activeSupe_; }

  void pciAddressIs(const Kel::String& card, const Kel::String& address) {
    memberIs(pciAddress_, card, address, &NotifieeConst::onPciAddress);
  }
  void pciAddressDel(const Kel::String& card) {
    memberDel(pciAddress_, card, &NotifieeConst::onPciAddress);
  }
  void remoteMemoryIs(const Kel::Ptr<Region const>& value) {
    attributeIs(remoteMemory_, value, &NotifieeConst::onRemoteMemory);
  }
  void localMemoryVersionIs(U32 value) {
    attributeIs(localMemoryVersion_, value, &NotifieeConst::onLocalMemoryVersion);
  }
  void morvikMemReqIdIs(U32 value) {
    attributeIs(morvikMemReqId_, value, &NotifieeConst::onMorvikMemReqId);
  }
  void peerMemoryIs(PhysicalAddress value) {
    attributeIs(peerMemory_, value, &NotifieeConst::onPeerMemory);
  }
  void featureAuditTriggerIs(U32 value) {
    attributeIs(featureAuditTrigger_, value, &NotifieeConst::onFeatureAuditTrigger);
  }
  void activeSupeIs(ActiveSupeType value) {
    attributeIs(activeSupe_, value, &NotifieeConst::onActiveSupe);
  }

 private:
  PciAddresses pciAddress_;
  Kel::Ptr<Region const> remoteMemory_;
  U32 localMemoryVersion_ = 0;
  U32 morvikMemReqId_ = 0;
  PhysicalAddress peerMemory_;
  U32 featureAuditTrigger_ = 0;
  ActiveSupeType activeSupe_ = activeSupeNone;
};

}  // namespace Morvik

#endif
