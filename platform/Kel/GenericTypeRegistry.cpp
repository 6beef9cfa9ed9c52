#include "Kel/GenericTypeRegistry.h"

#include <algorithm>

namespace Kel {

GenericTypeRegistry& GenericTypeRegistry::instance() {
  // Never destroyed: libraries unregister from their own unload code, which may run after the
  // static destructors of this one.
  static GenericTypeRegistry* registry = new GenericTypeRegistry;
  return *registry;
}

void GenericTypeRegistry::typeNodeIs(std::unique_ptr<GenericType> node) {
  if (!node) return;
  auto same = [&](const auto& n) { return n->name() == node->name(); };
  auto it = std::find_if(nodes_.begin(), nodes_.end(), same);
  if (it != nodes_.end()) {
    *it = std::move(node);
  } else {
    nodes_.push_back(std::move(node));
  }
}

void GenericTypeRegistry::typeNodeDel(std::string_view name) {
  std::erase_if(nodes_, [&](const auto& n) { return n->name() == name; });
}

const GenericType* GenericTypeRegistry::typeNode(std::string_view name) const {
  for (const auto& n : nodes_) {
    if (n->name() == name) return n.get();
  }
  return nullptr;
}

std::vector<std::string> GenericTypeRegistry::typeNames() const {
  std::vector<std::string> names;
  for (const auto& n : nodes_) names.push_back(n->name());
  return names;
}

}  // namespace Kel
