// Who may connect, and who may manage or upgrade the agent.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

// Whether the connection filter lets the client with this address (dotted text) in.
bool ConnectionPermitted(const AgentSettings& settings, std::string_view addressText);

// Whether the IPv4 address (network byte order) is in the list of addresses and ranges separated by
// ",". `errorText` becomes empty, or says what is wrong with the list.
bool IpInList(uint32_t address, std::string_view list, VyString& errorText);

// Removes the next item from the front of `text` and gives its addresses in host byte order: `last`
// is 0 for a single address, `first` is 0 when no usable item is left.
void ParseIpItem(std::string_view& text, uint32_t& first, uint32_t& last, VyString& errorText);

}  // namespace zot
