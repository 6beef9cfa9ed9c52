#ifndef KEL_HASHMAP2018_H
#define KEL_HASHMAP2018_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Kel {

// The framework's hash of a 64-bit key folds its halves together, so keys that differ only above
// bit 31 still spread over the buckets.
inline std::size_t hash2018(std::uint64_t key) {
  return static_cast<std::uint32_t>(key >> 32) ^ static_cast<std::uint32_t>(key);
}

// Ordering of 64-bit keys: high halves first, then low halves, both unsigned (which is the plain
// unsigned order, spelled out because the framework defines it so).
inline bool keyLess2018(std::uint64_t a, std::uint64_t b) {
  auto ah = static_cast<std::uint32_t>(a >> 32), bh = static_cast<std::uint32_t>(b >> 32);
  if (ah != bh) return ah < bh;
  return static_cast<std::uint32_t>(a) < static_cast<std::uint32_t>(b);
}

// An unordered map for keyed attributes: chained buckets, a power of two of them, so a lookup is a
// mask and a short walk. Iteration order is unspecified; an iteration may delete the member it
// stands on (forEachSafe). A deleted member's node is kept for the next insertion, so a collection
// that empties and fills again (a resync's pending set) allocates nothing once it has grown.
template <class K, class V>
class HashMap2018 {
  struct Node {
    std::pair<K, V> member;
    Node* next;
  };

 public:
  class const_iterator {
   public:
    const_iterator() = default;
    const std::pair<K, V>& operator*() const { return node_->member; }
    const std::pair<K, V>* operator->() const { return &node_->member; }
    const_iterator& operator++() {
      node_ = node_->next ? node_->next : map_->first(bucket_ + 1, bucket_);
      return *this;
    }
    bool operator==(const const_iterator& other) const { return node_ == other.node_; }

   private:
    friend class HashMap2018;
    const_iterator(const HashMap2018* map, Node* node, std::size_t bucket)
        : map_(map), bucket_(bucket), node_(node) {}
    const HashMap2018* map_ = nullptr;
    std::size_t bucket_ = 0;
    Node* node_ = nullptr;
  };

  HashMap2018() = default;
  HashMap2018(const HashMap2018&) = delete;
  HashMap2018& operator=(const HashMap2018&) = delete;
  ~HashMap2018() {
    clear();
    while (Node* node = spare_) delete std::exchange(spare_, node->next);
  }

  static std::size_t hashOf(const K& key) { return hash2018(key); }

  // Null when there is no member; the second form takes the key's hash (hashOf) already at hand.
  const V* find(const K& key) const { return find(key, hashOf(key)); }
  const V* find(const K& key, std::size_t hash) const {
    const Node* node = lookup(key, hash);
    return node ? &node->member.second : nullptr;
  }

  // Inserts or replaces; returns true when the stored value changed or a member was added.
  bool insert(const K& key, const V& value) {
    return update(key, [&value](const V&) { return value; });
  }

  // Stores next(current value), V() standing for an absent member, in one lookup; returns true
  // when the stored value changed or a member was added.
  template <class F>
  bool update(const K& key, F&& next) {
    if (Node* node = lookup(key, hashOf(key))) {
      const V value = next(static_cast<const V&>(node->member.second));
      if (node->member.second == value) return false;
      node->member.second = value;
      return true;
    }
    const V value = next(V());
    if (size_ >= buckets_.size()) grow();
    Node* node = spare_ ? std::exchange(spare_, spare_->next) : new Node;
    node->member = {key, value};
    link(node);
    ++size_;
    return true;
  }

  bool erase(const K& key) {
    if (buckets_.empty()) return false;
    for (Node** at = &buckets_[hashOf(key) & (buckets_.size() - 1)]; *at; at = &(*at)->next) {
      if ((*at)->member.first != key) continue;
      Node* node = std::exchange(*at, (*at)->next);
      node->next = std::exchange(spare_, node);
      --size_;
      return true;
    }
    return false;
  }

  void clear() {
    for (Node*& head : buckets_) {
      while (Node* node = head) {
        head = node->next;
        node->next = std::exchange(spare_, node);
      }
    }
    size_ = 0;
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  const_iterator begin() const {
    std::size_t bucket = 0;
    Node* node = first(0, bucket);
    return const_iterator(this, node, bucket);
  }
  const_iterator end() const { return const_iterator(); }

  // Calls f(key, value) for every member; f may delete the member it is given, but must not
  // insert (the buckets may grow and the iteration lose its place).
  template <class F>
  void forEachSafe(F&& f) {
    for (std::size_t bucket = 0; bucket < buckets_.size(); ++bucket) {
      for (Node* node = buckets_[bucket]; node;) {
        Node* next = node->next;
        f(static_cast<const K&>(node->member.first), node->member.second);
        node = next;
      }
    }
  }

 private:
  Node* lookup(const K& key, std::size_t hash) const {
    if (buckets_.empty()) return nullptr;
    Node* node = buckets_[hash & (buckets_.size() - 1)];
    while (node && node->member.first != key) node = node->next;
    return node;
  }

  // The first member in a bucket from `from` on; `bucket` tells which.
  Node* first(std::size_t from, std::size_t& bucket) const {
    for (bucket = from; bucket < buckets_.size(); ++bucket) {
      if (buckets_[bucket]) return buckets_[bucket];
    }
    return nullptr;
  }

  void link(Node* node) {
    Node*& head = buckets_[hashOf(node->member.first) & (buckets_.size() - 1)];
    node->next = std::exchange(head, node);
  }

  void grow() {
    std::vector<Node*> old(buckets_.empty() ? 8 : buckets_.size() * 2, nullptr);
    old.swap(buckets_);
    for (Node* node : old) {
      while (node) link(std::exchange(node, node->next));
    }
  }

  std::vector<Node*> buckets_;
  Node* spare_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace Kel

#endif
