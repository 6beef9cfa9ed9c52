#include "Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <string_view>

#include "FaultParser.h"
#include "Layout.h"
#include "Limits.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

using namespace limits;
using Reader = std::function<void(SimOptions&, const std::string&)>;

// CLI11's own messages quote what was typed; they are cut too, but later.
constexpr std::size_t kShownMessageBytes = 200;

// An option that takes a value: CLI11 takes the command line apart, the reader turns the text into
// the option's value, decimal and within its range.
struct ValueOption {
  const char* name;
  const char* type;
  const char* group;
  std::string help;
  Reader read;
  // How often it may be given; later values of an option given once replace earlier ones.
  std::size_t most = 1;
};

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const auto at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

// CLI11 indents the lines of a description but does not wrap them: lines longer than the help's
// width are wrapped here, at blanks, keeping their indentation.
std::string wrapped(const std::string& text) {
  constexpr std::size_t kWidth = 72;
  std::string out;
  for (std::string_view line : split(text, '\n')) {
    const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
    std::string current(line.substr(0, indent));
    for (std::string_view word : split(line.substr(indent), ' ')) {
      if (current.size() > indent && current.size() + 1 + word.size() > kWidth) {
        out += current + "\n";
        current = std::string(indent, ' ');
      }
      current += (current.size() > indent ? " " : "") + std::string(word);
    }
    out += current + "\n";
  }
  out.pop_back();
  return out;
}

std::string range(double min, double max) {
  return formatSeconds(min) + " to " + formatSeconds(max);
}

Feature readFeature(const std::string& text) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) refuse("--feature", text, "NAME:SIZE, e.g. routes:1M");
  return {
      text.substr(0, colon),
      static_cast<U32>(readBytes("--feature " + shown(text.substr(0, colon)) + " size",
                                 std::string_view(text).substr(colon + 1), 1, Layout::kMaxTotal))};
}

MixWeights readMix(const std::string& text) {
  MixWeights mix{0, 0, 0, 0};
  for (std::string_view item : split(text, ',')) {
    const auto eq = item.find('=');
    const std::string_view kind = item.substr(0, eq);
    double* weight = kind == "small"   ? &mix.small
                     : kind == "table" ? &mix.table
                     : kind == "set"   ? &mix.set
                     : kind == "copy"  ? &mix.copy
                                       : nullptr;
    if (eq == std::string_view::npos || weight == nullptr) {
      refuse("--mix", text, "KIND=WEIGHT items separated by ',', kinds small, table, set and copy");
    }
    *weight = readNumber("--mix " + std::string(kind), item.substr(eq + 1), 0.0, kMaxWeight);
  }
  return mix;
}

std::vector<U32> readChunkSizes(const std::string& text) {
  std::vector<U32> sizes;
  for (std::string_view item : split(text, ',')) {
    sizes.push_back(static_cast<U32>(readBytes("--chunk-sizes", item, 64, 16u << 20)));
    Layout::checkChunkSize(sizes.back(), "--chunk-sizes");
  }
  if (sizes.size() > kMaxChunkSizes) {
    refuse("--chunk-sizes", text, "at most " + std::to_string(kMaxChunkSizes) + " sizes");
  }
  return sizes;
}

std::vector<ValueOption> valueOptions() {
  const std::string maxOps = std::to_string(static_cast<U64>(kMaxOperations));
  return {
      {"--duration", "T", "Run",
       "chassis time to run, " + range(kMinDuration, kMaxDuration) +
           " (default 1h, or 15 audit intervals when the default faults run and that is longer); "
           "with the default faults at least 15 audit intervals (15m00s with 60-second audits)",
       [](SimOptions& o, const std::string& v) {
         o.duration = readSeconds("--duration", v, kMinDuration, kMaxDuration);
       }},
      {"--switchover-at", "T", "Run",
       "stop the active at T instead of at the end of the run, from " +
           formatSeconds(kMinDuration) + " to the run's duration",
       [](SimOptions& o, const std::string& v) {
         o.switchoverAt = readSeconds("--switchover-at", v, kMinDuration, kMaxDuration);
       }},
      {"--seed", "N", "Run",
       "seed of the workload and of the fault schedule, 0 to 18446744073709551615 (default 1)",
       [](SimOptions& o, const std::string& v) { o.seed = readCount("--seed", v, 0, ~U64{0}); }},
      {"--feature", "NAME:SIZE", "Layout",
       "a feature of SIZE bytes (suffix K, M, G); repeat for more, up to " +
           std::to_string(kMaxFeatures) +
           " features of at most 1 GiB in all. The first one replaces the default layout "
           "(routes:1M, neighbors:512K, sessions:256K, counters:64K). A NAME has 1 to " +
           std::to_string(kMaxNameBytes) +
           " letters, digits, '_', '-' or '.'. Every feature must be a whole number of chunks "
           "for every chunk size of the run, or the manifest is refused.",
       [](SimOptions& o, const std::string& v) { o.features.push_back(readFeature(v)); },
       kMaxFeatures},
      {"--chunk-sizes", "LIST", "Layout",
       "chunk sizes of the run, up to " + std::to_string(kMaxChunkSizes) +
           " powers of two from 64 to 16M (default 4096,16384); the first is used from the "
           "start, chunk faults without a size switch to the next one in turn",
       [](SimOptions& o, const std::string& v) { o.chunkSizes = readChunkSizes(v); }},
      {"--rate", "N", "Workload",
       "operations per second of chassis time, in a Poisson stream, 0 to 100000 (default 200; "
       "0 for none); at most " +
           maxOps + " operations per run",
       [](SimOptions& o, const std::string& v) {
         o.rate = readNumber("--rate", v, 0.0, kMaxRate);
       }},
      {"--mix", "small=W,table=W,set=W,copy=W", "Workload",
       "relative weights, each 0 to 1000000 and not all 0 (default small=80,table=4,set=8,"
       "copy=8): short doWrite updates, whole-chunk doWrite tables, doSet fills and doCopy "
       "moves of up to 512 bytes; a kind left out weighs 0",
       [](SimOptions& o, const std::string& v) { o.mix = readMix(v); }},
      {"--small-max", "BYTES", "Workload",
       "largest short update, 1 to 64K and at most the smallest feature (default 256)",
       [](SimOptions& o, const std::string& v) {
         o.smallMax = static_cast<U32>(readBytes("--small-max", v, 1, kMaxSmallWrite));
       }},
      {"--locality", "P", "Workload",
       "share of operations that land in their feature's hot eighth, 0 to 1 (default 0.95); "
       "the rest go anywhere in the feature",
       [](SimOptions& o, const std::string& v) {
         o.locality = readNumber("--locality", v, 0.0, 1.0);
       }},
      {"--audit-interval", "T", "Audit",
       "time between audit ticks, " + range(kMinAuditInterval, kMaxAuditInterval) +
           " (default 60s), at most " + std::to_string(static_cast<int>(kMaxAuditTicks)) +
           " ticks per run",
       [](SimOptions& o, const std::string& v) {
         o.auditInterval = readSeconds("--audit-interval", v, kMinAuditInterval, kMaxAuditInterval);
       }},
      {"--faults", "default|none", "Faults",
       "the default schedule runs when no --fault is given; \"default\" keeps it with explicit "
       "faults, \"none\" runs only the explicit ones. It needs a run of at least " +
           std::to_string(static_cast<int>(kDefaultScheduleIntervals)) +
           " audit intervals (15m00s with the default 60-second audits).",
       [](SimOptions& o, const std::string& v) {
         if (v != "default" && v != "none") refuse("--faults", v, "default or none");
         o.faultSet = v == "default" ? SimOptions::FaultSet::defaults : SimOptions::FaultSet::none;
       }},
      {"--corruptions", "N", "Faults",
       "corruptions in the default schedule, 0 to " + std::to_string(kMaxCorruptions) +
           " (default 8): two in one audit interval of one feature, one in the silent standby's "
           "feature, one just before the standby's memory goes away, one just before a "
           "chunk-size change, the rest at random",
       [](SimOptions& o, const std::string& v) {
         o.corruptions = static_cast<unsigned>(readCount("--corruptions", v, 0, kMaxCorruptions));
       }},
      {"--fault", "KIND@TIME[,key=value...]", "Faults",
       "one fault at TIME from the start, before the switchover; repeat for more, up to " +
           std::to_string(kMaxFaults) +
           ". Kinds and keys:\n"
           "  corrupt[,feature=NAME][,offset=BYTES]\n"
           "      flip one byte of the standby's copy (doWriteRemoteTest)\n"
           "  silent[,feature=NAME][,for=T]\n"
           "      the standby's audit responder stays silent (default 6.5 audit\n"
           "      intervals, long enough for the audit to give up and resync)\n"
           "  away[,for=T][,record=zero|null]\n"
           "      the standby's memory goes away (status record with address 0, or\n"
           "      no record) and comes back blank after T (default 2 audit\n"
           "      intervals), before the switchover: full resync\n"
           "  chunk[,size=BYTES]\n"
           "      every memory changes its chunk size (remoteCopyChunkSizeIs): full\n"
           "      resync",
       [](SimOptions& o, const std::string& v) { o.faults.push_back(parseFault(v)); }, kMaxFaults},
      {"--csv", "FILE", "Output",
       "write the timeline: time, pending chunks, bytes mirrored, audit events, freshness",
       [](SimOptions& o, const std::string& v) { o.csvFile = v; }},
      {"--plot", "FILE.png", "Output",
       "draw the timeline with gnuplot (Debian package gnuplot-nox)",
       [](SimOptions& o, const std::string& v) { o.plotFile = v; }},
      {"--sample", "T", "Output",
       "timeline sample interval: from " + formatSeconds(kMinSampleInterval) +
           " and a 100000th of the run to a 720th of the run (default: a 720th of the run)",
       [](SimOptions& o, const std::string& v) {
         o.sampleInterval = readSeconds("--sample", v, kMinSampleInterval, kMaxDuration);
       }},
      {"--vmid", "ID", "Output",
       "run on simulated machine ID (1 to " + std::to_string(kMaxVmidBytes) +
           " printable characters, no blanks) instead of a fresh one",
       [](SimOptions& o, const std::string& v) {
         if (v.empty()) refuse("--vmid", v, "1 to 200 printable characters, no blanks");
         o.vmid = v;
       }},
  };
}

struct Flag {
  const char* name;
  const char* group;
  const char* help;
  bool SimOptions::*member;
};

const Flag kFlags[] = {
    {"--real-time", "Run", "run on the real clock instead of virtual time", &SimOptions::realTime},
    {"--nosync", "Faults",
     "set NOSYNC_MORVIK for the run, so that doSync does nothing: audit repairs and the resyncs "
     "after a silent or returning standby or a chunk-size change mark no chunk (chunks the "
     "features write still reach the standby through the copier); a run that must fail when "
     "corruptions are injected",
     &SimOptions::nosync},
    {"--json", "Output", "print the final report as JSON instead of text", &SimOptions::json},
    {"--quiet", "Output", "no live progress line (it is only shown when stderr is a terminal)",
     &SimOptions::quiet},
};

constexpr const char* kIntro =
    "Simulates one chassis: the active supervisor's MorvikLib (one MorvikMemory and one\n"
    "MorvikMemorySm per feature, with their audits) mirrors the features' state into the\n"
    "standby's memory, while the simulator plays the other agents (manifest, status, the\n"
    "standby's audit responder), drives a feature workload and injects faults. At every\n"
    "timeline sample it measures how far the standby's copy is behind; at the end the active\n"
    "stops without warning (a switchover) and the standby's copy is compared with the\n"
    "active's memory.\n\n"
    "Everything runs in one process on real shared memory, on a simulated machine of its own\n"
    "(SIMULATION_VMID is set to a fresh value unless given). Chassis time is virtual unless\n"
    "--real-time is given, so an hour of chassis time takes well under a second.\n";

constexpr const char* kFooter =
    "Signal SIGUSR1 injects one corruption at once; SIGINT or SIGTERM ends the run with a\n"
    "switchover.\n\n"
    "Numbers are decimal. Times take a unit: ms, s, m or h (no unit: seconds). Sizes take K, M\n"
    "or G (powers of 1024).\n\n"
    "Exit status: 0 when every check held (after the copier came to rest the two copies were\n"
    "equal, every injected corruption was repaired, by the audit or otherwise, and no stale\n"
    "chunk was ever unknown to the copier); 1 when a check failed (the report says why); 2 for\n"
    "a bad option or value; 3 when the run could not be set up or an output could not be\n"
    "written; 130 when interrupted.";

// The application, its options bound to `typed` (one list of texts per option, in the order given)
// and to the flags of `options`.
void define(CLI::App& app, const std::vector<ValueOption>& values,
            std::vector<std::vector<std::string>>& typed, SimOptions& options) {
  app.description(kIntro);
  app.footer(kFooter);
  app.get_formatter()->column_width(26);
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  typed.resize(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const ValueOption& v = values[i];
    CLI::Option* option = app.add_option(v.name, typed[i], wrapped(v.help))
                              ->type_name(v.type)
                              ->group(v.group)
                              ->allow_extra_args(false)
                              ->expected(1);
    option->multi_option_policy(v.most > 1 ? CLI::MultiOptionPolicy::TakeAll
                                           : CLI::MultiOptionPolicy::TakeLast);
  }
  for (const Flag& f : kFlags) {
    app.add_flag(f.name, options.*f.member, wrapped(f.help))
        ->group(f.group)
        ->disable_flag_override();
  }
  app.set_help_flag("-h,--help", "this text")->group("Output");
}

}  // namespace

SimOptions parseOptions(int argc, const char* const* argv) {
  SimOptions options;
  CLI::App app("", "morvik_sim");
  const std::vector<ValueOption> values = valueOptions();
  std::vector<std::vector<std::string>> typed;
  define(app, values, typed, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    options.help = true;
    return options;
  } catch (const CLI::ParseError& e) {
    throw UsageError(shown(e.what(), kShownMessageBytes));
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    const ValueOption& v = values[i];
    if (typed[i].size() > v.most) {
      refuse(v.name, typed[i][v.most], "at most " + std::to_string(v.most) + " of them");
    }
    // The first --feature replaces the default layout; later ones add to it.
    if (std::string_view(v.name) == "--feature" && !typed[i].empty()) options.features.clear();
    for (const std::string& text : typed[i]) v.read(options, text);
  }
  // Slow audits need a longer run for the default faults; without a --duration the run grows.
  const auto duration = std::find_if(values.begin(), values.end(), [](const ValueOption& v) {
    return std::string_view(v.name) == "--duration";
  });
  if (typed[duration - values.begin()].empty() && options.usesDefaultFaults()) {
    options.duration = std::clamp(kDefaultScheduleIntervals * options.auditInterval,
                                  options.duration, kMaxDuration);
  }
  validateOptions(options);
  return options;
}

std::string usageText() {
  CLI::App app("", "morvik_sim");
  const std::vector<ValueOption> values = valueOptions();
  std::vector<std::vector<std::string>> typed;
  SimOptions options;
  define(app, values, typed, options);
  return app.help();
}

}  // namespace MorvikSim
