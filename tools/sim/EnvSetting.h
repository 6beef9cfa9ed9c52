#ifndef MORVIK_SIM_ENVSETTING_H
#define MORVIK_SIM_ENVSETTING_H

#include <optional>
#include <string>

namespace MorvikSim {

// Sets one environment variable for as long as the object lives, then puts back what was there
// (the library reads its variables at the moment of use, so the setting must outlast every call).
class EnvSetting {
 public:
  EnvSetting(std::string name, const std::string& value);
  ~EnvSetting();
  EnvSetting(const EnvSetting&) = delete;
  EnvSetting& operator=(const EnvSetting&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace MorvikSim

#endif
