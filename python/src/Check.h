#ifndef MORVIK_PYTHON_CHECK_H
#define MORVIK_PYTHON_CHECK_H

#include <memory>
#include <optional>
#include <string>

#include "Precondition.h"
#include "ProcessMaps.h"

namespace morvikpy {

// One check of a call from Python: what the messages name it, and the process's mappings, read
// once when first needed. A step that the call sets off (a handler, a resync) is checked under a
// nested name.
class Check {
 public:
  explicit Check(std::string call) : call_(std::move(call)) {}

  const std::string& call() const { return call_; }
  Check within(const std::string& step) const;
  const ProcessMaps& maps() const;

  [[noreturn]] void fail(const std::string& why, const char* assertion = nullptr) const {
    refuse(call_, why, assertion);
  }
  void require(bool holds, const std::string& why, const char* assertion = nullptr) const {
    if (!holds) fail(why, assertion);
  }

 private:
  std::string call_;
  std::shared_ptr<std::optional<ProcessMaps>> maps_ =
      std::make_shared<std::optional<ProcessMaps>>();
};

}  // namespace morvikpy

#endif
