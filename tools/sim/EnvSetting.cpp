#include "EnvSetting.h"

#include <cstdlib>

namespace MorvikSim {

EnvSetting::EnvSetting(std::string name, const std::string& value) : name_(std::move(name)) {
  if (const char* old = std::getenv(name_.c_str())) previous_ = old;
  ::setenv(name_.c_str(), value.c_str(), 1);
}

EnvSetting::~EnvSetting() {
  if (previous_) {
    ::setenv(name_.c_str(), previous_->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

}  // namespace MorvikSim
