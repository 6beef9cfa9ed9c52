#ifndef MORVIK_AUDIT_H
#define MORVIK_AUDIT_H

#include <map>

#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/Record.h"

namespace Morvik {

// The standby's audit status records, one per audit name. Watchers hear when an entry comes, is
// replaced by another record or goes; changes inside an entry's own record are that record's news.
class Audit final : public Record<Audit> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<Audit> {
   public:
    virtual void onAuditStatus(const Kel::Name&) {}
    virtual void onAuditStatuskelImmediate() {}
    virtual void onAuditStatus() {}
  };

  using AuditStatuses = std::map<Kel::Name, Kel::Ptr<AuditStatus const>>;

  explicit Audit(const Kel::Name& name) : Record(name) {}

  const char* fwkType() const override { return "Morvik::Audit"; }

  // In name order.
  const AuditStatuses& auditStatus() const { return auditStatus_; }
  // Null when there is no entry of that name.
  Kel::Ptr<AuditStatus const> auditStatus(const Kel::Name& name) const {
    return member(auditStatus_, name);
  }

  // A null status removes the entry.
  void auditStatusIs(const Kel::Name& name, const Kel::Ptr<AuditStatus const>& status) {
    if (!status) return auditStatusDel(name);
    memberIs(auditStatus_, name, status, &NotifieeConst::onAuditStatus);
  }
  void auditStatusDel(const Kel::Name& name) {
    memberDel(auditStatus_, name, &NotifieeConst::onAuditStatus);
  }

 private:
  AuditStatuses auditStatus_;
};

}  // namespace Morvik

#endif
