#include "Kel/GenericIf.h"

#include "Kel/GenericType.h"

namespace Kel::GenericIfImpl {

namespace {

std::vector<GenericValue> unwrapArgs(const std::string& context,
                                     const GenericAttribute::Args& declared,
                                     const std::vector<GenericValue>& args) {
  if (args.size() != declared.size()) {
    throw TypeException(context + ": expected " + std::to_string(declared.size()) +
                        (declared.size() == 1 ? " argument (" : " arguments (") +
                        GenericAttribute::argList(declared) + "), got " +
                        std::to_string(args.size()));
  }
  std::vector<GenericValue> unwrapped;
  unwrapped.reserve(args.size());
  for (std::size_t i = 0; i < args.size(); ++i) {
    const GenericAttribute::Arg& arg = declared[i];
    unwrapped.push_back(unwrapValue(
        context + ": argument " + std::to_string(i + 1) + " (" + arg.type + " " + arg.name + ")",
        arg.type, args[i]));
  }
  return unwrapped;
}

}  // namespace

std::vector<GenericValue> unwrapConstructorArgs(const GenericType& type,
                                                const std::vector<GenericValue>& args) {
  return unwrapArgs(type.name() + " constructor", type.constructorArgs(), args);
}

std::vector<GenericValue> unwrapFunctionArgs(const GenericType& type,
                                             const GenericAttribute& function,
                                             const std::vector<GenericValue>& args) {
  return unwrapArgs(type.name() + "." + function.name, function.args, args);
}

GenericValue unwrapValue(const std::string& context, const std::string& declaredType,
                         const GenericValue& value) {
  if (std::optional<GenericValue> converted = value.convertedTo(declaredType)) return *converted;
  throwTypeException(context, declaredType, value);
}

void throwOpNotSupportedException(const std::string& typeName, const std::string& operation) {
  throw OpNotSupportedException(typeName + ": " + operation + " is not supported");
}

void throwOpNotSupportedException(const std::string& typeName, const std::string& attribute,
                                  const std::string& reason) {
  throw OpNotSupportedException(typeName + "." + attribute + ": " + reason);
}

void throwUnhashableException(const std::string& typeName) {
  throw UnhashableException(typeName + ": unhashable type");
}

void throwTypeException(const std::string& context, const std::string& expected,
                        const GenericValue& got) {
  // A number refused by a type that takes numbers can only have been out of its range.
  const bool numeric = GenericValue::of(U64{0}).convertedTo(expected).has_value();
  const std::string note = got.isNumber() && numeric ? " (out of range)" : "";
  throw TypeException(context + ": expected " + expected + ", got " + got.describe() + note);
}

}  // namespace Kel::GenericIfImpl
