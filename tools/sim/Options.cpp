#include "Options.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string_view>

#include "FaultParser.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

using Setter = std::function<void(SimOptions&, std::string_view)>;

struct OptionDef {
  bool takesValue;
  Setter set;
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

U32 parseU32Bytes(std::string_view text, std::string_view what) {
  const U64 value = parseBytes(text);
  if (value > 0xffffffffULL)
    throw UsageError(std::string(what) + " '" + std::string(text) + "' is too large");
  return static_cast<U32>(value);
}

Feature parseFeature(std::string_view text) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos || colon == 0) {
    throw UsageError("bad feature '" + std::string(text) + "' (want NAME:SIZE, e.g. routes:1M)");
  }
  return {std::string(text.substr(0, colon)),
          parseU32Bytes(text.substr(colon + 1), "feature size")};
}

MixWeights parseMix(std::string_view text) {
  MixWeights mix{0, 0, 0, 0};
  for (std::string_view item : split(text, ',')) {
    const auto eq = item.find('=');
    if (eq == std::string_view::npos) throw UsageError("bad mix item '" + std::string(item) + "'");
    const std::string_view kind = item.substr(0, eq);
    const double weight = parseNumber(item.substr(eq + 1));
    if (kind == "small") {
      mix.small = weight;
    } else if (kind == "table") {
      mix.table = weight;
    } else if (kind == "set") {
      mix.set = weight;
    } else if (kind == "copy") {
      mix.copy = weight;
    } else {
      throw UsageError("unknown operation '" + std::string(kind) +
                       "' in --mix (small, table, set, copy)");
    }
  }
  return mix;
}

std::vector<U32> parseChunkSizes(std::string_view text) {
  std::vector<U32> sizes;
  for (std::string_view item : split(text, ',')) sizes.push_back(parseU32Bytes(item, "chunk size"));
  return sizes;
}

const std::map<std::string, OptionDef, std::less<>>& optionTable() {
  static const std::map<std::string, OptionDef, std::less<>> table{
      {"--duration",
       {true, [](SimOptions& o, std::string_view v) { o.duration = parseSeconds(v); }}},
      {"--switchover-at",
       {true, [](SimOptions& o, std::string_view v) { o.switchoverAt = parseSeconds(v); }}},
      {"--audit-interval",
       {true, [](SimOptions& o, std::string_view v) { o.auditInterval = parseSeconds(v); }}},
      {"--rate", {true, [](SimOptions& o, std::string_view v) { o.rate = parseNumber(v); }}},
      {"--mix", {true, [](SimOptions& o, std::string_view v) { o.mix = parseMix(v); }}},
      {"--small-max",
       {true,
        [](SimOptions& o, std::string_view v) { o.smallMax = parseU32Bytes(v, "--small-max"); }}},
      {"--locality",
       {true, [](SimOptions& o, std::string_view v) { o.locality = parseNumber(v); }}},
      {"--seed", {true, [](SimOptions& o, std::string_view v) { o.seed = parseCount(v); }}},
      {"--feature",
       {true, [](SimOptions& o, std::string_view v) { o.features.push_back(parseFeature(v)); }}},
      {"--chunk-sizes",
       {true, [](SimOptions& o, std::string_view v) { o.chunkSizes = parseChunkSizes(v); }}},
      {"--faults",
       {true,
        [](SimOptions& o, std::string_view v) {
          if (v != "default" && v != "none") {
            throw UsageError("bad --faults '" + std::string(v) + "' (default or none)");
          }
          o.faultSet = v == "default" ? SimOptions::FaultSet::defaults : SimOptions::FaultSet::none;
        }}},
      {"--corruptions",
       {true,
        [](SimOptions& o, std::string_view v) {
          o.corruptions = static_cast<unsigned>(std::min<U64>(parseCount(v), 1u << 20));
        }}},
      {"--fault",
       {true, [](SimOptions& o, std::string_view v) { o.faults.push_back(parseFault(v)); }}},
      {"--sample",
       {true, [](SimOptions& o, std::string_view v) { o.sampleInterval = parseSeconds(v); }}},
      {"--real-time", {false, [](SimOptions& o, std::string_view) { o.realTime = true; }}},
      {"--nosync", {false, [](SimOptions& o, std::string_view) { o.nosync = true; }}},
      {"--json", {false, [](SimOptions& o, std::string_view) { o.json = true; }}},
      {"--quiet", {false, [](SimOptions& o, std::string_view) { o.quiet = true; }}},
      {"--csv", {true, [](SimOptions& o, std::string_view v) { o.csvFile = v; }}},
      {"--plot", {true, [](SimOptions& o, std::string_view v) { o.plotFile = v; }}},
      {"--vmid", {true, [](SimOptions& o, std::string_view v) { o.vmid = v; }}},
      {"--help", {false, [](SimOptions& o, std::string_view) { o.help = true; }}},
  };
  return table;
}

}  // namespace

SimOptions parseOptions(int argc, const char* const* argv) {
  SimOptions options;
  bool featuresGiven = false;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    std::string_view value;
    bool inlineValue = false;
    if (const auto eq = arg.find('='); arg.starts_with("--") && eq != std::string_view::npos) {
      value = arg.substr(eq + 1);
      arg = arg.substr(0, eq);
      inlineValue = true;
    }
    if (arg == "-h") arg = "--help";
    const auto it = optionTable().find(arg);
    if (it == optionTable().end()) {
      if (!arg.starts_with("-")) throw UsageError("unexpected argument '" + std::string(arg) + "'");
      throw UsageError("unknown option '" + std::string(arg) + "'");
    }
    const OptionDef& def = it->second;
    if (def.takesValue && !inlineValue) {
      if (i + 1 >= argc) throw UsageError("option " + std::string(arg) + " needs a value");
      value = argv[++i];
    } else if (!def.takesValue && inlineValue) {
      throw UsageError("option " + std::string(arg) + " takes no value");
    }
    // The first --feature replaces the default layout; later ones add to it.
    if (arg == "--feature" && !featuresGiven) {
      options.features.clear();
      featuresGiven = true;
    }
    def.set(options, value);
  }
  if (!options.help) validateOptions(options);
  return options;
}

}  // namespace MorvikSim
