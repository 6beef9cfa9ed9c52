#include <memory>

#include "Kel/Allocate.h"
#include "Kel/Clock.h"
#include "Kel/Dir.h"
#include "Kel/GenericTableType.h"

namespace Kel {

namespace {

// A type made from its name alone, whose name is readable.
template <class E>
std::unique_ptr<GenericTableType<E>> namedType() {
  auto t = GenericTableType<E>::create(GenericType::Kind::entity,
                                       [](Name name) { return allocate<E>(name); }, {"name"});
  t->readable("name", &E::name);
  return t;
}

std::unique_ptr<GenericType> dirType() {
  auto t = namedType<Dir>();
  t->keyed<Name, Ptr<Entity>>(
      "entity", [](Dir & d) -> const auto& { return d.members(); },
      [](Dir& d, const Name& n, const Ptr<Entity>& e) { d.entityIs(n, e); },
      [](Dir& d, const Name& n) { d.entityDel(n); });
  t->readable("entities", &Dir::entities);
  return t;
}

std::unique_ptr<GenericType> clockType() {
  auto t = namedType<Clock>();
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
