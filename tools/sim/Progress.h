#ifndef MORVIK_SIM_PROGRESS_H
#define MORVIK_SIM_PROGRESS_H

#include <chrono>
#include <cstdio>

namespace MorvikSim {

class Monitor;

// The live status line on a terminal: rewritten in place (\r) a few times a second, wiped at the
// end. Silent when standard error is not a terminal, so logs and pipes stay clean.
class Progress {
 public:
  Progress(bool wanted, double endSeconds, std::FILE* out = stderr);
  ~Progress() { finish(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  bool enabled() const { return enabled_; }
  void update(const Monitor& monitor);
  void finish();

 private:
  bool enabled_;
  double end_;
  std::FILE* out_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace MorvikSim

#endif
