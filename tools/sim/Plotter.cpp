#include "Plotter.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Units.h"

extern char** environ;

namespace MorvikSim {

namespace {

// A gnuplot single-quoted string: only the quote itself needs escaping, by doubling it.
std::string single(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

// A fault's label without its details: "corrupt routes+0x1a2b" is drawn as "corrupt routes".
std::string shortLabel(const std::string& text) {
  const auto plus = text.find('+');
  return plus == std::string::npos ? text : text.substr(0, plus);
}

// Faults closer together than 1% of the run share one mark, so their labels do not overprint.
void faultMarks(std::ostream& s, const Report& r, double scale) {
  std::vector<std::pair<double, std::string>> marks;
  for (const TimelineEvent& e : r.events) {
    if (!e.fault) continue;
    if (!marks.empty() && e.t - marks.back().first < 0.01 * r.switchoverAt) {
      marks.back().second += ", " + shortLabel(e.text);
    } else {
      marks.emplace_back(e.t, shortLabel(e.text));
    }
  }
  int tag = 1;
  for (const auto& [t, text] : marks) {
    const double x = t / scale;
    s << "set arrow " << tag << " from " << x << ", graph 0 to " << x
      << ", graph 1 nohead dt 3 lc rgb '#999999'\n";
    s << "set label " << tag << ' ' << single(text) << " at " << x
      << ", graph 0.97 rotate by 90 right font ',8' tc rgb '#555555' offset -0.4,0\n";
    ++tag;
  }
}

void runGnuplot(const std::string& gnuplot, const std::string& script) {
  const std::string path = "gnuplot";
  char* argv[] = {const_cast<char*>(path.c_str()), const_cast<char*>(script.c_str()), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, gnuplot.c_str(), nullptr, nullptr, argv, environ) != 0) {
    throw std::runtime_error("cannot run " + gnuplot);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("gnuplot failed");
}

std::string title(const Report& r) {
  const auto& c = r.corruptions;
  return "MorvikLib chassis simulation: " + formatSeconds(r.chassisSeconds) + ", seed " +
         std::to_string(r.seed) + "; " + std::to_string(c.injected) +
         " corruptions: " + std::to_string(c.foundByAudit) + " found by the audit, " +
         std::to_string(c.healedOtherwise) + " healed otherwise; checks " +
         (r.passed() ? "passed" : "FAILED");
}

U64 maxCount(const Report& r) {
  U64 most = 0;
  for (const Sample& s : r.samples) {
    most = std::max({most, s.auditRepairs, s.auditMismatches, s.outstandingCorruptions});
  }
  return most;
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

std::string timelineScript(const Report& r, const std::string& csvPath,
                           const std::string& pngPath) {
  const double scale = r.switchoverAt >= 600.0 ? 60.0 : 1.0;
  const char* unit = scale == 60.0 ? "minutes" : "seconds";
  std::ostringstream s;
  s << "set datafile separator ','\n"
       "if (strstrt(GPVAL_TERMINALS, 'pngcairo') > 0) {\n"
       "  set terminal pngcairo size 1280,1000 font ',10'\n"
       "} else {\n"
       "  set terminal png size 1280,1000\n"
       "}\n"
    << "set output " << single(pngPath) << "\n"
    << "set multiplot layout 3,1 title " << single(title(r)) << "\n"
    << "set xrange [0:" << r.switchoverAt / scale << "]\nset grid\nset key top left\n"
    << "set lmargin 12\nset rmargin 4\n";
  faultMarks(s, r, scale);
  const std::string data = single(csvPath);
  s << "set title 'Chunks waiting for the background copier (peak per sample)'\n"
       "set ylabel 'chunks'\nset yrange [0:*]\n"
    << "plot " << data << " using ($1/" << scale
    << "):3 skip 1 with impulses lw 2 lc rgb '#c0392b' title 'pending peak'\n"
    << "unset label\n"
       "set title 'Mirrored to the standby'\nset ylabel 'KiB per second'\n"
    << "plot " << data << " using ($1/" << scale
    << "):($5/1024) skip 1 with lines lw 1.5 lc rgb '#2471a3' title 'mirrored'\n"
    << "set title 'Audit and corruptions'\nset ylabel 'count'\n"
    << "set yrange [0:" << static_cast<double>(maxCount(r)) * 1.15 + 1 << "]\n"
    << (maxCount(r) <= 10 ? "set ytics 1\n" : "") << "set xlabel 'chassis time (" << unit << ")'\n"
    << "plot " << data << " using ($1/" << scale
    << "):8 skip 1 with steps lw 2 lc rgb '#27ae60' title 'audit repairs', " << data
    << " using ($1/" << scale
    << "):9 skip 1 with steps lw 1.5 dt 2 lc rgb '#8e44ad' title 'mismatches reported', " << data
    << " using ($1/" << scale
    << "):10 skip 1 with steps lw 2 lc rgb '#e67e22' title 'corruptions outstanding'\n"
    << "unset multiplot\n";
  return s.str();
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
    runGnuplot(gnuplot, scriptPath);
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
