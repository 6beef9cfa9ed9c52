#ifndef KEL_DIR_H
#define KEL_DIR_H

#include <cstddef>
#include <map>

#include "Kel/Entity.h"

namespace Kel {

// A collection of named entities. Members are held by counted references and kept in name order.
class Dir final : public EntityOf<Dir> {
 public:
  class NotifieeConst : public NotifieeConstOf<Dir> {
   public:
    // A member was added, replaced or removed.
    virtual void onEntity(const Name&) {}
  };

  explicit Dir(const Name& name) : name_(name) {}

  NotifieeList* notifieeList() const override { return &notifiees_; }
  Name name() const override { return name_; }
  void nameIsFromBackup(const Name& name) override { name_ = name; }
  const char* fwkType() const override { return "Kel::Dir"; }

  void entityIs(Name name, const Ptr<Entity>& entity);
  void entityDel(Name name);
  std::size_t entities() const { return members_.size(); }
  const std::map<Name, Ptr<Entity>>& members() const { return members_; }

 private:
  Name name_;
  mutable NotifieeList notifiees_;
  std::map<Name, Ptr<Entity>> members_;
};

}  // namespace Kel

#endif
