#include "TimelineScript.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include "Units.h"

namespace MorvikSim {

namespace {

// The picture's geometry, in pixels and in fractions of it; every panel shares the plot area's
// left and right edges, so that their time axes line up under the fault strip.
constexpr int kWidth = 1280;
constexpr int kHeight = 1240;
constexpr double kLeft = 0.08;
constexpr double kRight = 0.92;
constexpr double kPlotPixels = (kRight - kLeft) * kWidth;
// The strip's rows, and a generous width of one character of its font.
constexpr int kRows = 9;
constexpr double kCharPixels = 7.0;
constexpr std::size_t kLabelChars = 32;
// Margins of the time axis, so that a bar at the very start or end is not hidden by the border.
constexpr double kMarginShare = 0.01;

// A gnuplot single-quoted string: only the quote itself needs escaping, by doubling it.
std::string single(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

// A fault's label without its details ("corrupt routes+0x1a2b" is drawn as "corrupt routes"),
// cut to a length that fits the strip.
std::string labelText(const std::string& text) {
  std::string label = text.substr(0, text.find('+'));
  if (label.size() > kLabelChars) label = label.substr(0, kLabelChars - 2) + "..";
  return label;
}

struct Axis {
  double scale;  // chassis seconds per unit drawn
  double min;
  double max;
  double pixels(double t) const { return (t / scale - min) / (max - min) * kPlotPixels; }
};

Axis timeAxis(const Report& r) {
  const double scale = r.switchoverAt >= 600.0 ? 60.0 : 1.0;
  const double end = std::max(r.switchoverAt, 1.0) / scale;
  return {scale, -kMarginShare * end, (1.0 + kMarginShare) * end};
}

// The panel between screen heights bottom and top, with its title and y label.
void panel(std::ostream& s, double bottom, double top, const char* title, const char* ylabel) {
  s << "set tmargin at screen " << top << "\nset bmargin at screen " << bottom << "\n"
    << "set title " << single(title) << "\nset ylabel " << single(ylabel) << "\n";
}

void faultStrip(std::ostream& s, const Report& r, const Axis& axis) {
  std::size_t unlabelled = 0;
  const std::vector<FaultLabel> labels = layFaultLabels(r, kRows, unlabelled);
  std::string title = "Injected faults";
  if (unlabelled > 0) title += " (" + std::to_string(unlabelled) + " more without a label)";
  panel(s, 0.855, 0.945, title.c_str(), "");
  s << "unset border\nunset xtics\nunset ytics\nunset grid\nset yrange [0:" << kRows << "]\n";
  int tag = 1;
  for (const FaultLabel& l : labels) {
    const double x = l.t / axis.scale;
    const double y = kRows - l.row - 0.5;
    s << "set arrow " << tag << " from " << x << ", 0 to " << x << ", " << y
      << " nohead dt 3 lc rgb '#bbbbbb' back\n"
      << "set label " << tag << ' ' << single(l.text) << " at " << x << ", " << y
      << (l.leftOfMark ? " right offset -0.6,0" : " left offset 0.6,0")
      << " point pt 7 ps 0.5 lc rgb '#555555' font ',9' tc rgb '#333333' front\n";
    ++tag;
  }
  s << "plot -1 notitle\nunset label\nunset arrow\n"
    << "set border\nset xtics\nset ytics\nset grid\n";
}

// Every fault again as a dotted line behind the data of each panel.
void faultLines(std::ostream& s, const Report& r, const Axis& axis) {
  int tag = 1;
  for (const TimelineEvent& e : r.events) {
    if (!e.fault) continue;
    s << "set arrow " << tag++ << " from " << e.t / axis.scale << ", graph 0 to "
      << e.t / axis.scale << ", graph 1 nohead dt 3 lc rgb '#bbbbbb' back\n";
  }
}

struct Peaks {
  double pending = 0;
  double mirroredKiBps = 0;
  double staleKiB = 0;
  double age = 0;
  double count = 0;
};

Peaks peaksOf(const Report& r) {
  Peaks p;
  double previous = 0.0;
  for (const Sample& s : r.samples) {
    const double period = s.t - previous;
    previous = s.t;
    p.pending = std::max(p.pending, static_cast<double>(s.pendingPeak));
    if (period > 0) {
      p.mirroredKiBps =
          std::max(p.mirroredKiBps, static_cast<double>(s.mirroredInPeriod) / period / 1024.0);
    }
    p.staleKiB = std::max(p.staleKiB, static_cast<double>(s.freshness.staleBytes) / 1024.0);
    p.age = std::max(p.age, s.freshness.oldestPendingAge);
    p.count = std::max({p.count, static_cast<double>(s.auditMismatches),
                        static_cast<double>(s.outstandingCorruptions)});
  }
  return p;
}

// Room above the highest value for the panel's key.
std::string yrange(double peak) {
  std::ostringstream s;
  s << "[0:" << std::max(peak, 1.0) * 1.3 << "]";
  return s.str();
}

std::string title(const Report& r) {
  const auto& c = r.corruptions;
  return "MorvikLib chassis simulation: " + formatSeconds(r.chassisSeconds) + ", seed " +
         std::to_string(r.seed) + "; " + std::to_string(c.injected) +
         " corruptions: " + std::to_string(c.foundByAudit) + " found by the audit, " +
         std::to_string(c.healedOtherwise) + " healed otherwise; checks " +
         (r.passed() ? "passed" : "FAILED");
}

}  // namespace

std::vector<FaultLabel> layFaultLabels(const Report& report, int rows, std::size_t& unlabelled) {
  const Axis axis = timeAxis(report);
  std::vector<double> rowEnds(static_cast<std::size_t>(rows),
                              -std::numeric_limits<double>::infinity());
  std::vector<FaultLabel> labels;
  unlabelled = 0;
  for (const TimelineEvent& e : report.events) {
    if (!e.fault) continue;
    FaultLabel l{e.t, labelText(e.text), 0, false};
    const double x = axis.pixels(e.t);
    const double width = kCharPixels * static_cast<double>(l.text.size() + 2);
    l.leftOfMark = x + width > kPlotPixels;
    const double begin = l.leftOfMark ? x - width : x;
    const auto row =
        std::find_if(rowEnds.begin(), rowEnds.end(), [begin](double end) { return end < begin; });
    if (row == rowEnds.end()) {
      ++unlabelled;
      continue;
    }
    *row = std::max(x, begin + width) + kCharPixels;
    l.row = static_cast<int>(row - rowEnds.begin());
    labels.push_back(l);
  }
  return labels;
}

std::string timelineScript(const Report& r, const std::string& csvPath,
                           const std::string& pngPath) {
  const Axis axis = timeAxis(r);
  const Peaks peaks = peaksOf(r);
  const std::string data = single(csvPath);
  const std::string x = "($1/" + std::to_string(axis.scale) + ")";
  std::ostringstream s;
  s << "set datafile separator ','\n"
       "if (strstrt(GPVAL_TERMINALS, 'pngcairo') > 0) {\n"
       "  set terminal pngcairo size "
    << kWidth << "," << kHeight
    << " font ',10'\n"
       "} else {\n"
       "  set terminal png size "
    << kWidth << "," << kHeight << "\n}\n"
    << "set output " << single(pngPath) << "\n"
    << "set multiplot title " << single(title(r)) << "\n"
    << "set lmargin at screen " << kLeft << "\nset rmargin at screen " << kRight << "\n"
    << "set xrange [" << axis.min << ":" << axis.max << "]\nset grid\nset key top left\n";
  faultStrip(s, r, axis);
  faultLines(s, r, axis);
  panel(s, 0.655, 0.805, "Chunks waiting for the background copier (peak per sample)", "chunks");
  s << "set yrange " << yrange(peaks.pending) << "\nplot " << data << " using " << x
    << ":3 skip 1 with impulses lw 2 lc rgb '#c0392b' title 'pending peak'\n";
  panel(s, 0.455, 0.605, "Mirrored to the standby", "KiB per second");
  s << "set yrange " << yrange(peaks.mirroredKiBps) << "\nplot " << data << " using " << x
    << ":($5/1024) skip 1 with lines lw 1.5 lc rgb '#2471a3' title 'mirrored'\n";
  panel(s, 0.255, 0.405, "How far the standby's copy is behind", "stale KiB");
  s << "set yrange " << yrange(peaks.staleKiB) << "\nset y2range " << yrange(peaks.age)
    << "\nset ytics nomirror\nset y2tics\nset y2label 'seconds'\nplot " << data << " using " << x
    << ":($12/1024) skip 1 with impulses lw 2 lc rgb '#e67e22' title 'stale bytes (KiB)', " << data
    << " using " << x
    << ":14 skip 1 axes x1y2 with lines lw 1.5 lc rgb '#6c3483' title 'oldest write not yet "
       "on the standby'\n"
    << "unset y2tics\nunset y2label\nset ytics mirror\n";
  panel(s, 0.055, 0.205, "Audit and corruptions", "count");
  s << "set yrange " << yrange(peaks.count) << "\n"
    << (peaks.count <= 10 ? "set ytics 1\n" : "") << "set xlabel 'chassis time ("
    << (axis.scale == 60.0 ? "minutes" : "seconds") << ")'\n"
    << "plot " << data << " using " << x
    << ":9 skip 1 with steps lw 8 lc rgb '#d7bde2' title 'mismatches reported', " << data
    << " using " << x << ":8 skip 1 with steps lw 2 lc rgb '#1e8449' title 'audit repairs', "
    << data << " using " << x
    << ":10 skip 1 with steps lw 2 lc rgb '#e67e22' title 'corruptions outstanding'\n"
    << "unset multiplot\n";
  return s.str();
}

}  // namespace MorvikSim
