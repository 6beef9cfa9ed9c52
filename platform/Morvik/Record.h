#ifndef MORVIK_RECORD_H
#define MORVIK_RECORD_H

#include "Kel/Entity.h"
#include "Kel/Name.h"
#include "Kel/NotifieeConstOf.h"
#include "Kel/NotifieeList.h"
#include "Kel/Types.h"
#include "Morvik/OrderedCollection.h"

namespace Morvik {

// What every shared record T has in common: its own name and notifiee list, and the change rules
// of its attributes (compare, store, then tell the watchers, all inside the setter).
template <class T>
class Record : public Kel::EntityOf<T> {
 public:
  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }

 protected:
  explicit Record(const Kel::Name& name) : name_(name) {}

  // A counter adds delta (wrapping at 2^32) like any change and returns the new value.
  template <class N>
  U32 counterInc(U32& slot, U32 delta, void (N::*handler)()) {
    this->attributeIs(slot, slot + delta, handler);
    return slot;
  }

  // A keyed attribute's member is set or deleted; a change tells the handler with the key.
  template <class K, class V, class N>
  void memberIs(OrderedCollection<K, V>& members, const K& key, const V& value,
                void (N::*handler)(const K&)) {
    if (members.set(key, value)) notifyMember(handler, key);
  }
  template <class K, class V, class N>
  void memberDel(OrderedCollection<K, V>& members, const K& key, void (N::*handler)(const K&)) {
    // The member stays alive until its watchers have heard that it left.
    if (auto leaving = members.remove(key)) notifyMember(handler, key);
  }

 private:
  template <class N, class K>
  void notifyMember(void (N::*handler)(const K&), const K& key) const {
    this->template notify<N>([handler, &key](N* n) { (n->*handler)(key); });
  }

  Kel::Name name_;
  mutable Kel::NotifieeList notifiees_;
};

}  // namespace Morvik

#endif
