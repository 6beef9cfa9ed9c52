// The process-wide registry of finished message descriptors, for programs that report timings.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace Tralux {

class MsgDesc;

// Every registered call site, in the order of their message ids.
std::vector<const MsgDesc*> registeredCallSites();

// The registered call site with this text and the lowest id, or null.
const MsgDesc* findCallSite(std::string_view text);

namespace detail {
std::uint32_t nextMessageId();
void registerCallSite(const MsgDesc* desc);
void unregisterCallSite(const MsgDesc* desc);
}  // namespace detail

}  // namespace Tralux
