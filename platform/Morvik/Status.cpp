#include "Morvik/Status.h"

namespace Morvik {

void Status::pciAddressIs(const Kel::String& card, const Kel::String& address) {
  if (pciAddress_.set(card, address)) notifyMember(&NotifieeConst::onPciAddress, card);
}

void Status::pciAddressDel(const Kel::String& card) {
  if (pciAddress_.remove(card)) notifyMember(&NotifieeConst::onPciAddress, card);
}

void Status::pciAddressDelAll() {
  for (const Kel::String& card : pciAddress_.keys()) pciAddressDel(card);
}

U32 Status::featureAuditTriggerInc(U32 delta) {
  featureAuditTriggerIs(featureAuditTrigger_ + delta);
  return featureAuditTrigger_;
}

}  // namespace Morvik
