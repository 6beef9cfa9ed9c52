#ifndef MORVIK_ORDEREDCOLLECTION_H
#define MORVIK_ORDEREDCOLLECTION_H

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace Morvik {

// The storage of a keyed record attribute: members in ascending key order, and a lookup that reads
// a missing key as the value type's default (null for a pointer) instead of inserting it.
template <class K, class V>
class OrderedCollection {
 public:
  using const_iterator = typename std::map<K, V>::const_iterator;

  V operator[](const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? V() : it->second;
  }
  const_iterator begin() const { return map_.begin(); }
  const_iterator end() const { return map_.end(); }

  // Inserts or replaces; true when a member was added or its value changed.
  bool set(const K& key, const V& value) {
    auto [it, added] = map_.try_emplace(key, value);
    if (added) return true;
    if (it->second == value) return false;
    // The old value goes only after the new one is in place: dropping it may run arbitrary code.
    [[maybe_unused]] V old = std::exchange(it->second, value);
    return true;
  }

  // Hands the removed value back, so the caller can keep it alive until its watchers have heard.
  std::optional<V> remove(const K& key) {
    auto it = map_.find(key);
    if (it == map_.end()) return std::nullopt;
    std::optional<V> leaving(std::move(it->second));
    map_.erase(it);
    return leaving;
  }

  // A snapshot: watchers told of one deletion may change the collection meanwhile.
  std::vector<K> keys() const {
    std::vector<K> result;
    for (const auto& member : map_) result.push_back(member.first);
    return result;
  }

 private:
  std::map<K, V> map_;
};

}  // namespace Morvik

#endif
