#ifndef MORVIK_RECORD_H
#define MORVIK_RECORD_H

#include "Kel/Entity.h"
#include "Kel/Name.h"
#include "Kel/NotifieeList.h"

namespace Morvik {

// What every shared record has in common: its own name and notifiee list, and the change rule of
// its attributes (compare, store, then tell the watchers, all inside the setter).
class Record : public Kel::Entity {
 public:
  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }

 protected:
  explicit Record(const Kel::Name& name) : name_(name) {}
  ~Record() override = default;

  template <class N, class K>
  void notifyMember(void (N::*handler)(const K&), const K& key) const {
    this->notify<N>([handler, &key](N* n) { (n->*handler)(key); });
  }

 private:
  Kel::Name name_;
  mutable Kel::NotifieeList notifiees_;
};

}  // namespace Morvik

#endif
