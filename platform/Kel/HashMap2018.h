#ifndef KEL_HASHMAP2018_H
#define KEL_HASHMAP2018_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <unordered_map>

namespace Kel {

// The framework's hash for keyed collections. A 64-bit key folds its halves together, so keys that
// differ only above bit 31 still spread over the buckets.
template <class K>
struct Hash2018 {
  std::size_t operator()(const K& key) const { return std::hash<K>()(key); }
};

template <>
struct Hash2018<std::uint64_t> {
  std::size_t operator()(std::uint64_t key) const {
    return static_cast<std::uint32_t>(key >> 32) ^ static_cast<std::uint32_t>(key);
  }
};

// Ordering of 64-bit keys: high halves first, then low halves, both unsigned (which is the plain
// unsigned order, spelled out because the framework defines it so).
inline bool keyLess2018(std::uint64_t a, std::uint64_t b) {
  auto ah = static_cast<std::uint32_t>(a >> 32), bh = static_cast<std::uint32_t>(b >> 32);
  if (ah != bh) return ah < bh;
  return static_cast<std::uint32_t>(a) < static_cast<std::uint32_t>(b);
}

// An unordered map for keyed attributes. Iteration order is unspecified; deleting the member an
// iteration stands on is allowed (forEachSafe).
template <class K, class V>
class HashMap2018 {
 public:
  using Map = std::unordered_map<K, V, Hash2018<K>>;
  using iterator = typename Map::iterator;
  using const_iterator = typename Map::const_iterator;

  static std::size_t hashOf(const K& key) { return Hash2018<K>()(key); }

  const V* find(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  V* find(const K& key) {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  // Inserts or replaces; returns true when the stored value changed or a member was added.
  bool insert(const K& key, const V& value) {
    auto [it, added] = map_.try_emplace(key, value);
    if (added) return true;
    if (it->second == value) return false;
    it->second = value;
    return true;
  }
  bool erase(const K& key) { return map_.erase(key) != 0; }
  void clear() { map_.clear(); }
  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }

  const_iterator begin() const { return map_.begin(); }
  const_iterator end() const { return map_.end(); }

  // Calls f(key, value) for every member; f may delete the member it is given, but must not
  // insert (a rehash would lose the iteration's place).
  template <class F>
  void forEachSafe(F&& f) {
    for (auto it = map_.begin(); it != map_.end();) {
      auto next = std::next(it);
      f(it->first, it->second);
      it = next;
    }
  }

 private:
  Map map_;
};

}  // namespace Kel

#endif
