#include <memory>

#include "Kel/Allocate.h"
#include "Kel/Clock.h"
#include "Kel/Dir.h"
#include "Kel/GenericTableType.h"

namespace Kel {

namespace {

using Args = std::vector<GenericValue>;

std::unique_ptr<GenericType> dirType() {
  auto t = std::make_unique<GenericTableType<Dir>>(
      "Kel::Dir", GenericType::Kind::entity, GenericAttribute::Args{{"Kel::Name", "name"}},
      [](const Args& a) { return genericWrap("Kel::Dir", allocate<Dir>(a[0].as<Name>())); });
  t->readable("name", "Kel::Name", [](Dir& d) { return d.name(); });
  t->keyed<Name, Ptr<Entity>>(
      "entity", "Kel::Name", "Kel::Entity", [](Dir & d) -> const auto& { return d.members(); },
      [](Dir& d, const Name& n, const Ptr<Entity>& e) { d.entityIs(n, e); },
      [](Dir& d, const Name& n) { d.entityDel(n); });
  t->readable("entities", "U64", [](Dir& d) { return static_cast<U64>(d.entities()); });
  return t;
}

std::unique_ptr<GenericType> clockType() {
  auto t = std::make_unique<GenericTableType<Clock>>(
      "Kel::Clock", GenericType::Kind::entity, GenericAttribute::Args{{"Kel::Name", "name"}},
      [](const Args& a) { return genericWrap("Kel::Clock", allocate<Clock>(a[0].as<Name>())); });
  t->readable("name", "Kel::Name", [](Clock& c) { return c.name(); });
  t->readable("idle", "bool", [](Clock& c) { return c.idle(); });
  t->readable("scheduled", "U64", [](Clock& c) { return static_cast<U64>(c.scheduled()); });
  return t;
}

// Registers the framework's own types a script needs when the platform library is loaded.
__attribute__((constructor)) void kelTypesLoaded() {
  typeNodeIs(dirType());
  typeNodeIs(clockType());
}

}  // namespace

}  // namespace Kel
