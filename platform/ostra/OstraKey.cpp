#include "ostra/OstraKey.h"

#include <cstdint>
#include <cstdlib>

namespace ostra {

namespace {

constexpr std::size_t kMaxKeyBytes = 65536;
// Well short of NAME_MAX, which shm_open counts after dropping the leading '/'.
constexpr std::size_t kMaxObjectNameBytes = 200;
constexpr std::uint64_t kFnvBasis = 0xcbf29ce484222325ull;
constexpr std::uint64_t kPhysicalBase = 1ull << 32;
constexpr std::uint64_t kLongestRegionBytes = 1ull << 32;
constexpr std::uint64_t kPhysicalLimit = 1ull << 40;
constexpr std::uint64_t kPhysicalSlotBytes = 1ull << 16;

// FNV-1a: stable across processes, builds and runs, which std::hash does not promise.
constexpr std::uint64_t fnv1a(std::string_view text, std::uint64_t hash = kFnvBasis) {
  for (unsigned char byte : text) {
    hash ^= byte;
    hash *= 0x100000001b3ull;
  }
  return hash;
}

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr std::string_view kPrefix = "/ostra.";
// '~' never survives escaping, so a hashed name cannot equal an escaped one.
constexpr std::string_view kHashedPrefix = "/ostra.~";

bool keptAsIs(unsigned char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
}

// '%' and '.' are always escaped, so the '.' between machine and name splits them unambiguously.
void appendEscaped(std::string& out, std::string_view text) {
  for (unsigned char byte : text) {
    if (keptAsIs(byte)) {
      out += static_cast<char>(byte);
    } else {
      out += '%';
      out += kHexDigits[byte >> 4];
      out += kHexDigits[byte & 0xf];
    }
  }
}

void appendHex(std::string& out, std::uint64_t value) {
  for (int shift = 60; shift >= 0; shift -= 4) out += kHexDigits[(value >> shift) & 0xf];
}

std::string hashedName(std::string_view vmid, std::string_view name) {
  // The length prefix keeps ("ab", "c") and ("a", "bc") apart.
  std::string keyText = std::to_string(vmid.size());
  keyText += ':';
  keyText += vmid;
  keyText += name;
  std::string out(kHashedPrefix);
  appendHex(out, fnv1a(keyText));
  appendHex(out, fnv1a(keyText, ~kFnvBasis));
  return out;
}

}  // namespace

std::string objectNameFor(std::string_view vmid, std::string_view name) {
  std::string out(kPrefix);
  appendEscaped(out, vmid);
  out += '.';
  appendEscaped(out, name);
  if (out.size() <= kMaxObjectNameBytes) return out;
  return hashedName(vmid, name);
}

std::optional<RegionKey> currentKey(const char* name) {
  if (name == nullptr || *name == '\0') return std::nullopt;
  const char* vmid = std::getenv("SIMULATION_VMID");
  RegionKey key{vmid != nullptr ? vmid : "", name, {}};
  if (key.vmid.size() + key.name.size() > kMaxKeyBytes) return std::nullopt;
  key.objectName = objectNameFor(key.vmid, key.name);
  return key;
}

std::uint64_t physicalAddressFor(std::string_view name) {
  constexpr std::uint64_t slots =
      (kPhysicalLimit - kLongestRegionBytes - kPhysicalBase) / kPhysicalSlotBytes;
  return kPhysicalBase + fnv1a(name) % slots * kPhysicalSlotBytes;
}

}  // namespace ostra
