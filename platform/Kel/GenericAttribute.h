#ifndef KEL_GENERICATTRIBUTE_H
#define KEL_GENERICATTRIBUTE_H

#include <string>
#include <utility>
#include <vector>

namespace Kel {

// What the generic interface says about one attribute of a type: its name, its declared type (the
// value type of a keyed attribute, the result type of a function, "void" for none), what can be
// done with it, and a function's arguments in their declared order.
class GenericAttribute {
 public:
  enum class Kind { readable, settable, keyed, function };

  struct Arg {
    std::string type;
    std::string name;
  };
  using Args = std::vector<Arg>;

  GenericAttribute(std::string name, std::string type, Kind kind, Args args = {},
                   std::string keyType = {})
      : name_(std::move(name)),
        type_(std::move(type)),
        kind_(kind),
        args_(std::move(args)),
        keyType_(std::move(keyType)) {}

  const std::string& name() const { return name_; }
  const std::string& type() const { return type_; }
  Kind kind() const { return kind_; }
  const Args& args() const { return args_; }
  const std::string& keyType() const { return keyType_; }

  // "U32 addr, U64 data, U32 size": how refusals show what was expected.
  static std::string argList(const Args& args) {
    std::string text;
    for (const Arg& arg : args) {
      if (!text.empty()) text += ", ";
      text += arg.type + " " + arg.name;
    }
    return text;
  }

 private:
  std::string name_;
  std::string type_;
  Kind kind_;
  Args args_;
  std::string keyType_;
};

}  // namespace Kel

#endif
