#include "Kel/Dir.h"

#include <utility>

namespace Kel {

// Both take the name by value: a caller may pass a member's own key, which a removal (here or in a
// handler) frees while the watchers still need it.
void Dir::entityIs(Name name, const Ptr<Entity>& entity) {
  if (!entity) return entityDel(std::move(name));
  Ptr<Entity>& slot = members_[name];
  if (slot == entity) return;
  slot = entity;
  notify<NotifieeConst>([&](NotifieeConst* n) { n->onEntity(name); });
}

void Dir::entityDel(Name name) {
  auto it = members_.find(name);
  if (it == members_.end()) return;
  // Keep the member alive until its watchers have heard that it left.
  Ptr<Entity> leaving = it->second;
  members_.erase(it);
  notify<NotifieeConst>([&](NotifieeConst* n) { n->onEntity(name); });
}

}  // namespace Kel
