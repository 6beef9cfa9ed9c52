#include "Plotter.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "TimelineScript.h"

extern char** environ;

namespace MorvikSim {

namespace {

// Gnuplot's own complaints would be several lines about a script the user never saw; one line
// says what failed.
void runGnuplot(const std::string& gnuplot, const std::string& script, const std::string& png) {
  const std::string path = "gnuplot";
  char* argv[] = {const_cast<char*>(path.c_str()), const_cast<char*>(script.c_str()), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, gnuplot.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot run " + gnuplot);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("gnuplot failed to draw " + png);
  }
}

}  // namespace

std::string findGnuplot() {
  const char* path = std::getenv("PATH");
  std::istringstream dirs(path != nullptr ? path : "");
  for (std::string dir; std::getline(dirs, dir, ':');) {
    const std::string candidate = (dir.empty() ? "." : dir) + "/gnuplot";
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

void plotTimeline(const Report& report, const std::string& csvPath, const std::string& pngPath) {
  const std::string gnuplot = findGnuplot();
  if (gnuplot.empty()) {
    throw std::runtime_error(
        "--plot needs gnuplot, which is not installed (Debian package gnuplot-nox)");
  }
  char scriptPath[] = "/tmp/morvik_sim_plot_XXXXXX";
  const int fd = ::mkstemp(scriptPath);
  if (fd < 0) throw std::runtime_error("cannot create a temporary file for the gnuplot script");
  ::close(fd);
  {
    std::ofstream script(scriptPath);
    script << timelineScript(report, csvPath, pngPath);
  }
  try {
    runGnuplot(gnuplot, scriptPath, pngPath);
  } catch (...) {
    ::unlink(scriptPath);
    throw;
  }
  ::unlink(scriptPath);
  struct stat st;
  if (::stat(pngPath.c_str(), &st) != 0 || st.st_size == 0) {
    throw std::runtime_error("gnuplot wrote no image to " + pngPath);
  }
}

}  // namespace MorvikSim
