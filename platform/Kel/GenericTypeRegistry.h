#ifndef KEL_GENERICTYPEREGISTRY_H
#define KEL_GENERICTYPEREGISTRY_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/GenericType.h"

namespace Kel {

// The process's type registry: the generic interface finds every type by its name here. A library
// registers its types when it is loaded and removes them when it is unloaded. Registering a name
// again replaces the earlier node. Used from the activity thread only.
class GenericTypeRegistry {
 public:
  static GenericTypeRegistry& instance();

  void typeNodeIs(std::unique_ptr<GenericType> node);
  void typeNodeDel(std::string_view name);
  const GenericType* typeNode(std::string_view name) const;
  // Registered names, in registration order.
  std::vector<std::string> typeNames() const;

 private:
  GenericTypeRegistry() = default;
  std::vector<std::unique_ptr<GenericType>> nodes_;
};

inline void typeNodeIs(std::unique_ptr<GenericType> node) {
  GenericTypeRegistry::instance().typeNodeIs(std::move(node));
}

inline void typeNodeDel(std::string_view name) {
  GenericTypeRegistry::instance().typeNodeDel(name);
}

// Null when no type of that name is registered.
inline const GenericType* typeNode(std::string_view name) {
  return GenericTypeRegistry::instance().typeNode(name);
}

}  // namespace Kel

#endif
