#include "FaultParser.h"

#include <string>

#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

Fault::Kind parseKind(std::string_view word, std::string_view text) {
  if (word == "corrupt") return Fault::Kind::corrupt;
  if (word == "silent") return Fault::Kind::silent;
  if (word == "away") return Fault::Kind::away;
  if (word == "chunk") return Fault::Kind::chunk;
  throw UsageError("unknown fault kind '" + std::string(word) + "' in '" + std::string(text) +
                   "' (corrupt, silent, away, chunk)");
}

// Which keys each kind accepts: a key that means nothing for the kind is an error, not ignored.
bool keyAllowed(Fault::Kind kind, std::string_view key) {
  switch (kind) {
    case Fault::Kind::corrupt:
      return key == "feature" || key == "offset";
    case Fault::Kind::silent:
      return key == "feature" || key == "for";
    case Fault::Kind::away:
      return key == "for" || key == "record";
    case Fault::Kind::chunk:
      return key == "size";
  }
  return false;
}

void applyKey(Fault& fault, std::string_view key, std::string_view value) {
  if (key == "feature") {
    if (value.empty()) throw UsageError("empty feature name in a fault");
    fault.feature = value;
  } else if (key == "offset") {
    const U64 offset = parseBytes(value);
    if (offset > 0xffffffffULL)
      throw UsageError("fault offset '" + std::string(value) + "' is too large");
    fault.offset = static_cast<U32>(offset);
  } else if (key == "for") {
    fault.duration = parseSeconds(value);
    if (fault.duration <= 0.0) throw UsageError("a fault lasts more than 0 s");
  } else if (key == "record") {
    if (value != "null" && value != "zero") {
      throw UsageError("bad record '" + std::string(value) + "' (null or zero)");
    }
    fault.nullRecord = value == "null";
  } else if (key == "size") {
    const U64 size = parseBytes(value);
    if (size == 0 || size > 0xffffffffULL)
      throw UsageError("bad chunk size '" + std::string(value) + "'");
    fault.chunkSize = static_cast<U32>(size);
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
  if (at == std::string_view::npos) {
    throw UsageError("bad fault '" + std::string(text) + "' (want KIND@TIME[,key=value...])");
  }
  Fault fault;
  fault.kind = parseKind(text.substr(0, at), text);
  std::string_view rest = text.substr(at + 1);
  const auto comma = rest.find(',');
  fault.at = parseSeconds(rest.substr(0, comma));
  rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
  while (!rest.empty()) {
    const auto next = rest.find(',');
    const std::string_view item = rest.substr(0, next);
    rest = next == std::string_view::npos ? std::string_view() : rest.substr(next + 1);
    const auto eq = item.find('=');
    const std::string_view key = item.substr(0, eq);
    if (eq == std::string_view::npos || !keyAllowed(fault.kind, key)) {
      throw UsageError("bad item '" + std::string(item) + "' for a " + kindName(fault.kind) +
                       " fault");
    }
    applyKey(fault, key, item.substr(eq + 1));
  }
  return fault;
}

}  // namespace MorvikSim
