#ifndef MORVIK_RECORD_H
#define MORVIK_RECORD_H

#include <map>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/EntityNotifiee.h"
#include "Kel/Name.h"
#include "Kel/Types.h"

namespace Morvik {

// What every shared record T has in common: its own name and notifiee list, and the change rules
// of its attributes (compare, store, then tell the watchers, all inside the setter). A keyed
// attribute keeps its members in ascending key order.
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

  // A missing key reads as the value type's default (null for a pointer); nothing is inserted.
  template <class K, class V>
  static V member(const std::map<K, V>& members, const K& key) {
    auto it = members.find(key);
    return it == members.end() ? V() : it->second;
  }

  // Sets or replaces one member; a change tells the handler with the key.
  template <class K, class V, class N>
  void memberIs(std::map<K, V>& members, const K& key, const V& value,
                void (N::*handler)(const K&)) {
    auto [it, added] = members.try_emplace(key, value);
    if (!added) {
      if (it->second == value) return;
      // The old value goes only after the new one is in place: dropping it may run arbitrary code.
      [[maybe_unused]] V old = std::exchange(it->second, value);
    }
    notifyMember(handler, key);
  }

  // The key is a copy: the caller's may be the member's own, which goes here.
  template <class K, class V, class N>
  void memberDel(std::map<K, V>& members, K key, void (N::*handler)(const K&)) {
    auto it = members.find(key);
    if (it == members.end()) return;
    // The member stays alive until its watchers have heard that it left.
    [[maybe_unused]] V leaving = std::move(it->second);
    members.erase(it);
    notifyMember(handler, key);
  }

  // The members as they are now: watchers told of one deletion may change the collection.
  template <class K, class V, class N>
  void membersDelAll(std::map<K, V>& members, void (N::*handler)(const K&)) {
    std::vector<K> keys;
    for (const auto& member : members) keys.push_back(member.first);
    for (const K& key : keys) memberDel(members, key, handler);
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
