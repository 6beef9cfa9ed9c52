#include "Kel/GenericType.h"

#include <algorithm>

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"

namespace Kel {

std::string GenericAttribute::argList(const Args& args) {
  std::string text;
  for (const Arg& arg : args) {
    if (!text.empty()) text += ", ";
    text += arg.type + " " + arg.name;
  }
  return text;
}

GenericType::GenericType(std::string name, Kind kind, GenericAttribute::Args constructorArgs)
    : name_(std::move(name)), kind_(kind), constructorArgs_(std::move(constructorArgs)) {}

const GenericAttribute* GenericType::attribute(std::string_view name) const {
  const U32 id = attributeId(name);
  return id < attributes_.size() ? &attributes_[id] : nullptr;
}

U32 GenericType::attributeId(std::string_view name) const {
  auto named = [name](const GenericAttribute& a) { return a.name == name; };
  return static_cast<U32>(std::find_if(attributes_.begin(), attributes_.end(), named) -
                          attributes_.begin());
}

void GenericType::refuse(const char* operation) const {
  GenericIfImpl::throwOpNotSupportedException(name_, operation);
}

String GenericType::genericIfStrRep(const GenericValue& value) const {
  if (kind_ == Kind::entity) {
    if (auto* entity = dynamic_cast<const Entity*>(value.object().ptr())) {
      return String("<" + name_ + " " + valueToStrep(entity->name()).stdString() + ">");
    }
  }
  return String("<" + name_ + ">");
}

namespace {

// Never destroyed: libraries unregister from their own unload code, which may run after the
// static destructors of this one.
std::vector<std::unique_ptr<GenericType>>& registry() {
  static auto* nodes = new std::vector<std::unique_ptr<GenericType>>;
  return *nodes;
}

auto named(std::string_view name) {
  return [name](const auto& node) { return node->name() == name; };
}

}  // namespace

void typeNodeIs(std::unique_ptr<GenericType> node) {
  if (!node) return;
  auto found = std::find_if(registry().begin(), registry().end(), named(node->name()));
  if (found != registry().end()) {
    *found = std::move(node);
  } else {
    registry().push_back(std::move(node));
  }
}

void typeNodeDel(std::string_view name) {
  std::erase_if(registry(), named(name));
}

const GenericType* typeNode(std::string_view name) {
  auto found = std::find_if(registry().begin(), registry().end(), named(name));
  return found == registry().end() ? nullptr : found->get();
}

std::vector<std::string> typeNames() {
  std::vector<std::string> names;
  for (const auto& node : registry()) names.push_back(node->name());
  return names;
}

}  // namespace Kel
