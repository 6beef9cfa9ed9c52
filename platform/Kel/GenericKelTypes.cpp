#include <memory>

#include "Kel/Clock.h"
#include "Kel/Dir.h"
#include "Kel/GenericTableType.h"

namespace Kel {

namespace {

std::unique_ptr<GenericType> dirType() {
  auto t = GenericTableType<Dir>::made<Name>({"name"});
  t->keyed<Name, Ptr<Entity>>(
      "entity", [](Dir & d) -> const auto& { return d.members(); },
      [](Dir& d, const Name& n, const Ptr<Entity>& e) { d.entityIs(n, e); },
      [](Dir& d, const Name& n) { d.entityDel(n); });
  t->readable("entities", &Dir::entities);
  return t;
}

std::unique_ptr<GenericType> clockType() {
  auto t = GenericTableType<Clock>::made<Name>({"name"});
  t->readable("idle", &Clock::idle);
  t->readable("scheduled", &Clock::scheduled);
  return t;
}

// Registers the framework's own types a script needs when the platform library is loaded.
__attribute__((constructor)) void kelTypesLoaded() {
  typeNodeIs(dirType());
  typeNodeIs(clockType());
}

}  // namespace

}  // namespace Kel
