#ifndef KEL_GENERICIFIMPL_H
#define KEL_GENERICIFIMPL_H

#include <string>
#include <vector>

#include "Kel/GenericType.h"
#include "Kel/GenericValue.h"

namespace Kel {

// The checks and refusals every type's generic operations share. Each refusal is an exception
// whose message names the type, the attribute or function, and what was expected, so a script's
// author sees what to change without reading the library.
class GenericIfImpl {
 public:
  // Checks the count and converts each argument to its declared type; throws TypeException.
  static std::vector<GenericValue> unwrapConstructorArgs(const GenericType& type,
                                                         const std::vector<GenericValue>& args);
  static std::vector<GenericValue> unwrapFunctionArgs(const GenericType& type,
                                                      const GenericAttribute& function,
                                                      const std::vector<GenericValue>& args);
  // One value for a declared type; `context` names where it goes ("MorvikLib::MorvikMemory.size").
  static GenericValue unwrapValue(const std::string& context, const std::string& declaredType,
                                  const GenericValue& value);

  // "<type>: <operation> is not supported"
  [[noreturn]] static void throwOpNotSupportedException(const std::string& typeName,
                                                        const std::string& operation);
  // "<type>.<attribute>: <reason>"
  [[noreturn]] static void throwOpNotSupportedException(const std::string& typeName,
                                                        const std::string& attribute,
                                                        const std::string& reason);
  [[noreturn]] static void throwUnhashableException(const std::string& typeName);
  // "<context>: expected <expected>, got <what was given>"
  [[noreturn]] static void throwTypeException(const std::string& context,
                                              const std::string& expected, const GenericValue& got);

 private:
  static std::vector<GenericValue> unwrapArgs(const std::string& context,
                                              const GenericAttribute::Args& declared,
                                              const std::vector<GenericValue>& args);
};

}  // namespace Kel

#endif
