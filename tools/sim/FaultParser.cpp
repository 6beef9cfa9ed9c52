#include "FaultParser.h"

#include <string>

#include "Layout.h"
#include "Limits.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

constexpr const char* kForm = "KIND@TIME[,key=value...] with KIND corrupt, silent, away or chunk";

Fault::Kind parseKind(std::string_view word, std::string_view text) {
  if (word == "corrupt") return Fault::Kind::corrupt;
  if (word == "silent") return Fault::Kind::silent;
  if (word == "away") return Fault::Kind::away;
  if (word == "chunk") return Fault::Kind::chunk;
  refuse("--fault", text, kForm);
}

// Which keys each kind accepts: a key that means nothing for the kind is an error, not ignored.
const char* keysOf(Fault::Kind kind) {
  switch (kind) {
    case Fault::Kind::corrupt:
      return "feature=NAME and offset=BYTES";
    case Fault::Kind::silent:
      return "feature=NAME and for=T";
    case Fault::Kind::away:
      return "for=T and record=zero|null";
    case Fault::Kind::chunk:
      return "size=BYTES";
  }
  return "";
}

void applyKey(Fault& fault, std::string_view item, std::string_view text) {
  const auto eq = item.find('=');
  const std::string_view key = item.substr(0, eq);
  const std::string_view value = eq == std::string_view::npos ? "" : item.substr(eq + 1);
  const std::string keys = keysOf(fault.kind);
  const std::string label = "--fault " + shown(text);
  if (eq == std::string_view::npos ||
      (" " + keys).find(" " + std::string(key) + "=") == std::string::npos) {
    refuse("--fault", text, "keys " + keys + " for a " + kindName(fault.kind) + " fault");
  }
  if (key == "feature") {
    if (value.empty()) refuse(label + " feature", value, "the name of a feature");
    fault.feature = value;
  } else if (key == "offset") {
    fault.offset = static_cast<U32>(readBytes(label + " offset", value, 0, 0xffffffffULL));
  } else if (key == "for") {
    fault.duration =
        readSeconds(label + " for", value, limits::kMinAuditInterval, limits::kMaxDuration);
  } else if (key == "record") {
    if (value != "null" && value != "zero") refuse(label + " record", value, "zero or null");
    fault.nullRecord = value == "null";
  } else if (key == "size") {
    fault.chunkSize = static_cast<U32>(readBytes(label + " size", value, 64, 16u << 20));
    Layout::checkChunkSize(fault.chunkSize, label + " size");
  }
}

}  // namespace

const char* kindName(Fault::Kind kind) {
  switch (kind) {
    case Fault::Kind::corrupt:
      return "corrupt";
    case Fault::Kind::silent:
      return "silent";
    case Fault::Kind::away:
      return "away";
    case Fault::Kind::chunk:
      return "chunk";
  }
  return "?";
}

Fault parseFault(std::string_view text) {
  const auto at = text.find('@');
  if (at == std::string_view::npos) refuse("--fault", text, kForm);
  Fault fault;
  fault.kind = parseKind(text.substr(0, at), text);
  std::string_view rest = text.substr(at + 1);
  const auto comma = rest.find(',');
  fault.at = readSeconds("--fault " + shown(text) + " time", rest.substr(0, comma), 0.0,
                         limits::kMaxDuration);
  if (comma == std::string_view::npos) return fault;
  rest = rest.substr(comma + 1);
  for (;;) {
    const auto next = rest.find(',');
    const std::string_view item = rest.substr(0, next);
    if (item.empty()) refuse("--fault", text, std::string(kForm) + ", and no empty item");
    applyKey(fault, item, text);
    if (next == std::string_view::npos) return fault;
    rest = rest.substr(next + 1);
  }
}

}  // namespace MorvikSim
